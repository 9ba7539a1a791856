// What links do to datagrams, by two sockets of two machines.
#include "sim/link.h"

#include <gtest/gtest.h>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct LinkTest : testing::Test {
  LinkTest() {
    socket->Bind({0, 1000});
    receiver->Bind({0, 1000});
  }

  void Send(uint8_t number, size_t bytes = 1) {
    const std::vector<uint8_t> datagram(bytes, number);
    socket->Send(datagram, {to.Address(), 1000});
  }

  /// Sends datagrams 0, 1, 2, ... one every millisecond, and waits until all have arrived.
  void SendSeries(int count, size_t bytes = 1) {
    for (int i = 0; i < count; ++i) {
      Send(static_cast<uint8_t>(i), bytes);
      world.RunFor(1ms);
    }
    world.RunFor(30s);
  }

  std::string Arrived() {
    std::string numbers;
    std::vector<uint8_t> buffer(6000);
    while (receiver->Receive(buffer, Duration::zero(), nullptr).outcome == Received::Outcome::Datagram)
      numbers += std::to_string(buffer[0]) + " ";
    return numbers;
  }

  size_t CountArrived() {
    size_t count = 0;
    std::vector<uint8_t> buffer(6000);
    while (receiver->Receive(buffer, Duration::zero(), nullptr).outcome == Received::Outcome::Datagram) ++count;
    return count;
  }

  World world{1};
  SimMachine& from = world.AddMachine("from", Ipv4(10, 0, 0, 1));
  SimMachine& to = world.AddMachine("to", Ipv4(10, 0, 0, 2));
  std::shared_ptr<DatagramSocket> socket = from.Seam().network.OpenDatagramSocket();
  std::shared_ptr<DatagramSocket> receiver = to.Seam().network.OpenDatagramSocket();
};

TEST_F(LinkTest, LosesByMaskByCommandAndInBursts) {
  world.Net().SetLink({.lossMask = 0b10110});
  SendSeries(6);
  EXPECT_EQ(Arrived(), "0 3 5 ");

  world.Net().SetLink({.lostCommands = CommandBit(2) | CommandBit(4)});
  SendSeries(6, 3);
  EXPECT_EQ(Arrived(), "0 1 3 5 ");

  world.Net().SetLink({.burst = 1, .burstLength = 4});
  SendSeries(20);
  EXPECT_EQ(Arrived(), "");
}

TEST_F(LinkTest, OneDirectionAndOneMachineHaveOptionsOfTheirOwn) {
  world.Net().SetLink(&from, nullptr, {.loss = 1});
  SendSeries(2);
  EXPECT_EQ(Arrived(), "");
  world.Net().SetLink(nullptr, &to, {.loss = 0});
  SendSeries(2);
  EXPECT_EQ(Arrived(), "0 1 ") << "the latest rule that fits counts";
  world.Net().SetLink(&to, &from, {.loss = 1});
  SendSeries(2);
  EXPECT_EQ(Arrived(), "0 1 ") << "the other direction";
  world.Net().ResetLinks({.loss = 1});
  SendSeries(2);
  EXPECT_EQ(Arrived(), "");
}

TEST_F(LinkTest, ALostFragmentLosesTheDatagram) {
  world.Net().SetLink({.loss = 0.1, .hasFragments = true});
  const auto countArrived = [&](size_t bytes) {
    size_t count = 0;
    // Few enough at a time for the receive buffer.
    for (int i = 0; i < 50; ++i) {
      SendSeries(20, bytes);
      count += CountArrived();
    }
    return count;
  };
  const size_t large = countArrived(MAX_DATAGRAM);
  const size_t small = countArrived(100);
  // 0.9^4 and 0.9 of them; five standard deviations.
  EXPECT_NEAR(large, 656, 75);
  EXPECT_NEAR(small, 900, 48);
}

TEST_F(LinkTest, JitterKeepsTheOrderAndReorderingDoesNot) {
  world.Net().SetLink({.jitter = 20ms});
  SendSeries(50);
  std::string inOrder;
  for (int i = 0; i < 50; ++i) inOrder += std::to_string(i) + " ";
  EXPECT_EQ(Arrived(), inOrder);

  world.Net().SetLink({.reorder = 0.5});
  SendSeries(50);
  const std::string reordered = Arrived();
  EXPECT_NE(reordered, inOrder);
  EXPECT_EQ(reordered.size(), inOrder.size());
}

TEST_F(LinkTest, Duplicates) {
  world.Net().SetLink({.duplicate = 1, .heldBack = 0ms});
  SendSeries(3);
  EXPECT_EQ(Arrived(), "0 0 1 1 2 2 ");
}

TEST_F(LinkTest, BandwidthTakesTimeAndAFullQueueLoses) {
  // 100 kB/s: a datagram of 1000 bytes, 1066 on the wire, takes 10.66 ms; 5 of them wait at most.
  world.Net().SetLink({.delay = 0ms, .bytesPerSecond = 100'000, .queueBytes = 5 * 1066});
  for (uint8_t i = 0; i < 20; ++i) Send(i, 1000);
  world.RunFor(10ms);
  EXPECT_EQ(Arrived(), "");
  world.RunFor(1ms);
  EXPECT_EQ(Arrived(), "0 ");
  world.RunFor(1s);
  EXPECT_EQ(Arrived(), "1 2 3 4 5 ");
}

TEST_F(LinkTest, AHungLinkDeliversLate) {
  world.Net().SetLink({.hungUntil = world.Now() + 5s});
  Send(1);
  world.RunFor(5s);
  EXPECT_EQ(Arrived(), "");
  world.RunFor(1ms);
  EXPECT_EQ(Arrived(), "1 ");
}

TEST_F(LinkTest, APartitionCutsBothDirectionsUntilItEnds) {
  world.Net().Partition({&to});
  SendSeries(1);
  EXPECT_EQ(Arrived(), "");
  world.Net().Partition({&from, &to});
  SendSeries(1);
  EXPECT_EQ(Arrived(), "0 ") << "on the same side";
  world.Net().Partition({});
  SendSeries(1);
  EXPECT_EQ(Arrived(), "0 ");
}

}  // namespace
}  // namespace quorl::sim
