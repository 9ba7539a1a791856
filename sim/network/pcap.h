#pragma once

#include <span>
#include <string>

#include "sim/network/network.h"

namespace quorl::sim {

/// Writes datagrams as a capture file that the usual analysers open: IPv4 packets without a link layer, each with the
/// headers that it would have had, unfragmented. Times are virtual, from the beginning of 1970. False when the file
/// cannot be written.
bool WritePcap(const std::string& path, std::span<const SentDatagram> datagrams);

}  // namespace quorl::sim
