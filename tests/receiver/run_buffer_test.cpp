// Which blocks the writer puts on the disk together.
#include "receiver/run_buffer.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace quorl {
namespace {

/// Offset in blocks, number of blocks, bytes.
using Write = std::tuple<uint64_t, uint32_t, size_t>;

/// One file, written through a RunBuffer as the writer does it.
class WrittenFile {
 public:
  WrittenFile(uint32_t lastBlock, size_t tailSize) : lastBlock(lastBlock), tailSize(tailSize) {}

  void Receive(uint32_t block, bool firstSending = true) {
    if (!run.Takes(block, firstSending)) WriteOut();
    const std::vector<uint8_t> bytes(block < lastBlock ? BLOCK_SIZE : tailSize, static_cast<uint8_t>(block + 1));
    run.Add(block, bytes);
    if (run.IsDue(lastBlock, firstSending)) WriteOut();
  }

  void WriteOut() {
    const RunWrite write = run.Take();
    EXPECT_EQ(write.offset, write.firstBlock * uint64_t{BLOCK_SIZE});
    for (size_t i = 0; i < write.bytes.size(); ++i)
      ASSERT_EQ(write.bytes[i], static_cast<uint8_t>(write.firstBlock + i / BLOCK_SIZE + 1));
    writes.emplace_back(write.firstBlock, write.blockCount, write.bytes.size());
  }

  std::vector<Write> writes;

 private:
  const uint32_t lastBlock;
  const size_t tailSize;
  RunBuffer run;
};

TEST(RunBufferTest, BlocksInOrderAreWrittenThirtyAtATimeAndAtTheEndOfTheFile) {
  WrittenFile file(99, 7);
  for (uint32_t block = 0; block < 100; ++block) file.Receive(block);
  const std::vector<Write> expected = {
      {0, 30, 127620}, {30, 30, 127620}, {60, 30, 127620}, {90, 10, 9 * BLOCK_SIZE + 7}};
  EXPECT_EQ(file.writes, expected);
}

TEST(RunBufferTest, ASkippedBlockEndsTheRunAndResentBlocksAreWrittenAlone) {
  WrittenFile file(8, 100);
  for (const uint32_t block : {0, 1, 2, 3, 4, 7, 8}) file.Receive(block);
  for (const uint32_t block : {5, 6}) file.Receive(block, false);
  const std::vector<Write> expected = {
      {0, 5, 5 * BLOCK_SIZE}, {7, 2, BLOCK_SIZE + 100}, {5, 1, BLOCK_SIZE}, {6, 1, BLOCK_SIZE}};
  EXPECT_EQ(file.writes, expected);
}

}  // namespace
}  // namespace quorl
