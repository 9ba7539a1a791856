// The system's own headers, in the order and with the settings that they need.
#pragma once

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
// Brings windows.h, which alone would bring the socket library's first version.
#include <winsock2.h>
