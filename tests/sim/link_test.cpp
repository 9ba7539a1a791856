// What the network does to datagrams, by two sockets of two machines. A fault that is switched on and does nothing
// would make a campaign look good.
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
    receiver->SetReceiveBuffer(1 << 20);
  }

  /// Sends datagrams 0, 1, 2, ... one every millisecond; those that arrived before all were sent and long after.
  std::string Series(int count, size_t bytes = 1) {
    for (int i = 0; i < count; ++i) {
      socket->Send(std::vector<uint8_t>(bytes, static_cast<uint8_t>(i)), {to.Address(), 1000});
      world.RunFor(1ms);
    }
    world.RunFor(5s);
    return Arrived();
  }

  std::string Arrived() {
    std::string numbers;
    std::vector<uint8_t> buffer(6000);
    while (receiver->Receive(buffer, Duration::zero(), nullptr).outcome == Received::Outcome::Datagram)
      numbers += std::to_string(buffer[0]) + " ";
    return numbers;
  }

  double ShareArrived(size_t bytes) {
    const std::string numbers = Series(200, bytes) + Series(200, bytes) + Series(200, bytes) + Series(200, bytes);
    return static_cast<double>(std::count(numbers.begin(), numbers.end(), ' ')) / 800;
  }

  World world{1};
  SimMachine& from = world.AddMachine("from", Ipv4(10, 0, 0, 1));
  SimMachine& to = world.AddMachine("to", Ipv4(10, 0, 0, 2));
  std::shared_ptr<DatagramSocket> socket = from.Seam().network.OpenDatagramSocket();
  std::shared_ptr<DatagramSocket> receiver = to.Seam().network.OpenDatagramSocket();
};

TEST_F(LinkTest, LossByChanceByFragmentMaskCommandBurstAndChoice) {
  world.Net().SetLink({.loss = 0.1});
  EXPECT_NEAR(ShareArrived(MAX_DATAGRAM), 0.9, 0.05);
  world.Net().SetLink({.loss = 0.1, .hasFragments = true});
  EXPECT_NEAR(ShareArrived(MAX_DATAGRAM), 0.656, 0.08) << "four fragments";
  EXPECT_NEAR(ShareArrived(100), 0.9, 0.05);
  world.Net().SetLink({.lossMask = 0x5555555555555555});
  EXPECT_EQ(Series(6).size(), 6u);
  world.Net().SetLink({.lostCommands = CommandBit(2) | CommandBit(4)});
  EXPECT_EQ(Series(6, 3), "0 1 3 5 ");
  world.Net().SetLink({.burst = 1, .burstLength = 4});
  EXPECT_EQ(Series(20), "");
}

TEST_F(LinkTest, EachDirectionAndMachineByItselfAndPartitions) {
  world.Net().SetLink(&from, nullptr, {.loss = 1});
  EXPECT_EQ(Series(2), "");
  world.Net().SetLink(nullptr, &to, {.loss = 0});
  world.Net().SetLink(&to, &from, {.loss = 1});
  EXPECT_EQ(Series(2), "0 1 ") << "the latest rule that fits counts, the other direction does not";
  world.Net().Partition({&to});
  EXPECT_EQ(Series(1), "");
  world.Net().Partition({&from, &to});
  EXPECT_EQ(Series(1), "0 ") << "on the same side";
}

TEST_F(LinkTest, JitterKeepsTheOrderReorderingDoesNotAndCopiesCome) {
  world.Net().SetLink({.jitter = 20ms});
  const std::string inOrder = Series(50);
  EXPECT_TRUE(inOrder.starts_with("0 1 2 3 ") && inOrder.ends_with("48 49 "));
  world.Net().SetLink({.reorder = 0.5});
  const std::string reordered = Series(50);
  EXPECT_NE(reordered, inOrder);
  EXPECT_EQ(reordered.size(), inOrder.size());
  world.Net().SetLink({.duplicate = 1, .heldBack = 0ms});
  EXPECT_EQ(Series(3), "0 0 1 1 2 2 ");
}

TEST_F(LinkTest, BandwidthQueuesAndReceiveBuffers) {
  // 100 kB/s: a datagram of 1000 bytes, 1066 on the wire, takes 10.66 ms; 5 of them wait at most.
  world.Net().SetLink({.delay = 0ms, .bytesPerSecond = 100'000, .queueBytes = 5 * 1066});
  for (uint8_t i = 0; i < 20; ++i) socket->Send(std::vector<uint8_t>(1000, i), {to.Address(), 1000});
  world.RunFor(10ms);
  EXPECT_EQ(Arrived(), "");
  world.RunFor(1s);
  EXPECT_EQ(Arrived(), "0 1 2 3 4 5 ");
  world.Net().SetLink({});
  receiver->SetReceiveBuffer(10);
  EXPECT_EQ(Series(5, 4), "0 1 ");
  EXPECT_EQ(Series(2, 40), "0 ") << "one has room in any buffer";
}

}  // namespace
}  // namespace quorl::sim
