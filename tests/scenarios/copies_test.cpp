// Copies that come late, and much too late.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct Copies : InBothProfiles {
  Room room{Receivers(1)};
  Stranger network{room};
};

TELL_IN_BOTH_PROFILES(Copies);

TEST_P(Copies, ACopyOfTheAnnouncementAmongTheBlocksChangesNothing) {
  room.File("a", 60 * BLOCK_SIZE);
  room.Net().SetFilter([&, copies = 0](const Transit& transit) mutable {
    if (!Is(transit, CMD_TASK) || ++copies != 3) return true;
    const std::vector<uint8_t> copy(transit.datagram.begin(), transit.datagram.end());
    room.World().At(room.World().Now() + 300ms, [this, copy] { network.SayToRoom(room.Sender().Address(), copy); });
    return false;
  });
  Play(room);
  EXPECT_EQ(Ends(room), "whole told");
  EXPECT_EQ(CountSent(room, CMD_RESEND), 0u);
  EXPECT_EQ(CountMessages(room.Receiver(0), WM_TASK_INFO), 1u);
}

TEST_P(Copies, EveryDatagramTwiceAndOutOfOrder) {
  for (const char* name : {"a", "b"}) room.File(name, 40 * BLOCK_SIZE);
  room.Net().SetLink({.reorder = 0.5, .duplicate = 1, .heldBack = 60ms});
  Play(room);
  EXPECT_EQ(Ends(room), IsRobust() ? "whole told" : "whole 1004")
      << "what came out of order counts as missing, and by the classic rules so much of it is too much";
}

TEST_P(Copies, ATransferIsNotMixedWithLateCopiesOfTheOneBefore) {
  room.File("a", 40 * BLOCK_SIZE);
  std::vector<std::vector<uint8_t>> former;
  room.Net().SetTap([&](const SentDatagram& sent) {
    if (sent.from == &room.Sender()) former.push_back(sent.bytes);
  });
  Play(room);
  room.Net().SetTap({});

  room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
  room.Sender().Disk().Remove("C:\\src\\a");
  room.File("b", 50 * BLOCK_SIZE);
  ASSERT_TRUE(room.StartReceiver(0));
  ASSERT_TRUE(room.Send());
  room.World().RunFor(100ms);
  for (const auto& datagram : former)
    if (datagram[2] == CMD_DATA || datagram[2] == CMD_RESEND) network.SayToRoom(room.Sender().Address(), datagram);
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_TRUE(room.WasToldComplete(0));
  EXPECT_EQ(room.Receiver(0).Disk().Tree("C:\\in\\b"), room.Sender().Disk().Tree("C:\\src\\b"));
  // Classic takes a block for what it says it is; it does not call the result complete.
  EXPECT_EQ(room.HoldsAllFiles(0), IsRobust());
  EXPECT_EQ(room.Client(0).GetState().complete, IsRobust());
}

}  // namespace
}  // namespace quorl::sim
