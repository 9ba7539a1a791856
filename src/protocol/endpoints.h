// Where the datagrams travel.
#pragma once

#include <quorl/quorl.h>

#include <array>
#include <bit>
#include <cstdint>

#include "platform/network.h"

namespace quorl {

/// The four numbers of a dotted address, as the 32-bit value in network byte order that the sockets take.
constexpr uint32_t Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  return std::bit_cast<uint32_t>(std::array<uint8_t, 4>{a, b, c, d});
}

inline constexpr uint32_t DEFAULT_GROUP = Ipv4(235, 9, 2, 9);
inline constexpr uint16_t DEFAULT_PORT = QUORL_DEFAULT_PORT;

/// The sender's heartbeat has a group and a port of its own, the same for every room.
inline constexpr Endpoint REPORT_GROUP{Ipv4(234, 9, 2, 10), 28000};

/// Hops that a multicast datagram may take.
inline constexpr uint8_t MULTICAST_TTL = 50;

/// The data group and the local interface of one side, as its host gave them.
struct RoomAddress {
  Endpoint group{DEFAULT_GROUP, DEFAULT_PORT};
  uint32_t localInterface = 0;

  /// 0 stands for the default; only the low 16 bits of the port count.
  static constexpr RoomAddress From(uint32_t groupAddress, uint32_t groupPort, uint32_t localInterface) {
    return {{groupAddress == 0 ? DEFAULT_GROUP : groupAddress,
             groupPort == 0 ? DEFAULT_PORT : static_cast<uint16_t>(groupPort)},
            localInterface};
  }

  /// The port on which the sender hears its receivers; it wraps at 65536.
  constexpr uint16_t ReplyPort() const { return static_cast<uint16_t>(group.port + 2); }
};

}  // namespace quorl
