// Who does not belong to the transfer, or says what he must not; and copies that come late, and much too late.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t BLOCKS = 200;
constexpr uint16_t TAIL = 3000;

struct Strangers : testing::Test {
  Strangers() { room.File("a", (BLOCKS - 1) * BLOCK_SIZE + TAIL); }

  /// Until the stream is under way.
  void Begin() {
    sim::Begin(room, 100ms);
    ASSERT_EQ(room.Client(0).GetState().phase, ReceivePhase::Receiving);
  }

  uint32_t Address(size_t receiver) { return room.Receiver(receiver).Address(); }

  Room room{Robust(2)};
  Stranger stranger{room};
};

TEST_F(Strangers, NobodyButTheSenderEndsOrReplacesATransfer) {
  Begin();
  const quorl::Task another{
      .totalBlocks = 1, .fileCount = 1, .targetFolder = 0xFFFFFFFF, .targetPath = NameField::From("D:\\")};
  for (const Endpoint to : {RoomAddress{}.group, Endpoint{Address(0), DEFAULT_PORT}}) {
    stranger.Say(Stranger::ADDRESS, to, Build(Stop{}));
    stranger.Say(Stranger::ADDRESS, to, Build(Finish{}));
    stranger.Say(Stranger::ADDRESS, to, Build(Release{1, 1}));
    stranger.Say(Stranger::ADDRESS, to, Build(Master{0}));
    stranger.Say(Stranger::ADDRESS, to, Build(another));
  }
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
  EXPECT_EQ(CountMessages(room.Receiver(0), WM_TASK_INFO), 1u);
  for (const SentDatagram& sent : room.Net().Sent()) EXPECT_NE(sent.destination.address, Stranger::ADDRESS);
}

TEST_F(Strangers, BlocksOfATransferComeFromWhoAnnouncedItAlsoWhenItIsOver) {
  Begin();
  room.Net().SetFilter([](const Transit& transit) { return !Is(transit, CMD_DATA); });
  for (const bool stops : {true, false}) {
    if (stops) room.Sender().Call([&] { room.Server().StopSend(); });
    if (!stops) room.Sender().PowerOff();
    room.World().RunFor(40s);
    for (uint32_t block = 0; block < BLOCKS; ++block)
      stranger.SayToRoom(Stranger::ADDRESS,
                         BuildBlock(CMD_RESEND, {1, block, BLOCKS - 1, 0, TAIL, NameField::From("\\a")},
                                    std::vector<uint8_t>(BLOCK_SIZE, 0xEE)));
    stranger.SayToRoom(Stranger::ADDRESS, Build(Release{1, 1}));
    room.World().RunFor(1s);
    EXPECT_FALSE(room.WasToldComplete(0)) << (stops ? "after a stop" : "after the loss of the sender");
    room.Net().SetFilter({});
    if (stops) room.Sender().Call([&] { room.Server().StartSend(); });
    room.Net().SetFilter([](const Transit& transit) { return !Is(transit, CMD_DATA); });
  }
}

TEST_F(Strangers, WhatSaysThatAReceiverIsCompleteBeforeTheEndOfTheStreamIsOfAnEarlierTransfer) {
  Begin();
  room.Net().SetFilter([&](const Transit& transit) {
    return !Is(transit, CMD_DATA) || HeadOf(transit).block != (transit.to == &room.Receiver(0) ? 150u : 160u);
  });
  stranger.SayToSender(Address(0), Build(Answer{0}));
  stranger.SayToSender(Address(1), Build(Finish{0}));
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

TEST_F(Strangers, ThreeHundredOfThemLeaveRoomForWhoCameFirst) {
  ASSERT_TRUE(room.StartReceivers());
  room.World().At(room.World().Now() + 400ms, [&] {
    for (uint32_t i = 0; i < 300; ++i)
      stranger.SayToSender(Ipv4(10, 0, 100, static_cast<uint8_t>(i)) + (i >> 8 << 16), Build(Client{1}));
  });
  ASSERT_TRUE(room.Send());
  EXPECT_EQ(room.Server().GetReceivers(nullptr, 0), 200u);
  EXPECT_EQ(room.Server().GetState().answersRefused, 102u);
  EXPECT_TRUE(room.RunUntilQuiet(3600s));
  EXPECT_EQ(Ends(room), "whole told, whole told") << "whoever is named master in vain";
}

TEST_F(Strangers, AReceiverWithTwoAddressesAndOneThatAnswersAgainAfterARestart) {
  ASSERT_TRUE(room.StartReceivers());
  room.Receiver(1).PowerOff();
  ASSERT_TRUE(room.RestartReceiver(1));
  room.World().At(room.World().Now() + 300ms, [&] {
    for (const uint32_t address : {Ipv4(10, 0, 0, 77), Address(1)}) stranger.SayToSender(address, Build(Client{1}));
  });
  ASSERT_TRUE(room.Send());
  EXPECT_EQ(room.Server().GetReceivers(nullptr, 0), 3u);
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

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
