// Which sockets a datagram reaches, what is lost on the way, and that the same seed gives the same run.
#include "sim/network.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr Endpoint GROUP{Ipv4(235, 9, 2, 9), 27001};

std::vector<uint8_t> Text(std::string_view text) {
  return {text.begin(), text.end()};
}

/// What is in the socket's buffer, without waiting.
std::vector<std::string> Drain(DatagramSocket& socket, size_t bufferSize = 2000) {
  std::vector<std::string> texts;
  std::vector<uint8_t> buffer(bufferSize);
  for (;;) {
    const Received received = socket.Receive(buffer, 0ms, nullptr);
    if (received.outcome != Received::Outcome::Datagram) return texts;
    texts.emplace_back(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(received.length));
  }
}

struct NetworkTest : testing::Test {
  World world{5};
  SimMachine& one = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  SimMachine& two = world.AddMachine("pc2", Ipv4(10, 0, 0, 2));
  SimMachine& three = world.AddMachine("pc3", Ipv4(10, 0, 0, 3));

  using Socket = std::shared_ptr<DatagramSocket>;

  static Socket Open(SimMachine& machine, Endpoint local) {
    Socket socket = machine.Seam().network.OpenDatagramSocket();
    EXPECT_TRUE(socket->SetReuseAddress());
    EXPECT_TRUE(socket->Bind(local));
    return socket;
  }

  static Socket Listen(SimMachine& machine) {
    Socket socket = Open(machine, {machine.Address(), GROUP.port});
    EXPECT_TRUE(socket->JoinGroup(GROUP.address, machine.Address()));
    return socket;
  }
};

TEST_F(NetworkTest, AGroupsDatagramReachesEveryMemberTheOwnMachineIncluded) {
  const Socket own = Listen(one), second = Listen(two), third = Listen(three);
  const Socket notJoined = Open(three, {0, GROUP.port});
  const Socket otherPort = Open(two, {0, 5000});
  ASSERT_TRUE(otherPort->JoinGroup(GROUP.address, 0));
  const Socket sending = Open(one, {0, 0});
  ASSERT_TRUE(sending->Send(Text("hello"), GROUP));
  world.RunFor(99us);
  EXPECT_TRUE(Drain(*second).empty());
  world.RunFor(1us);
  uint8_t buffer[10];
  const Received received = own->Receive(buffer, 0ms, nullptr);
  EXPECT_EQ(received.from, (Endpoint{one.Address(), 49152}));
  EXPECT_EQ(Drain(*second), std::vector<std::string>{"hello"});
  EXPECT_EQ(Drain(*third), std::vector<std::string>{"hello"});
  EXPECT_TRUE(Drain(*notJoined).empty());
  EXPECT_TRUE(Drain(*otherPort).empty());

  EXPECT_TRUE(second->LeaveGroup(GROUP.address, two.Address()));
  third->Close();
  sending->Send(Text("again"), GROUP);
  world.RunFor(1ms);
  EXPECT_TRUE(Drain(*second).empty());
  EXPECT_EQ(Drain(*own), std::vector<std::string>{"again"});
}

TEST_F(NetworkTest, AUnicastDatagramReachesTheLatestSocketThatIsBoundForIt) {
  const Socket any = Open(two, {0, 6000});
  const Socket exact = Open(two, {two.Address(), 6000});
  const Socket other = Open(three, {0, 6000});
  const Socket sending = Open(one, {one.Address(), 1234});
  sending->Send(Text("a"), {two.Address(), 6000});
  sending->Send(Text("b"), {Ipv4(10, 0, 0, 9), 6000});
  world.RunFor(1ms);
  EXPECT_TRUE(Drain(*any).empty());
  EXPECT_TRUE(Drain(*other).empty());
  uint8_t buffer[10];
  EXPECT_EQ(exact->Receive(buffer, 0ms, nullptr).from, (Endpoint{one.Address(), 1234}));
  exact->Close();
  sending->Send(Text("c"), {two.Address(), 6000});
  world.RunFor(1ms);
  EXPECT_EQ(Drain(*any), std::vector<std::string>{"c"});
}

TEST_F(NetworkTest, SocketsRefuseWhatASystemWouldRefuse) {
  const Socket first = one.Seam().network.OpenDatagramSocket();
  const Socket second = one.Seam().network.OpenDatagramSocket();
  EXPECT_FALSE(first->Bind({two.Address(), 7000})) << "an address of another machine";
  EXPECT_TRUE(first->Bind({0, 7000}));
  EXPECT_FALSE(first->Bind({0, 7001})) << "bound already";
  EXPECT_FALSE(second->Bind({one.Address(), 7000})) << "in use, and reuse is not agreed on";
  EXPECT_FALSE(first->JoinGroup(two.Address(), 0)) << "no group";
  EXPECT_TRUE(first->JoinGroup(GROUP.address, 0));
  EXPECT_FALSE(first->JoinGroup(GROUP.address, 0)) << "joined already";
  EXPECT_FALSE(first->LeaveGroup(GROUP.address, one.Address())) << "not joined there";
  EXPECT_EQ(one.OpenSockets(), 2u);
  first->Close();
  first->Close();
  EXPECT_FALSE(first->Send(Text("x"), GROUP));
  EXPECT_TRUE(second->Bind({one.Address(), 7000}));
  EXPECT_EQ(one.OpenSockets(), 1u);
}

TEST_F(NetworkTest, AReceiveEndsByDatagramLimitInterruptAndClose) {
  const Socket socket = Listen(two);
  const Socket sending = Open(one, {0, 0});
  const auto interrupt = two.Seam().threads.MakeEvent();
  std::vector<std::pair<Received::Outcome, Moment>> outcomes;
  two.Spawn("reads", [&] {
    uint8_t buffer[3];
    for (int count = 0; count < 4; ++count) {
      const Received received = socket->Receive(buffer, 20ms, interrupt.get());
      outcomes.emplace_back(received.outcome, two.Seam().clock.Now());
      EXPECT_EQ(received.length, count == 0 ? 3u : 0u) << "cut to the buffer";
      interrupt->Reset();
    }
  });
  world.At(5ms, [&] { sending->Send(Text("long text"), GROUP); });
  world.At(30ms, [&] { interrupt->Set(); });
  world.At(60ms, [&] { socket->Close(); });
  world.RunFor(1s);
  using enum Received::Outcome;
  const std::vector<std::pair<Received::Outcome, Moment>> expected = {
      {Datagram, 5100us}, {TimedOut, 25100us}, {Interrupted, 30ms}, {TimedOut, 50ms}};
  EXPECT_EQ(outcomes, expected);
  two.Spawn("reads again", [&, again = Listen(two)] {
    world.At(two.Seam().clock.Now() + 1ms, [again] { again->Close(); });
    uint8_t buffer[3];
    EXPECT_EQ(again->Receive(buffer, FOREVER, nullptr).outcome, Received::Outcome::Closed);
    EXPECT_EQ(again->Receive(buffer, FOREVER, nullptr).outcome, Received::Outcome::Closed);
  });
  world.RunFor(1s);
  EXPECT_EQ(two.RunningThreads(), 0u);
}

TEST_F(NetworkTest, AFullReceiveBufferLosesDatagramsButAlwaysHoldsOne) {
  const Socket socket = Listen(two);
  ASSERT_TRUE(socket->SetReceiveBuffer(10));
  const Socket sending = Open(one, {0, 0});
  for (const char* text : {"1234", "567890", "x", "y"}) sending->Send(Text(text), GROUP);
  world.RunFor(1ms);
  EXPECT_EQ(Drain(*socket), (std::vector<std::string>{"1234", "567890"}));
  EXPECT_NE(world.EventLog().find("pc2 overflowed 10.0.0.1:49152 > 235.9.2.9:27001 1\n"), std::string::npos);
  sending->Send(Text("longer than the buffer"), GROUP);
  world.RunFor(1ms);
  EXPECT_EQ(Drain(*socket).size(), 1u);
}

TEST_F(NetworkTest, DeliveriesAreLostByProbabilityOrByChoice) {
  const Socket second = Listen(two), third = Listen(three);
  const Socket sending = Open(one, {0, 0});
  world.Net().SetLoss(0.25);
  for (int count = 0; count < 1000; ++count) sending->Send(Text("x"), GROUP);
  world.RunFor(1ms);
  const size_t atSecond = Drain(*second).size(), atThird = Drain(*third).size();
  EXPECT_NEAR(static_cast<double>(atSecond), 750, 60);
  EXPECT_NEAR(static_cast<double>(atThird), 750, 60);
  EXPECT_NE(atSecond, atThird) << "each delivery has its own chance";

  world.Net().SetLoss(0);
  uint64_t firstIndex = 0;
  world.Net().SetFilter([&](const Transit& transit) {
    if (firstIndex == 0) firstIndex = transit.index;
    EXPECT_EQ(transit.from, &one);
    EXPECT_EQ(transit.destination, GROUP);
    return !(transit.to == &three && transit.datagram[0] == 'b') && transit.index != firstIndex;
  });
  for (const char* text : {"a", "b", "c"}) sending->Send(Text(text), GROUP);
  world.RunFor(1ms);
  EXPECT_EQ(firstIndex, 2000u);
  EXPECT_EQ(Drain(*second), (std::vector<std::string>{"b", "c"}));
  EXPECT_EQ(Drain(*third), (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(world.Net().Sent().size(), 1003u);
  EXPECT_EQ(world.Net().Sent().back().bytes, Text("c"));
}

/// A few machines that answer each other at random, under loss; the world's log.
std::string RunOfChatter(uint64_t seed) {
  World world(seed);
  world.Net().SetLoss(0.2);
  for (uint8_t number = 1; number <= 4; ++number) {
    SimMachine& machine = world.AddMachine("pc" + std::to_string(number), Ipv4(10, 0, 0, number));
    machine.Spawn("chats", [&world, &machine] {
      const auto socket = machine.Seam().network.OpenDatagramSocket();
      socket->Bind({machine.Address(), GROUP.port});
      socket->JoinGroup(GROUP.address, machine.Address());
      socket->Send(Text("hello"), GROUP);
      std::vector<uint8_t> buffer(100);
      for (int count = 0; count < 200; ++count) {
        const auto limit = std::chrono::microseconds(world.Chance().Below(3000));
        const Received received = socket->Receive(buffer, limit, nullptr);
        const bool heard = received.outcome == Received::Outcome::Datagram;
        socket->Send(std::span(buffer).first(1 + world.Chance().Below(50)), heard ? received.from : GROUP);
      }
    });
  }
  world.RunFor(10s);
  return world.EventLog();
}

TEST(Determinism, TheSameSeedGivesTheSameLog) {
  const std::string log = RunOfChatter(42);
  EXPECT_GT(log.size(), 10000u);
  EXPECT_NE(log.find(" lost "), std::string::npos);
  // Another layout of the heap must not show.
  std::vector<std::unique_ptr<World>> clutter;
  for (int count = 0; count < 20; ++count) clutter.push_back(std::make_unique<World>(1));
  for (size_t index = 0; index < clutter.size(); index += 2) clutter[index].reset();
  EXPECT_EQ(RunOfChatter(42), log);
  EXPECT_NE(RunOfChatter(43), log);
}

}  // namespace
}  // namespace quorl::sim
