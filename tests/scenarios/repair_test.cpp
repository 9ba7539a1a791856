// Losses and what the repair makes of them, in both profiles.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t BYTES_10_BLOCKS = 9 * BLOCK_SIZE + 77;

struct Repair : testing::TestWithParam<Profile> {
  static RoomOptions Options(size_t receivers) { return {receivers, 1, GetParam(), GetParam()}; }
  static bool IsRobust() { return GetParam() == Profile::Robust; }

  /// Three files of 10 blocks each.
  static void Fill(Room& room) {
    for (const char* name : {"a", "b", "c"}) room.File(name, BYTES_10_BLOCKS);
  }

  /// Starts everybody, loses what `keep` does not keep, and lets it run to its end.
  static void Play(Room& room, std::function<bool(const Transit&)> keep) {
    room.Net().SetFilter(std::move(keep));
    ASSERT_TRUE(room.StartReceivers());
    ASSERT_TRUE(room.Send());
    EXPECT_TRUE(room.RunUntilQuiet(300s));
    room.Net().SetFilter({});
  }
};

INSTANTIATE_TEST_SUITE_P(Profiles, Repair, testing::Values(Profile::Classic, Profile::Robust),
                         [](const auto& profile) { return profile.param == Profile::Classic ? "Classic" : "Robust"; });

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
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  ASSERT_TRUE(room.RunUntilQuiet(60s));
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

TEST(MixedProfiles, AnyTwoEndsWorkTogether) {
  for (const auto& [sender, receivers] :
       {std::pair(Profile::Classic, Profile::Robust), std::pair(Profile::Robust, Profile::Classic)}) {
    Room room({.receivers = 3, .senderProfile = sender, .receiverProfile = receivers});
    room.File("a", 50 * BLOCK_SIZE);
    room.File("b", BYTES_10_BLOCKS);
    room.Net().SetFilter([&](const Transit& transit) {
      if (!Is(transit, CMD_DATA)) return true;
      for (size_t i = 0; i < room.Receivers(); ++i)
        if (transit.to == &room.Receiver(i) && HeadOf(transit).block == 4 * i) return false;
      return true;
    });
    ASSERT_TRUE(room.StartReceivers());
    ASSERT_TRUE(room.Send());
    EXPECT_TRUE(room.RunUntilQuiet(120s));
    EXPECT_EQ(Ends(room), "whole told, whole told, whole told");
  }
}

TEST_P(Repair, OneRepairServesEverybodyWhoMissesTheBlock) {
  Room room(Options(3));
  Fill(room);
  Play(room, [&](const Transit& transit) { return !(Is(transit, CMD_DATA) && HeadOf(transit).block == 4); });
  EXPECT_EQ(Ends(room), "whole told, whole told, whole told");
  EXPECT_EQ(CountSent(room, CMD_RESEND), 3u) << "once for each file";
}

TEST_P(Repair, AWholeFileIsLost) {
  Room room(Options(2));
  Fill(room);
  Play(room, [&](const Transit& transit) {
    return !(transit.to == &room.Receiver(0) && Is(transit, CMD_DATA) && HeadOf(transit).file == 2);
  });
  EXPECT_EQ(Ends(room), "whole told, whole told")
      << "a file of which nothing has come counts as one block, so that it is not given up as too much";
}

TEST_P(Repair, AWholeFileIsLostWhereAnOldOneOfItsNameStands) {
  Room room(Options(1));
  room.File("a", 40 * BLOCK_SIZE);
  room.File("b", BYTES_10_BLOCKS);
  room.Receiver(0).Disk().MakeDirectory("C:\\in");
  room.Receiver(0).Disk().Write("C:\\in\\b", std::vector<uint8_t>(BYTES_10_BLOCKS, 0xEE));
  Play(room, [&](const Transit& transit) { return !(Is(transit, CMD_DATA) && HeadOf(transit).file == 2); });
  EXPECT_EQ(Ends(room), "whole told");
}

TEST_P(Repair, TheFirstBlockOfEveryFileIsLost) {
  Room room(Options(2));
  Fill(room);
  Play(room, [&](const Transit& transit) {
    return !(transit.to == &room.Receiver(1) && Is(transit, CMD_DATA) && HeadOf(transit).block == 0);
  });
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

TEST_P(Repair, TheEndOfEveryFileIsLost) {
  Room room(Options(1));
  Fill(room);
  Play(room, [&](const Transit& transit) { return !(Is(transit, CMD_DATA) && HeadOf(transit).block >= 8); });
  EXPECT_EQ(Ends(room), "whole told");
}

TEST_P(Repair, ALateCopyMovesThePositionBack) {
  Room room(Options(1));
  room.File("a", 60 * BLOCK_SIZE);
  // The copy of block 3 arrives when some later blocks have come: they count as missing though they are there.
  room.Net().SetFilter([&, copied = false](const Transit& transit) mutable {
    if (!copied && Is(transit, CMD_DATA) && HeadOf(transit).block == 3) {
      copied = true;
      const std::vector<uint8_t> copy(transit.datagram.begin(), transit.datagram.end());
      const Endpoint to = transit.destination;
      room.World().At(room.World().Now() + 25ms, [&room, copy, to] {
        room.Sender().Spawn("copy",
                            [&room, copy, to] { room.Sender().Seam().network.OpenDatagramSocket()->Send(copy, to); });
      });
    }
    return true;
  });
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told");
  EXPECT_GE(CountSent(room, CMD_RESEND), 1u) << "blocks that had arrived are sent once more";
}

TEST_P(Repair, AnEmptyDirectoryWhoseFirstAnnouncementIsLost) {
  Room room(Options(1));
  room.File("a", 10);
  room.EmptyDirectory("nothing");
  Play(room, [lost = false](const Transit& transit) mutable {
    const bool first = Is(transit, CMD_EMPTYDIR) && !lost;
    lost = lost || first;
    return !first;
  });
  EXPECT_EQ(Ends(room), IsRobust() ? "whole told" : "holes told") << "a classic sender announces it once";
}

TEST_P(Repair, TheOnlyBlockIsLost) {
  Room room(Options(2));
  room.File("a", 10);
  Play(room, [&](const Transit& transit) { return !(transit.to == &room.Receiver(0) && Is(transit, CMD_DATA)); });
  EXPECT_EQ(Ends(room), IsRobust() ? "whole told, whole told" : "holes 1004, whole told")
      << "by the classic rules one block of one is too much to be missed; the receiver then gives the sender up";
}

TEST_P(Repair, AFileThatGrowsMeanwhileArrivesAsItWasAnnounced) {
  Room room(Options(2));
  Fill(room);
  Play(room, [&, grown = false](const Transit& transit) mutable {
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

TEST_P(Repair, HeavyLossEverywhere) {
  Room room(Options(4));
  room.File("a", 300 * BLOCK_SIZE);
  for (int i = 0; i < 10; ++i) room.File("small" + std::to_string(i), 500);
  room.Net().SetLoss(IsRobust() ? 0.2 : 0.01);
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  ASSERT_TRUE(room.RunUntilQuiet(900s));
  for (size_t i = 0; i < room.Receivers(); ++i) EXPECT_EQ(room.TreesIdentical(i), room.WasToldComplete(i)) << i;
  if (IsRobust()) {
    EXPECT_EQ(Ends(room), "whole told, whole told, whole told, whole told");
  }
}

}  // namespace
}  // namespace quorl::sim
