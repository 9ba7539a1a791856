// A read from a slow disk: of a repair, in the middle of which the host stops the transfer or starts another, or which
// takes very long, and of the stream.
#include <gtest/gtest.h>

#include "sim/room/room.h"
#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

/// Block 0 of file 1 of every stream is lost, and the read for its repair hangs.
struct SlowRead : testing::TestWithParam<Profile> {
  void RunIntoTheRead(Duration pause, bool fails) {
    room.Net().SetFilter([](const Transit& transit) {
      return !Is(transit, CMD_DATA) || HeadOf(transit).file != 2 || HeadOf(transit).block != 1;
    });
    room.File("d\\a", 5);
    room.File("d\\z", 40 * BLOCK_SIZE);
    room.Sender().Disk().WriteSynthetic("C:\\e\\a", 5, 1);
    room.Sender().Disk().WriteSynthetic("C:\\e\\z", 40 * BLOCK_SIZE, 2);
    ASSERT_TRUE(room.StartReceivers() && room.Send());
    ASSERT_TRUE(room.World().RunUntil([&] { return room.Server().GetState().phase == SendPhase::Finishing; }, 10s));
    room.Sender().FailEvery([this, pause, fails](std::string_view call) {
      if (call != "files.read" || std::exchange(hangs, true)) return false;
      room.Sender().Seam().clock.Sleep(pause);
      return fails;
    });
    ASSERT_TRUE(room.World().RunUntil([&] { return hangs; }, 10s));
    room.World().RunFor(10ms);
  }
  void SendTheOther() {
    room.Net().SetFilter(nullptr);
    room.Sender().Call([&] {
      room.Server().SetSelectFiles({"C:\\e"}, "");
      room.Server().StartSend();
    });
    ASSERT_TRUE(room.World().RunUntil([&] { return room.Client(0).GetState().complete; }, 60s));
    room.World().RunFor(10s);
    EXPECT_TRUE(room.Receiver(0).Disk().SameTree("C:\\in\\e", room.Sender().Disk(), "C:\\e"));
    EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
  }

  /// How long a call of the host takes.
  Duration Took(const std::function<void()>& call) {
    const Moment before = room.World().Now();
    room.Sender().Call(call);
    return room.World().Now() - before;
  }

  bool hangs = false;
  Room room{{.senderProfile = GetParam(), .receiverProfile = GetParam()}};
};

INSTANTIATE_TEST_SUITE_P(Profiles, SlowRead, testing::Values(Profile::Classic, Profile::Robust));

TEST_P(SlowRead, ABlockOfTheLastTransferDoesNotGetIntoTheNext) {
  RunIntoTheRead(200ms, false);
  SendTheOther();
}

TEST_P(SlowRead, AThreadThatHangsBeyondEveryWaitCannotEndTheNextTransfer) {
  RunIntoTheRead(8s, true);
  SendTheOther();
}

TEST_P(SlowRead, NothingFollowsAStop) {
  RunIntoTheRead(300ms, false);
  room.Sender().Call([&] { room.Server().StopSend(); });
  room.World().RunFor(5s);
  EXPECT_EQ(room.Sender().RunningThreads(), 0u);
  EXPECT_EQ(CountSent(room, CMD_STOP), 3u);
  EXPECT_EQ(CountSent(room, CMD_RESEND), 0u);
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
}

TEST_P(SlowRead, NobodyIsGivenUpWhileABlockIsBeingRead) {
  RunIntoTheRead(30s, false);
  EXPECT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told");
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
}

TEST_P(SlowRead, OneThatNeverReturnsEndsARobustTransferAndHoldsNoHostUp) {
  RunIntoTheRead(24h, false);
  const bool isRobust = GetParam() == Profile::Robust;
  room.World().RunFor(70s);
  EXPECT_EQ(Room::Statuses(room.Sender()),
            isRobust ? (std::vector<uint32_t>{0, QUORL_STATUS_FILE_UNREADABLE}) : std::vector<uint32_t>{});
  EXPECT_LE(Took([&] { room.Server().StopSend(); }), 100ms);
  EXPECT_LE(Took([&] { room.Server().StartSend(); }), 5200ms);
  EXPECT_LE(Took([&] { room.Server().DeInitServer(); }), 1ms);
}

TEST(SlowStream, ADiskThatNeverAnswersEndsARobustTransfer) {
  Room room(Robust(1));
  room.File("a", 40 * BLOCK_SIZE);
  room.Sender().FailEvery([&](std::string_view call) {
    if (call == "files.read") room.Sender().Seam().clock.Sleep(24h);
    return false;
  });
  Begin(room, 70s);
  EXPECT_EQ(Room::Statuses(room.Sender()), (std::vector<uint32_t>{0, QUORL_STATUS_FILE_UNREADABLE}));
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Stopped);
  EXPECT_EQ(room.Sender().RunningThreads(), 1U) << "the one that waits for the disk";
}

}  // namespace
}  // namespace quorl::sim
