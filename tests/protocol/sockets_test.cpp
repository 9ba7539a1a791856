// Addresses of a room, what else may be on its group, and ranges of blocks.
#include <gtest/gtest.h>

#include "protocol/block_ranges.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "protocol/sender_sockets.h"
#include "sim/world/world.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(SenderSockets, OnlyADatagramOfTheSystemMakesAGroupBusy) {
  for (const bool isForeign : {false, true}) {
    sim::World world{1};
    sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
    sim::SimMachine& other = world.AddMachine("other", Ipv4(10, 0, 0, 2));
    Counters counters;
    SenderSockets sockets(machine.Seam(), RoomAddress{.localInterface = machine.Address()}, counters);
    const auto datagram = isForeign ? std::vector<uint8_t>(7) : std::vector<uint8_t>{0x91, 2, CMD_DATA};
    world.At(world.Now() + 10ms, [&] {
      world.Net().Carry({world.Now(), &other, {other.Address(), 5}, RoomAddress{}.group, datagram});
    });
    bool opened = false;
    machine.Call([&] { opened = sockets.Open(nullptr); });
    EXPECT_EQ(opened, isForeign);
    sockets.Close();
  }
}

TEST(RoomAddress, DefaultsAndTheReplyPortThatWraps) {
  const RoomAddress standard = RoomAddress::From(0, 0, 0);
  EXPECT_EQ(standard.group, (Endpoint{Ipv4(235, 9, 2, 9), 27001}));
  EXPECT_EQ(standard.ReplyPort(), 27003);
  EXPECT_EQ(RoomAddress::From(0, 65535, 0).ReplyPort(), 1);
  EXPECT_EQ(RoomAddress::From(0, 0x10001, 0).group.port, 1);
}

TEST(BlockRanges, HoldWhatTheySayAndNothingWhenTheyOverlap) {
  BlockRanges ranges;
  ASSERT_TRUE(ranges.Take({{2, 3, 4, 0}, {2, 9, 5, 0}}));
  for (const auto& [block, has] :
       {std::pair{2u, false}, {3u, true}, {6u, true}, {7u, false}, {13u, true}, {14u, false}})
    EXPECT_EQ(ranges.Has(2, block), has) << block;
  EXPECT_EQ(ranges.CountOf(2, 10), 5u) << "what lies beyond the file does not count";
  EXPECT_FALSE(ranges.Take({{2, 3, 4, 0}, {2, 6, 5, 0}}));
  EXPECT_EQ(ranges.CountOf(2, 100), 0u);
}

}  // namespace
}  // namespace quorl
