#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "platform/real_machine.h"

namespace quorl {

using Outcome = Received::Outcome;
using Bytes = std::vector<uint8_t>;

/// IPv4 in network byte order.
constexpr uint32_t Address(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  return a | b << 8 | c << 16 | d << 24;
}

constexpr uint32_t Loopback(uint32_t last) {
  return Address(127, 0, 0, last);
}

// Tests run side by side in processes of their own, each in a room of its own.
inline const uint32_t ROOM = std::random_device{}();
inline const uint16_t PORT = static_cast<uint16_t>(28500 + ROOM % 4000);
inline const uint32_t GROUP = Address(239, 64, ROOM >> 8 & 255, ROOM >> 16 & 255);
inline const uint32_t OTHER_GROUP = Address(239, 65, ROOM >> 8 & 255, ROOM >> 16 & 255);

inline std::shared_ptr<DatagramSocket> Open() {
  return RealMachine().network.OpenDatagramSocket();
}

/// As a receiver opens its data socket.
inline std::shared_ptr<DatagramSocket> OpenMember(uint32_t local, uint16_t port = PORT, uint32_t group = GROUP) {
  const auto socket = Open();
  EXPECT_TRUE(socket->SetReuseAddress());
  EXPECT_TRUE(socket->Bind({local, port}));
  EXPECT_TRUE(socket->SetReceiveBuffer(1048576));
  EXPECT_TRUE(socket->SetMulticastInterface(local));
  EXPECT_TRUE(socket->JoinGroup(group, local));
  EXPECT_TRUE(socket->SetTimeToLive(50));
  return socket;
}

inline Received Take(DatagramSocket& socket, Duration limit = std::chrono::seconds(5)) {
  std::vector<uint8_t> buffer(65536);
  return socket.Receive(buffer, limit, nullptr);
}

}  // namespace quorl
