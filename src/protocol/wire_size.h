#pragma once

#include <cstddef>

namespace quorl {

/// Bytes that a datagram of `length` bytes takes on an Ethernet link with an MTU of 1500: its UDP header (RFC 768), an
/// IP header for each fragment (RFC 791), and for each fragment the frame's preamble, header, checksum and gap.
constexpr size_t BytesOnWire(size_t length) {
  constexpr size_t UDP_HEADER = 8, IP_HEADER = 20, FRAGMENT_DATA = 1480, FRAME = 8 + 14 + 4 + 12;
  const size_t payload = length + UDP_HEADER;
  const size_t fragments = (payload + FRAGMENT_DATA - 1) / FRAGMENT_DATA;
  return payload + fragments * (IP_HEADER + FRAME);
}

}  // namespace quorl
