// Receivers whose disks are slower than the network, with the real sender: everybody ends whole, and nobody is given
// up.
#include <gtest/gtest.h>

#include "protocol/blocks.h"
#include "sim/room.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct Slow {
  Profile profile;
  size_t receivers;
  Duration writeTime;
};

struct SlowDiskTest : testing::TestWithParam<Slow> {
  SlowDiskTest() {
    for (size_t index = 0; index < room.Receivers(); ++index)
      room.Receiver(index).Disk().SetWriteTime(GetParam().writeTime);
  }

  void ExpectAllEndWhole() {
    ASSERT_TRUE(room.StartReceivers());
    ASSERT_TRUE(room.Send());
    EXPECT_TRUE(room.RunUntilQuiet(300s));
    for (size_t index = 0; index < room.Receivers(); ++index) {
      EXPECT_TRUE(room.TreesIdentical(index)) << index;
      EXPECT_TRUE(room.WasToldComplete(index)) << index;
    }
    EXPECT_TRUE(room.FailedReceivers().empty());
    EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{QUORL_STATUS_DONE});
  }

  Room room{{GetParam().receivers, 1, GetParam().profile, GetParam().profile}};
};

std::vector<Slow> AllSlow() {
  std::vector<Slow> all;
  for (const Profile profile : {Profile::Classic, Profile::Robust})
    for (const size_t receivers : {1, 2})
      for (const Duration writeTime : {100ms, 500ms, 1000ms}) all.push_back({profile, receivers, writeTime});
  return all;
}

INSTANTIATE_TEST_SUITE_P(Disks, SlowDiskTest, testing::ValuesIn(AllSlow()), [](const auto& each) {
  return std::string(each.param.profile == Profile::Classic ? "Classic" : "Robust") +
         std::to_string(each.param.receivers) + "x" + std::to_string(each.param.writeTime / 1ms) + "ms";
});

TEST_P(SlowDiskTest, WithManyBlocks) {
  room.File("a.bin", 300 * BLOCK_SIZE);
  room.File("b.bin", 10);
  room.File("c.bin", 100 * BLOCK_SIZE);
  ExpectAllEndWhole();
}

TEST_P(SlowDiskTest, WithFewBlocks) {
  for (const char* name : {"a.bin", "b.bin", "c.bin"}) room.File(name, 10);
  ExpectAllEndWhole();
}

TEST_P(SlowDiskTest, WithLosses) {
  room.Net().SetFilter([blocks = 0](const Transit& transit) mutable {
    return transit.datagram.size() < BLOCK_SIZE || ++blocks % 50 != 0;
  });
  room.File("a.bin", 300 * BLOCK_SIZE);
  ExpectAllEndWhole();
}

}  // namespace
}  // namespace quorl::sim
