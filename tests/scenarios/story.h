// The words in which scenarios are told.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/room/peer.h"
#include "sim/room/room.h"

namespace quorl::sim {

inline bool Is(const Transit& transit, Command command) {
  return transit.datagram.size() > 2 && transit.datagram[2] == command;
}

inline BlockHead HeadOf(const Transit& transit) {
  return ReadFields<BlockHead>(transit.datagram);
}

inline RoomOptions Robust(size_t receivers) {
  return {.receivers = receivers, .senderProfile = Profile::Robust, .receiverProfile = Profile::Robust};
}

/// A scenario that is told for either profile.
struct InBothProfiles : testing::TestWithParam<Profile> {
  static RoomOptions Receivers(size_t count) { return {count, 1, GetParam(), GetParam()}; }
  static bool IsRobust() { return GetParam() == Profile::Robust; }
};

#define TELL_IN_BOTH_PROFILES(fixture)                                       \
  INSTANTIATE_TEST_SUITE_P(                                                  \
      Profiles, fixture, testing::Values(Profile::Classic, Profile::Robust), \
      [](const auto& profile) { return profile.param == Profile::Classic ? "Classic" : "Robust"; })

/// Starts everybody, and lets the world run for a while of the transfer.
inline void Begin(Room& room, Duration stretch = Duration::zero()) {
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  room.World().RunFor(stretch);
}

/// The same, to the end.
inline void Play(Room& room, Duration limit = std::chrono::seconds(120)) {
  Begin(room);
  EXPECT_TRUE(room.RunUntilQuiet(limit));
}

/// A machine that belongs to nobody and says what it likes, under whatever address.
class Stranger : Peer {
 public:
  explicit Stranger(Room& room) : Peer(room.World(), "stranger", ADDRESS), room(room) {}

  void Say(uint32_t as, Endpoint to, std::span<const uint8_t> datagram) { Peer::Say({as, DEFAULT_PORT}, to, datagram); }
  void SayToRoom(uint32_t as, std::span<const uint8_t> datagram) { Say(as, RoomAddress{}.group, datagram); }
  void SayToSender(uint32_t as, std::span<const uint8_t> datagram) {
    Say(as, {room.Sender().Address(), RoomAddress{}.ReplyPort()}, datagram);
  }

  static constexpr uint32_t ADDRESS = Ipv4(10, 0, 200, 1);

 private:
  Room& room;
};

inline size_t CountMessages(const SimMachine& machine, uint32_t number) {
  return static_cast<size_t>(std::ranges::count(machine.Messages(), number, &RecordedMessage::number));
}

inline size_t CountSent(Room& room, Command command) {
  return static_cast<size_t>(
      std::ranges::count(room.Net().Sent(), command, [](const SentDatagram& sent) { return sent.bytes.at(2); }));
}

/// What has become of everybody, in one line: for each receiver "whole" or "holes", "told" when its host was told that
/// it is complete, and the status under which the sender reports it.
inline std::string Ends(Room& room) {
  std::string line;
  const auto failed = room.FailedReceivers();
  for (size_t index = 0; index < room.Receivers(); ++index) {
    if (index > 0) line += ", ";
    line += room.TreesIdentical(index) ? "whole" : "holes";
    if (room.WasToldComplete(index)) line += " told";
    if (failed.contains(index)) line += " " + std::to_string(failed.at(index));
  }
  return line;
}

}  // namespace quorl::sim
