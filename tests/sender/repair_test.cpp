// From the end of the stream to the end of the transfer: the repair as it goes over the wire, stops and new starts.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using Lines = std::vector<std::string>;

class SenderRepair : public SenderRoom {
 protected:
  /// Four files, ten blocks in all, announced and started.
  void Send() {
    WriteThreeFiles();
    machine.Disk().WriteSynthetic("C:\\data\\d", 3 * BLOCK_SIZE, 3);
    Init();
    Select("C:\\data");
    Start();
  }
};

TEST_F(SenderRepair, TheMastersAreServedOneAfterTheOther) {
  AddReceiver(Missing({{2, 1}, {3, 0}}, 4));
  AddReceiver(Missing({{3, 0}}, 4));
  AddReceiver(Missing({}, 4));
  Send();
  ASSERT_TRUE(RunUntilStatus());
  EXPECT_EQ(Statuses(), std::vector<uint32_t>{0});
  Lines repair;
  for (const std::string& line : SentSince(0ms)) {
    const std::string command = line.substr(line.find(' ') + 1);
    if (command.starts_with("CMD_MASTER") || command.starts_with("CMD_RESEND")) repair.push_back(command);
  }
  // The second receiver got its block with the first one's repair.
  EXPECT_EQ(repair, (Lines{"CMD_MASTER state=1", "CMD_RESEND file=2 block=1 last block=1 first sending=0 tail size=0",
                           "CMD_RESEND file=3 block=0 last block=2 first sending=0 tail size=1", "CMD_MASTER state=0",
                           "CMD_MASTER state=1", "CMD_MASTER state=0"}));
  EXPECT_EQ(receivers[2]->Count<Master>(), 0);
  EXPECT_EQ(ErrInfo(), std::vector<uint32_t>{});
  const auto& last = machine.Messages();
  EXPECT_EQ(last[last.size() - 2].text, "\\data\\c");  // The name follows a block that is sent again.
  const SendState state = server.GetState();
  EXPECT_EQ(state.blocksSent, 10U);
  EXPECT_EQ(state.blocksResent, 2U);
  for (const auto& receiver : state.receivers) EXPECT_EQ(receiver.state, ReceiverState::Complete);
  EXPECT_EQ(state.receivers[0].missingBlocks, 2U);
}

TEST_F(SenderRepair, ABlockBeyondTheFilesEndIsAnsweredWithoutBytes) {
  AddReceiver(Missing({{1, 9}}, 4));
  Send();
  world.RunFor(3s);
  std::vector<size_t> lengths;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes[2] == CMD_RESEND) lengths.push_back(sent.bytes.size());
  ASSERT_FALSE(lengths.empty());
  EXPECT_EQ(lengths[0], 542U);
}

TEST_F(SenderRepair, ASilentRoomEndsWithATimeOut) {
  AddReceiver();
  Send();
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 2; }, 60s));
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{0, 1460}));
  EXPECT_EQ(receivers[0]->Count<Master>(), 5);
  EXPECT_EQ(receivers[0]->Count<Stop>(), 3);
  EXPECT_EQ(ErrInfo(), std::vector<uint32_t>{});
  world.RunFor(6s);
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

TEST_F(SenderRepair, FailedReceiversAreToldAndTheLastOneEndsTheTransferWithoutAStop) {
  const auto failing = [](ScriptedReceiver& self, const FromSender& message) {
    if (std::holds_alternative<Task>(message) && self.Count<Task>() == 1) self.Reply(Finish{1002});
  };
  AddReceiver(failing);
  AddReceiver(failing);
  Send();
  ASSERT_TRUE(RunUntilStatus());
  // The size is told when the last announcement is out, and both have failed at the first.
  std::vector<std::pair<uint32_t, uintptr_t>> told;
  for (const auto& message : machine.Messages())
    if (message.number != WM_FILE_NAME) told.emplace_back(message.number, message.wParam);
  EXPECT_EQ(told, (std::vector<std::pair<uint32_t, uintptr_t>>{
                      {WM_CLIENT_ERR, 1002}, {WM_CLIENT_ERR, 1002}, {WM_TRANS_STATUS, 0}, {WM_TASK_INFO, 2}}));
  EXPECT_EQ(ErrInfo(), (std::vector<uint32_t>{Ipv4(10, 0, 1, 0), 1002, Ipv4(10, 0, 1, 1), 1002}));
  EXPECT_EQ(receivers[0]->Count<Stop>(), 0);
  // The stream does not care, and finds the transfer over at its end.
  world.RunFor(10s);
  EXPECT_EQ(receivers[0]->Count<Data>(), 10);
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{0, 0}));
}

TEST_F(SenderRepair, AResendThatCannotBeSentEndsTheTransferOnTheThreadThatServesIt) {
  AddReceiver(Missing({{1, 0}}, 4));
  Send();
  ASSERT_TRUE(world.RunUntil([&] { return receivers[0]->Count<Master>() == 1; }, 10s));
  FailSends();
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 2; }, 10s));
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{0, 32}));
  EXPECT_EQ(CountDebug("\nQuorl-----Send file or directory information failed\n"), 1);
  EXPECT_EQ(CountDebug("\nQuorl-----Send Stop packet Failed!\n"), 1);
  EXPECT_EQ(machine.OpenSockets(), 0U);
  world.RunFor(6s);
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

TEST_F(SenderRepair, AMasterThatCannotBeCalledStopsTheTransfer) {
  AddReceiver(Missing({{1, 0}}, 4));
  Send();
  ASSERT_TRUE(world.RunUntil([&] { return receivers[0]->Count<Finish>() == 3; }, 10s));
  FailSends();
  ASSERT_TRUE(RunUntilStatus());
  EXPECT_EQ(CountDebug("\nSend Packet to Master Failed When Master is TRUE!"), 0);  // Written after the stop.
  world.RunFor(20ms);
  EXPECT_EQ(CountDebug("\nSend Packet to Master Failed When Master is TRUE!"), 1);
  EXPECT_EQ(machine.OpenSockets(), 0U);
}

TEST_F(SenderRepair, StopSendEndsEveryThreadWithinASecondAndTellsOnce) {
  AddReceiver({}, 0);
  for (const Duration moment : {0ms, 60ms, 400ms, 900ms, 2500ms}) {
    Send();
    world.RunFor(moment);
    const size_t before = Statuses().size();
    machine.Call([&] { EXPECT_EQ(server.StopSend(), 1U); });
    world.RunFor(900ms);
    EXPECT_EQ(machine.RunningThreads(), 0U);
    EXPECT_EQ(Statuses().size(), before + 1);
    EXPECT_EQ(Statuses().back(), 0U);
    machine.Call([&] { server.DeInitServer(); });
  }
  EXPECT_EQ(receivers[0]->Count<Stop>(), 15);
}

TEST_F(SenderRepair, AfterAStopOrAnEndTheSameSenderSendsAgain) {
  AddReceiver();
  Send();
  world.RunFor(100ms);
  machine.Call([&] { server.StopSend(); });

  // A new transfer that ends with a time-out ...
  receivers[0]->SetScript([](ScriptedReceiver& self, const FromSender& message) {
    if (std::holds_alternative<Master>(message)) self.Reply(Ack{2, 1});
  });
  Start();
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 3; }, 60s));
  EXPECT_EQ(Statuses()[2], 1460U);
  EXPECT_EQ(ErrInfo(), (std::vector<uint32_t>{Ipv4(10, 0, 1, 0), 1460}));

  // ... leaves nothing behind for the next one, of a new selection.
  machine.Disk().WriteSynthetic("C:\\other\\x", 4 * BLOCK_SIZE, 9);
  Select("C:\\other");
  receivers[0]->SetScript(Missing({{1, 1}}, 1));
  const Moment start = world.Now();
  Start();
  EXPECT_EQ(ErrInfo(), std::vector<uint32_t>{});
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 4; }, 60s));
  EXPECT_EQ(Statuses()[3], 0U);
  int resends = 0;
  for (const auto& sent : world.Net().Sent())
    if (sent.at >= start && sent.bytes[2] == CMD_RESEND) {
      ++resends;
      EXPECT_NE(Describe(sent.bytes).find("\\other\\x"), std::string::npos);
    }
  EXPECT_EQ(resends, 1);
}

TEST_F(SenderRepair, AQuickRestartEndsTheRunningTransferAndItsThreads) {
  AddReceiver({}, 0);
  Send();
  world.RunFor(60ms);
  const Moment start = world.Now();
  Start();
  world.RunFor(1s);
  EXPECT_EQ(machine.RunningThreads(), 3U);  // ReplyThread, SendThread, ReportThread.
  int blocks = 0;
  for (const auto& sent : world.Net().Sent()) blocks += sent.at >= start && sent.bytes[2] == CMD_DATA;
  EXPECT_EQ(blocks, 10);
  EXPECT_EQ(Statuses().size(), 0U);
}

TEST_F(SenderRepair, DeInitServerWhileThreadsAreSendingEndsThem) {
  AddReceiver({}, 0);
  for (const Duration moment : {0ms, 60ms, 400ms, 900ms, 2500ms}) {
    Send();
    world.RunFor(moment);
    machine.Call([&] { EXPECT_EQ(server.DeInitServer(), 1U); });
    world.RunFor(100ms);
    EXPECT_EQ(machine.RunningThreads(), 0U) << Milliseconds(moment);
    EXPECT_EQ(machine.OpenSockets(), 0U);
  }
}

TEST_F(SenderRepair, TheRepairFileStaysOpenForOneFileAndIsClosedWithTheSockets) {
  AddReceiver([](ScriptedReceiver& self, const FromSender& message) {
    if (std::holds_alternative<Master>(message)) self.Reply(Ack{3, 0});
    if (std::holds_alternative<Resend>(message) && self.Count<Resend>() == 1) self.Reply(Ack{3, 1});
    if (std::holds_alternative<Resend>(message) && self.Count<Resend>() == 2) self.Reply(Ack{2, 0});
  });
  Send();
  ASSERT_TRUE(world.RunUntil([&] { return receivers[0]->Count<Master>() == 1; }, 10s));
  const auto opens = std::make_shared<int>(0);
  machine.FailEvery([opens](std::string_view call) {
    *opens += call == "files.open";
    return false;
  });
  world.RunFor(100ms);
  EXPECT_EQ(receivers[0]->Count<Resend>(), 3);
  EXPECT_EQ(*opens, 2);
  const auto closed = [&] { return std::string_view(world.EventLog()).rfind("close"); };
  const size_t before = closed();
  machine.Call([&] { server.DeInitServer(); });
  EXPECT_GT(closed(), before);
}

TEST_F(SenderRepair, ARateHoldsForBlocksThatAreSentAgain) {
  AddReceiver(Missing({{3, 0}, {3, 1}}, 4));
  server.SetSendRate(100);
  Send();
  ASSERT_TRUE(RunUntilStatus());
  std::vector<Moment> resends;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes[2] == CMD_RESEND) resends.push_back(sent.at);
  ASSERT_EQ(resends.size(), 2U);
  EXPECT_EQ(resends[1] - resends[0], 402'880us);
}

}  // namespace
}  // namespace quorl
