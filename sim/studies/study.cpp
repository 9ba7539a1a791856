// How far the rules carry: the same small transfer for rooms of any size and any loss, many times. Loss hits each
// delivery by itself, in both directions, the announcements and the collection of the receivers included.
//
// A room can run on for ever (a master that has heard of no transfer asks for its first block as fast as it is sent).
// It is cut off when the repair has sent several times as much as everything that was lost.
#include "sim/studies/study.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "protocol/blocks.h"
#include "protocol/datagrams.h"
#include "sim/campaign/parallel.h"
#include "sim/campaign/tally.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint64_t FILES = 4;
constexpr Duration DELAY = 500us;
/// 10 000 blocks, two of them every 10 ms.
constexpr double BIGGEST_IDEAL_SECONDS = 50;
constexpr Duration LONGEST_TRANSFER = 3600s;
constexpr uint64_t REPAIR_LIMIT_FACTOR = 4;
constexpr uint64_t REPAIR_LIMIT_BASE = 20'000;

/// One cell of the study: rooms that are alike but for chance.
struct Cell {
  Profile profile = Profile::Classic;
  size_t receivers = 1;
  double loss = 0;  ///< Of each datagram at each receiver, and of each reply.
  uint64_t blocksPerFile = 50;

  Tally tally{};
  uint64_t lostBlocks = 0;  ///< Blocks of the stream that a receiver did not get, counted for each receiver.
};

/// Loses each delivery with the same probability, and counts the blocks of the stream among them.
class CountingLoss {
 public:
  CountingLoss(Room& room, double loss, uint64_t number) : loss(loss), random(Mix(number)) {
    room.Net().SetFilter([this](const Transit& transit) { return transit.from == transit.to || !Loses(transit); });
  }

  uint64_t LostBlocks() const { return lostBlocks; }

 private:
  bool Loses(const Transit& transit) {
    if (!Happens(loss, random)) return false;
    if (transit.datagram.size() > 2 && transit.datagram[2] == CMD_DATA) ++lostBlocks;
    return true;
  }

  const double loss;
  Random random;
  uint64_t lostBlocks = 0;
};

/// False when the room does not come to its end.
bool RunToItsEnd(Room& room, const CountingLoss& losses, uint64_t blocks) {
  const Moment deadline = room.World().Now() + LONGEST_TRANSFER;
  while (!room.IsSenderThrough()) {
    const uint64_t most = REPAIR_LIMIT_FACTOR * (losses.LostBlocks() + blocks) + REPAIR_LIMIT_BASE;
    if (room.World().Now() >= deadline || room.Server().GetState().blocksResent > most) return false;
    room.World().RunFor(100ms);
  }
  return true;
}

/// Adds one room to the cell's sums.
void RunRoom(Cell& cell, uint64_t number, std::mutex& mutex) {
  Room room({cell.receivers, number, cell.profile, cell.profile});
  room.World().SetLogging(false);
  room.Net().SetDelay(DELAY);
  const CountingLoss losses(room, cell.loss, number);
  for (uint64_t i = 0; i < FILES; ++i) room.File("file" + std::to_string(i), cell.blocksPerFile * BLOCK_SIZE - 1);
  room.StartReceivers();
  room.Send();
  const Moment start = room.World().Now();
  const bool ended = RunToItsEnd(room, losses, FILES * cell.blocksPerFile);
  const Duration took = room.World().Now() - start;
  // A receiver that leaves late has its last word still to say.
  room.World().RunFor(1s);
  const Tally tally = Judge(room, ended, took);
  const std::scoped_lock lock(mutex);
  cell.tally.Add(tally);
  cell.lostBlocks += losses.LostBlocks();
}

/// As many rooms as are asked for and fit into the time; one at least.
void RunCell(Cell& cell, const StudyOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  std::mutex mutex;
  const auto isOver = [&](uint64_t index) {
    return index >= options.rooms || (index > 0 && std::chrono::steady_clock::now() - start >= options.realTime);
  };
  ForEachNumber(options.threads, isOver, [&](uint64_t index) { RunRoom(cell, index + 1, mutex); });
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
}

double MeanSeconds(const Tally& tally) {
  const uint64_t ended = tally.runs - tally.endless;
  return ended == 0 ? 0 : std::chrono::duration<double>(tally.took).count() / static_cast<double>(ended);
}

std::string Line(const Cell& cell, double idealSeconds) {
  const Tally& tally = cell.tally;
  const uint64_t receivers = tally.Receivers();
  const double repair =
      static_cast<double>(tally.resentBlocks) / static_cast<double>(std::max<uint64_t>(1, cell.lostBlocks));
  char line[200];
  std::snprintf(line, sizeof line, "| %zu | %g | %llu | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |\n",
                cell.receivers, 100 * cell.loss, static_cast<unsigned long long>(tally.runs),
                Share(tally.complete, receivers), Share(tally.incomplete, receivers),
                Share(tally.unreported, receivers), Share(tally.wronglyFailed, receivers),
                Share(tally.endless, tally.runs), MeanSeconds(tally) / idealSeconds, repair);
  return line;
}

std::string Heading(const StudyOptions& options) {
  char text[400];
  std::snprintf(text, sizeof text,
                "    ./dev sim study %llu %lld\n\n"
                "A cell is %llu rooms, or as many as fitted into %lld s on %u threads; how many stands in the table.\n",
                static_cast<unsigned long long>(options.rooms), static_cast<long long>(options.realTime.count()),
                static_cast<unsigned long long>(options.rooms), static_cast<long long>(options.realTime.count()),
                options.threads);
  return text;
}

}  // namespace

void RunStudy(const StudyOptions& options) {
  const auto print = [](const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
  };
  print(Heading(options));
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    print(profile == Profile::Classic ? "\n**Classic profile**\n\n" : "\n**Robust profile**\n\n");
    print(
        "| receivers | loss % | rooms | complete % | not complete % | of all: not complete, not reported % | "
        "complete, reported failed % | rooms without end % | time / ideal | repairs / lost block |\n"
        "|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const size_t receivers : {size_t{1}, size_t{10}, size_t{30}, size_t{100}, size_t{200}}) {
      double ideal = 0;
      for (const double loss : {0.0, 0.001, 0.01, 0.05, 0.2}) {
        Cell cell{.profile = profile, .receivers = receivers, .loss = loss};
        RunCell(cell, options);
        if (loss == 0) ideal = MeanSeconds(cell.tally);
        print(Line(cell, ideal));
      }
    }
    Cell biggest{.profile = profile, .receivers = 200, .loss = 0.01, .blocksPerFile = 2500};
    RunCell(biggest, {.rooms = 1});
    print(Line(biggest, BIGGEST_IDEAL_SECONDS));
  }
}

}  // namespace quorl::sim
