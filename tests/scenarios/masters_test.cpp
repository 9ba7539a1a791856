// Who is master, who is given up, and how a room comes to its end.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct Masters : InBothProfiles {
  /// A room in which every receiver misses one block of its own.
  static std::unique_ptr<Room> MakeRoom(size_t receivers) {
    auto room = std::make_unique<Room>(Receivers(receivers));
    room->File("a", 39 * BLOCK_SIZE + 1);
    return room;
  }

  static bool LosesItsOwnBlock(Room& room, const Transit& transit) {
    for (size_t i = 0; i < room.Receivers(); ++i)
      if (transit.to == &room.Receiver(i) && Is(transit, CMD_DATA) && HeadOf(transit).block == 3 * i + 2) return true;
    return false;
  }
};

TELL_IN_BOTH_PROFILES(Masters);

TEST_P(Masters, ThreeReceiversOfWhichTheSecondStallsGetsASecondTurn) {
  auto room = MakeRoom(3);
  // The second one's repair is lost until the third has completed.
  room->Net().SetFilter([&](const Transit& transit) {
    if (LosesItsOwnBlock(*room, transit)) return false;
    const bool toSecond = transit.to == &room->Receiver(1) && Is(transit, CMD_RESEND);
    return !toSecond || room->Client(2).GetState().complete;
  });
  Play(*room);
  EXPECT_EQ(Ends(*room), "whole told, whole told, whole told");
  EXPECT_EQ(Room::Statuses(room->Sender()), std::vector<uint32_t>{0});
}

TEST_P(Masters, AReceiverThatDiesInTheMiddleOfItsTurnDelaysTheOthersOnly) {
  auto room = MakeRoom(3);
  room->Net().SetFilter([&](const Transit& transit) {
    if (Is(transit, CMD_ACK) && transit.from == &room->Receiver(1)) {
      room->World().At(room->World().Now(), [&] { room->Receiver(1).PowerOff(); });
      return false;
    }
    return !LosesItsOwnBlock(*room, transit);
  });
  Play(*room);
  EXPECT_EQ(Ends(*room), IsRobust() ? "whole told, holes 1460, whole told" : "whole told, holes, whole told")
      << "a classic sender goes by the last request it saw, which said that nothing was missing";
}

TEST_P(Masters, ASilentRoomEndsInTime) {
  auto room = MakeRoom(2);
  room->Net().SetFilter(
      [&](const Transit& transit) { return Is(transit, CMD_CLIENT) || transit.to != &room->Sender(); });
  Play(*room);
  const std::vector<uint32_t> statuses = Room::Statuses(room->Sender());
  EXPECT_EQ(statuses, (std::vector<uint32_t>{0, QUORL_STATUS_TIMED_OUT}));
  for (size_t i = 0; i < 2; ++i) EXPECT_TRUE(room->TreesIdentical(i)) << "the stream needs no answers";
}

TEST_P(Masters, EveryReceiverFails) {
  auto room = MakeRoom(2);
  for (size_t i = 0; i < 2; ++i) room->Receiver(i).Disk().SetFreeBytes(1000);
  Play(*room);
  EXPECT_EQ(Ends(*room), "holes 112, holes 112");
  EXPECT_EQ(CountMessages(room->Sender(), WM_CLIENT_ERR), 2u) << "each is told of once, however often it says it";
  EXPECT_EQ(Room::Statuses(room->Sender()).front(), 0u);
}

TEST(LateAnswer, AReceiverWhoseAnswerToTheCollectionComesInTheSecondPassIsReported) {
  Room room(Robust(2));
  room.File("a", 20 * BLOCK_SIZE);
  room.Net().SetFilter([](const Transit& transit) {
    return !(Is(transit, CMD_DATA) && HeadOf(transit).block == 7) && !Is(transit, CMD_RESEND);
  });
  room.Net().SetLink(&room.Receiver(1), &room.Sender(), {.hungUntil = 10s});
  Play(room);
  EXPECT_EQ(Ends(room), "holes 1460, holes 1460");
}

}  // namespace
}  // namespace quorl::sim
