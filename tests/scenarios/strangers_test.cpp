// Who does not belong to the transfer, or says what he must not.
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
    ASSERT_TRUE(room.StartReceivers());
    ASSERT_TRUE(room.Send());
    room.World().RunFor(100ms);
    ASSERT_EQ(room.Client(0).GetState().phase, ReceivePhase::Receiving);
  }

  uint32_t Address(size_t receiver) { return room.Receiver(receiver).Address(); }

  const BlockHead truth{.file = 1, .lastBlock = BLOCKS - 1, .tailSize = TAIL, .name = NameField::From("\\a")};
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
    for (BlockHead head = truth; head.block < BLOCKS; ++head.block)
      stranger.SayToRoom(Stranger::ADDRESS, FalseBlock(CMD_RESEND, head));
    stranger.SayToRoom(Stranger::ADDRESS, Build(Release{1, 1}));
    room.World().RunFor(1s);
    EXPECT_FALSE(room.WasToldComplete(0)) << (stops ? "after a stop" : "after the loss of the sender");
    if (stops) room.Sender().Call([&] { room.Server().StartSend(); });
  }
}

TEST_F(Strangers, AFileKeepsTheShapeAndNameOfItsFirstBlock) {
  Begin();
  BlockHead longer = truth, fuller = truth, renamed = truth;
  longer.block = longer.lastBlock = BLOCKS + 5;
  fuller.block = BLOCKS - 1;
  fuller.tailSize = TAIL + 1000;
  renamed.name = NameField::From("\\b");
  // Under the sender's own address: only what it has said before tells that it is not true.
  for (const BlockHead& head : {longer, fuller, renamed})
    for (const Command command : {CMD_DATA, CMD_RESEND})
      stranger.SayToRoom(room.Sender().Address(), FalseBlock(command, head));
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
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

TEST_F(Strangers, AFloodOfRequestsGetsNothingResent) {
  Begin();
  // The first receiver becomes master, and its repair stalls while the others ask.
  room.Net().SetFilter([&, served = 0](const Transit& transit) mutable {
    if (Is(transit, CMD_DATA)) return transit.to != &room.Receiver(0) || HeadOf(transit).block != 150;
    if (!Is(transit, CMD_RESEND) || transit.to != &room.Receiver(0)) return true;
    return ++served > 1;
  });
  room.World().RunUntil([&] { return CountSent(room, CMD_RESEND) > 0; }, 60s);
  const size_t releases = CountSent(room, CMD_RELEASE);
  for (int i = 0; i < 1000; ++i) {
    stranger.SayToSender(Stranger::ADDRESS, Build(Ack{1, static_cast<uint32_t>(i) % BLOCKS}));
    stranger.SayToSender(Address(1), Build(Ack{1, static_cast<uint32_t>(i) % BLOCKS}));
    room.World().RunFor(1ms);
  }
  EXPECT_LE(CountSent(room, CMD_RELEASE) - releases, 1000u) << "one answer each, for who is in the table";
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
  EXPECT_LE(CountSent(room, CMD_RESEND), 4u);
}

TEST_F(Strangers, ThreeHundredOfThemLeaveRoomForWhoCameFirst) {
  ASSERT_TRUE(room.StartReceivers());
  room.World().At(room.World().Now() + 400ms, [&] {
    for (uint32_t i = 0; i < 300; ++i)
      stranger.SayToSender(Ipv4(10, 0, 100, static_cast<uint8_t>(i)) + (i >> 8 << 16), Build(Client{1}));
  });
  ASSERT_TRUE(room.Send());
  EXPECT_EQ(room.Server().GetReceivers(nullptr, 0), 200u);
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

TEST_F(Strangers, ASecondSenderFindsTheGroupBusyAndDisturbsNobody) {
  Begin();
  SimMachine& machine = room.World().AddMachine("second sender", Ipv4(10, 0, 0, 2));
  CTransServer second(machine.Seam());
  uint32_t result = 1;
  machine.Call([&] { result = second.InitServer(machine.MakeWindow(), 0, 0, machine.Address()); });
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(Room::Statuses(machine), std::vector<uint32_t>{QUORL_STATUS_GROUP_BUSY});
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
  machine.Call([&] { second.DeInitServer(); });
}

}  // namespace
}  // namespace quorl::sim
