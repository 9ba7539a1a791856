// Lengths and offsets beyond 32 bits.
#include <gtest/gtest.h>

#include "sim/world/fibers/sanitizers.h"
#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

TEST(LargeFile, BlocksAtTwoAndFourGibibytesAreRepairedInTheirPlaces) {
  if (IS_SANITIZED) GTEST_SKIP() << "a million blocks take minutes under a sanitizer";
  Room room({.senderProfile = Profile::Robust, .receiverProfile = Profile::Robust});
  room.World().SetLogging(false);
  const uint64_t twoGiB = 2ull << 30;
  const uint64_t length = 2 * twoGiB + 5 * BLOCK_SIZE + 1;
  room.File("large", length);
  room.Receiver(0).Disk().SetFreeBytes(2 * length);
  const auto isAtTheEdge = [&](uint64_t block) {
    for (const uint64_t edge : {twoGiB, 2 * twoGiB})
      if (block + 1 >= edge / BLOCK_SIZE && block <= edge / BLOCK_SIZE + 1) return true;
    return false;
  };
  uint64_t lost = 0;
  room.Net().SetFilter([&](const Transit& transit) {
    const bool isLost = Is(transit, CMD_DATA) && isAtTheEdge(HeadOf(transit).block);
    lost += isLost ? 1 : 0;
    return !isLost;
  });
  room.Server().SetSendRate(20'000'000);
  Play(room, 7200s);
  EXPECT_EQ(lost, 6u);
  EXPECT_EQ(room.Server().GetState().blocksResent, 6u);
  EXPECT_EQ(room.Client(0).GetState().blocksStored, length / BLOCK_SIZE + 1);
  EXPECT_EQ(Ends(room), "whole told");
}

}  // namespace
}  // namespace quorl::sim
