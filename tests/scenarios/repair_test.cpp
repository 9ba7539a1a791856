// Losses and what the repair makes of them, in both profiles.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t BYTES_10_BLOCKS = 9 * BLOCK_SIZE + 77;

struct Repair : InBothProfiles {
  /// Three files of 10 blocks each.
  static void Fill(Room& room) {
    for (const char* name : {"a", "b", "c"}) room.File(name, BYTES_10_BLOCKS);
  }

  static void PlayWith(Room& room, std::function<bool(const Transit&)> keep) {
    room.Net().SetFilter(std::move(keep));
    Play(room);
  }
};

TELL_IN_BOTH_PROFILES(Repair);

TEST(RepairTalk, TheWholeExchangeInItsOrder) {
  Room room({.receivers = 2});
  room.File("a", 19 * BLOCK_SIZE);
  room.File("b", 9 * BLOCK_SIZE);
  room.File("c", 9 * BLOCK_SIZE);
  room.Net().SetFilter([&](const Transit& transit) {
    if (transit.to != &room.Receiver(0) || !Is(transit, CMD_DATA)) return true;
    const BlockHead head = HeadOf(transit);
    return !(head.file == 2 && head.block == 5) && !(head.file == 3 && head.block == 0);
  });
  Play(room);
  const std::vector<std::string> expected = {
      "receiver0: CMD_ANSWER missing blocks=2",
      "receiver1: CMD_ANSWER missing blocks=0",
      "sender: CMD_MASTER state=1",
      "receiver0: CMD_ACK file=2 block=5",
      "sender: CMD_RESEND file=2 block=5",
      "receiver0: CMD_ACK file=3 block=0",
      "sender: CMD_RESEND file=3 block=0",
      "receiver0: CMD_ACK file=4 block=0",
      "sender: CMD_MASTER state=0",
      "receiver0: CMD_FINISH status=0",
  };
  EXPECT_EQ(RepairTalk(room), expected);
  EXPECT_EQ(Ends(room), "whole told, whole told");
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
}

TEST(RepairTalk, ARobustReceiverCuresALostRequestAlsoWithAClassicSender) {
  Room room({.receivers = 1, .receiverProfile = Profile::Robust});
  room.File("a", 50 * BLOCK_SIZE);
  room.Net().SetFilter([requests = 0](const Transit& transit) mutable {
    // The second one, since the sender names its master again until it has heard a first.
    if (Is(transit, CMD_ACK)) return ++requests != 2;
    return !Is(transit, CMD_DATA) || HeadOf(transit).block % 20 != 7;
  });
  Play(room);
  EXPECT_EQ(Ends(room), "whole told");
}

TEST_P(Repair, WhateverOfTheStreamIsLost) {
  struct Case {
    const char* story;
    std::function<bool(size_t receiver, const BlockHead& head)> loses;
    size_t repairs;
    const char* classicEnds = "whole told, whole told, whole told";
  };
  // A file of which nothing has come counts as one block, so that it is not given up as too much.
  const Case cases[] = {
      {"the same block everywhere", [](size_t, const BlockHead& head) { return head.block == 4; }, 3},
      {"a whole file at one", [](size_t i, const BlockHead& head) { return i == 0 && head.file == 2; }, 10},
      {"the begin of every file at one", [](size_t i, const BlockHead& head) { return i == 1 && head.block == 0; }, 3,
       "whole told, holes told, whole told"},
      {"the end of every file", [](size_t, const BlockHead& head) { return head.block >= 8; }, 6},
  };
  for (const Case& each : cases) {
    Room room(Receivers(3));
    Fill(room);
    PlayWith(room, [&](const Transit& transit) {
      for (size_t i = 0; i < room.Receivers(); ++i)
        if (Is(transit, CMD_DATA) && transit.to == &room.Receiver(i) && each.loses(i, HeadOf(transit))) return false;
      return true;
    });
    const bool holes = !IsRobust() && std::string(each.classicEnds).find("holes") != std::string::npos;
    EXPECT_EQ(Ends(room), IsRobust() ? "whole told, whole told, whole told" : each.classicEnds) << each.story;
    EXPECT_EQ(CountSent(room, CMD_RESEND), each.repairs - (holes ? 1 : 0)) << each.story;
  }
}

TEST_P(Repair, AWholeFileIsLostWhereAnOldOneOfItsNameStands) {
  Room room(Receivers(1));
  room.File("a", 40 * BLOCK_SIZE);
  room.File("b", BYTES_10_BLOCKS);
  room.Receiver(0).Disk().MakeDirectory("C:\\in");
  room.Receiver(0).Disk().Write("C:\\in\\b", std::vector<uint8_t>(BYTES_10_BLOCKS, 0xEE));
  PlayWith(room, [&](const Transit& transit) { return !(Is(transit, CMD_DATA) && HeadOf(transit).file == 2); });
  EXPECT_EQ(Ends(room), IsRobust() ? "whole told" : "holes told") << "classic takes the old one for a begun one";
  EXPECT_EQ(room.Client(0).GetState().complete, IsRobust());
}

TEST_P(Repair, AnEmptyDirectoryWhoseFirstAnnouncementIsLost) {
  Room room(Receivers(1));
  room.File("a", 10);
  room.EmptyDirectory("nothing");
  PlayWith(room, [lost = false](const Transit& transit) mutable {
    const bool first = Is(transit, CMD_EMPTYDIR) && !lost;
    lost = lost || first;
    return !first;
  });
  EXPECT_EQ(Ends(room), IsRobust() ? "whole told" : "holes told") << "a classic sender announces it once";
}

TEST(GrowingFile, ArrivesAsItWasAnnouncedByARobustSender) {
  Room room(Robust(2));
  Repair::Fill(room);
  Repair::PlayWith(room, [&, grown = false](const Transit& transit) mutable {
    if (!Is(transit, CMD_DATA)) return true;
    const BlockHead head = HeadOf(transit);
    if (!grown && head.file == 2) {
      for (const char* name : {"b", "c"}) room.File(name, BYTES_10_BLOCKS + 3 * BLOCK_SIZE);
      grown = true;
    }
    return head.block != 6;
  });
  for (size_t i = 0; i < room.Receivers(); ++i) EXPECT_TRUE(room.WasToldComplete(i));
  EXPECT_TRUE(room.FailedReceivers().empty());
  EXPECT_EQ(room.Receiver(0).Disk().Read("C:\\in\\c")->size(), BYTES_10_BLOCKS);
}

}  // namespace
}  // namespace quorl::sim
