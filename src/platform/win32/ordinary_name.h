#pragma once

#include <string_view>

namespace quorl {

/// Whether a component of a path is a name that every program on this system takes for a file or directory of just that
/// name: no device, in whatever folder and with whatever extension (NUL, con.txt), no stream of another file (a:b), no
/// trailing dots or spaces, which most programs cut off, no character that may not stand in a name.
bool IsOrdinaryName(std::wstring_view component);

}  // namespace quorl
