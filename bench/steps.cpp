// What single steps cost, each as the stream or the repair takes it. A block of 4254 bytes at 100 MB/s comes every
// 42 us: the steps of one side together have to stay far below that.
#include <benchmark/benchmark.h>

#include <random>

#include "files/names.h"
#include "platform/real_machine.h"
#include "protocol/datagrams.h"
#include "receiver/blocks/block_record.h"
#include "receiver/store/run_buffer.h"

namespace quorl {
namespace {

// 256 MiB.
constexpr FileShape LARGE_FILE{.lastBlock = 63'100, .tailSize = 4'000};
constexpr uint32_t LARGE_BLOCKS = LARGE_FILE.lastBlock + 1;
constexpr std::string_view NAME = "photos\\2026\\november\\IMG_20261123_140500.jpg";

BlockHead HeadOf(uint32_t block) {
  return {.file = 1,
          .block = block,
          .lastBlock = LARGE_FILE.lastBlock,
          .firstSending = 1,
          .tailSize = LARGE_FILE.tailSize,
          .name = NameField::From(NAME)};
}

void CountBytes(benchmark::State& state, size_t each) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(each));
}

// ---- datagrams ----

/// The sender's part without the read from the file: the head of the next block.
void BuildBlock(benchmark::State& state) {
  BlockDatagram datagram(CMD_DATA);
  datagram.SetFile(1, NAME, LARGE_FILE);
  uint32_t block = 0;
  for (auto _ : state) {
    datagram.SetBlock(block++);
    benchmark::DoNotOptimize(datagram.Datagram(BLOCK_SIZE).data());
    benchmark::ClobberMemory();
  }
  CountBytes(state, BLOCK_SIZE);
}
BENCHMARK(BuildBlock);

/// What comes once with each file.
void BuildFile(benchmark::State& state) {
  BlockDatagram datagram(CMD_DATA);
  for (auto _ : state) {
    datagram.SetFile(1, NAME, LARGE_FILE);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BuildFile);

void ParseBlock(benchmark::State& state) {
  BlockDatagram datagram(CMD_DATA);
  datagram.SetFile(1, NAME, LARGE_FILE);
  datagram.SetBlock(0);
  for (auto _ : state) benchmark::DoNotOptimize(ParseFromSender(datagram.Datagram(BLOCK_SIZE)));
  CountBytes(state, BLOCK_SIZE);
}
BENCHMARK(ParseBlock);

// ---- record of blocks ----

/// A large file from its first block to its last, as a receiver without loss keeps it. An iteration is one block.
void RecordStream(benchmark::State& state) {
  BlockRecord record;
  BlockHead head = HeadOf(0);
  uint32_t generation = 0;
  for (auto _ : state) {
    if (head.block == 0) generation = record.Begin(1, LARGE_BLOCKS);
    benchmark::DoNotOptimize(record.AdmitAnnounced(head));
    record.Receive({1, head.block});
    if (head.block % RUN_BLOCKS == RUN_BLOCKS - 1)
      record.Store(generation, 1, head.block - (RUN_BLOCKS - 1), RUN_BLOCKS);
    head.block = head.block == LARGE_FILE.lastBlock ? 0 : head.block + 1;
  }
  CountBytes(state, BLOCK_SIZE);
}
BENCHMARK(RecordStream);

/// The same of small files of eight blocks each: a place is made for each.
void RecordSmallFiles(benchmark::State& state) {
  constexpr uint32_t FILES = 2000, LAST = 7;
  BlockRecord record;
  BlockHead head = HeadOf(0);
  head.lastBlock = LAST;
  for (auto _ : state) {
    if (head.file == 1 && head.block == 0) record.Begin(FILES, FILES * (LAST + 1));
    benchmark::DoNotOptimize(record.AdmitAnnounced(head));
    record.Receive({head.file, head.block});
    head.block = (head.block + 1) % (LAST + 1);
    if (head.block == 0) head.file = head.file % FILES + 1;
  }
}
BENCHMARK(RecordSmallFiles);

/// Which block is asked for next: a window of requests walks over a file of which some of a thousand blocks are
/// missing.
void FirstMissing(benchmark::State& state) {
  BlockRecord record;
  record.Begin(1, LARGE_BLOCKS);
  std::mt19937 random(1);
  const auto lost = static_cast<uint64_t>(state.range(0));
  for (uint32_t block = 0; block < LARGE_BLOCKS; ++block)
    if (record.AdmitAnnounced(HeadOf(block)) == Admission::Admitted && random() % 1000 >= lost)
      record.Receive({1, block});
  LostBlock from{1, 0};
  for (auto _ : state) {
    const auto missing = record.FirstNotReceived(from);
    benchmark::DoNotOptimize(missing);
    from = missing && missing->file == 1 ? LostBlock{1, missing->block + 1} : LostBlock{1, 0};
  }
}
BENCHMARK(FirstMissing)->ArgName("per mille")->Arg(1)->Arg(50)->Arg(500);

// ---- writing ----

/// Gathers blocks into writes. An iteration is one block.
void GatherRun(benchmark::State& state) {
  RunBuffer buffer;
  const std::vector<uint8_t> bytes(BLOCK_SIZE);
  uint32_t block = 0;
  for (auto _ : state) {
    buffer.Add(block++, bytes);
    if (buffer.IsDue(UINT32_MAX, true)) benchmark::DoNotOptimize(buffer.Take().bytes.data());
  }
  CountBytes(state, BLOCK_SIZE);
}
BENCHMARK(GatherRun);

// ---- names ----

/// From the wire to a place beneath the target directory, once with each file.
void MapName(benchmark::State& state) {
  const NameField field = NameField::From(NAME);
  for (auto _ : state) {
    const std::string name = "\\" + ConvertName(RealMachine(), field, false);
    benchmark::DoNotOptimize(MapFilePath("C:\\received", name));
  }
}
BENCHMARK(MapName);

}  // namespace
}  // namespace quorl
