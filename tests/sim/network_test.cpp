// What a narrow link and a call that is lost take away is exact: a study is only as good as that.
#include <gtest/gtest.h>

#include <map>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "protocol/wire_size.h"
#include "sim/world/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct NetworkTest : testing::Test {
  NetworkTest() {
    into->Bind({0, 9});
    from->Bind({0, 8});
  }

  /// Sends `count` datagrams, each with a call of its own or all with one, and returns when each has arrived.
  std::vector<Moment> Send(size_t count, size_t bytes, bool together) {
    std::vector<Moment> arrivals;
    world.Net().SetFilter([&](const Transit& transit) {
      arrivals.push_back(transit.at);
      return true;
    });
    const std::vector<uint8_t> datagram(bytes);
    sender.Call([&] {
      if (together) {
        from->SendBatch(std::vector<std::span<const uint8_t>>(count, datagram), {receiver.Address(), 9}, {});
      } else {
        for (size_t i = 0; i < count; ++i) from->Send(datagram, {receiver.Address(), 9}, {});
      }
    });
    sent = world.Now();
    world.RunFor(10s);
    return arrivals;
  }

  World world{1};
  SimMachine& sender = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
  SimMachine& receiver = world.AddMachine("receiver", Ipv4(10, 0, 0, 2));
  std::shared_ptr<DatagramSocket> from = sender.Seam().network.OpenDatagramSocket();
  std::shared_ptr<DatagramSocket> into = receiver.Seam().network.OpenDatagramSocket();
  Moment sent{};
};

TEST_F(NetworkTest, ABottleneckPassesWhatItCarriesAndLosesWhatItsQueueHasNoRoomFor) {
  constexpr size_t BYTES = 934;
  ASSERT_EQ(BytesOnWire(BYTES), 1000u);
  world.Net().SetDelay(0s);
  // A datagram takes the one wire a millisecond and the other ten: ten wait there at most, and one more is on it.
  world.Net().SetUplink(sender, {.own = {1'000'000, 20'000}, .bottleneck = {100'000, 9'999}});
  const auto arrivals = Send(100, BYTES, false);
  EXPECT_EQ(sent, 79ms) << "twenty and one are waiting for the sender's own wire when the last one is sent";
  ASSERT_EQ(arrivals.size(), 20u);
  for (size_t i = 0; i < arrivals.size(); ++i) EXPECT_EQ(arrivals[i], 1ms + (i + 1) * 10ms);
  EXPECT_EQ(world.Net().Count(Fate::QueueFull), 80u);
}

TEST_F(NetworkTest, ACallIsLostAsAWhole) {
  LinkOptions link;
  link.lossOfCalls = 0.5;
  world.Net().SetLink(link);
  std::map<size_t, int> arrived;
  for (int i = 0; i < 100; ++i) ++arrived[Send(7, 100, true).size()];
  EXPECT_EQ(arrived.size(), 2u);
  EXPECT_GT(arrived[0], 30);
  EXPECT_GT(arrived[7], 30);
  EXPECT_EQ(Send(7, 100, false).size(), 7u);
}

}  // namespace
}  // namespace quorl::sim
