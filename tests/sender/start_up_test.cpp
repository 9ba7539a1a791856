// InitServer: the collection, what it leaves behind when something fails, and calls in a wrong order.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using StartUp = SenderRoom;

TEST_F(StartUp, AsksThreeTimesAndKnowsEachReceiverOnce) {
  AddReceiver();
  AddReceiver();
  EXPECT_EQ(Init(), 1U);
  EXPECT_EQ(world.Now(), 900ms);
  EXPECT_EQ(SentSince(0ms), (std::vector<std::string>{"100 CMD_COLLECT", "200 CMD_COLLECT", "300 CMD_COLLECT"}));
  for (const auto& sent : world.Net().Sent())
    EXPECT_EQ(sent.destination, sent.from == &machine ? DATA_GROUP : SENDER_REPLIES);
  uint32_t addresses[3] = {};
  EXPECT_EQ(server.GetReceivers(addresses, 3), 2U);
  EXPECT_EQ(addresses[0], Ipv4(10, 0, 1, 0));
  EXPECT_EQ(addresses[1], Ipv4(10, 0, 1, 1));
  EXPECT_EQ(server.GetReceivers(addresses, 1), 2U);
  const SendState state = server.GetState();
  EXPECT_EQ(state.phase, SendPhase::Ready);
  EXPECT_EQ(state.receivers[1].state, ReceiverState::Listening);
}

TEST_F(StartUp, AReceiverThatAnswersLaterIsTakenIn) {
  Init();
  EXPECT_EQ(server.GetReceivers(nullptr, 0), 0U);
  ScriptedReceiver& late = AddReceiver();
  world.RunFor(1ms);
  late.machine.Call([&] { late.Reply(Client{1}); });
  world.RunFor(1ms);
  EXPECT_EQ(server.GetReceivers(nullptr, 0), 1U);
}

TEST_F(StartUp, OneCollectThatGoesOutIsEnough) {
  int sends = 0;
  machine.FailEvery([&](std::string_view call) { return call == "network.send" && ++sends < 3; });
  EXPECT_EQ(Init(), 1U);
  EXPECT_EQ(sends, 3);
}

/// Fails the n-th call of a part of the machine, for every n that InitServer makes.
class EveryCall : public testing::TestWithParam<sim::Seam> {};

TEST_P(EveryCall, FailingLeavesNothingOpenAndOneLine) {
  const auto run = [](uint64_t nth, uint64_t& calls) {
    sim::World world{1};
    sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
    CTransServer server(machine.Seam());
    machine.FailCall(GetParam(), nth);
    uint32_t result = 0;
    const uint64_t before = machine.Calls(GetParam());
    machine.Call([&] { result = server.InitServer(nullptr, 0, 0, machine.Address()); });
    calls = machine.Calls(GetParam()) - before;
    if (result == 1) {
      EXPECT_TRUE(machine.DebugLines().empty()) << nth;
      EXPECT_EQ(machine.OpenSockets(), 3U) << nth;
      return true;
    }
    EXPECT_EQ(machine.DebugLines().size(), 1U) << nth;
    EXPECT_EQ(machine.OpenSockets(), 0U) << nth;
    world.RunFor(100ms);
    EXPECT_EQ(machine.RunningThreads(), 0U) << nth;
    return false;
  };
  uint64_t calls = 0;
  ASSERT_TRUE(run(0, calls));
  int failures = 0;
  for (uint64_t nth = 1, ignored = 0; nth <= calls; ++nth) failures += run(nth, ignored) ? 0 : 1;
  EXPECT_GE(failures, GetParam() == sim::Seam::Network ? 20 : 2);
}

INSTANTIATE_TEST_SUITE_P(Seams, EveryCall, testing::Values(sim::Seam::Network, sim::Seam::Threads));

TEST_F(StartUp, NothingThatGoesOutIsTheEnd) {
  FailSends();
  EXPECT_EQ(Init(), 0U);
  EXPECT_EQ(machine.DebugLines(), std::vector<std::string>{"\nQuorl-----Can not Collect Client!\n"});
  EXPECT_EQ(machine.OpenSockets(), 0U);
  EXPECT_TRUE(Statuses().empty());
}

TEST_F(StartUp, AnotherSenderOnTheGroupIsTold) {
  sim::SimMachine& other = world.AddMachine("other", Ipv4(10, 0, 0, 2));
  other.Spawn("sender", [&] {
    const auto socket = other.Seam().network.OpenDatagramSocket();
    socket->Bind({other.Address(), 0});
    other.Seam().clock.Sleep(50ms);
    socket->Send(Build(Report{}), DATA_GROUP);
  });
  EXPECT_EQ(Init(), 0U);
  EXPECT_EQ(Statuses(), std::vector<uint32_t>{1006});
  EXPECT_EQ(machine.OpenSockets(), 2U);
  machine.Call([&] { server.DeInitServer(); });
  EXPECT_EQ(machine.OpenSockets(), 0U);
  EXPECT_EQ(Init(), 1U);
}

TEST_F(StartUp, ASecondInitServerClosesWhatTheFirstLeftOpen) {
  AddReceiver();
  Init();
  EXPECT_EQ(Init(), 1U);
  EXPECT_EQ(machine.OpenSockets(), 3U);
  EXPECT_EQ(machine.RunningThreads(), 1U);
  EXPECT_EQ(server.GetReceivers(nullptr, 0), 1U);
}

TEST_F(StartUp, ExportsInAWrongOrderAreHarmless) {
  uint32_t info[1] = {77};
  machine.Call([&] {
    EXPECT_EQ(server.StartSend(), 1U);
    EXPECT_EQ(server.StopSend(), 1U);
    EXPECT_EQ(server.DeInitServer(), 1U);
    EXPECT_EQ(server.GetErrInfo(info), 0U);
  });
  EXPECT_EQ(info[0], 0U);
  EXPECT_EQ(server.GetState().phase, SendPhase::Idle);
  Init();
  machine.Call([&] {
    server.DeInitServer();
    server.DeInitServer();
    server.StartSend();
  });
  EXPECT_EQ(CountDebug("\nQuorl-----Send Server OS Packet Failed!\n"), 1);
  EXPECT_TRUE(machine.Messages().empty());
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

}  // namespace
}  // namespace quorl
