// How far the rules carry: the same small transfer for rooms of any size and any loss, many times. Loss hits each
// delivery by itself, in both directions, the announcements and the collection of the receivers included.
//
// A room can run on for ever (a master that has heard of no transfer asks for its first block as fast as it is sent).
// It is cut off when the repair has sent several times as much as everything that was lost.
#include "sim/study.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>

#include "protocol/blocks.h"
#include "protocol/datagrams.h"
#include "sim/room.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint64_t FILES = 4;
constexpr uint64_t BLOCKS_PER_FILE = 50;
constexpr Duration DELAY = 500us;
constexpr Duration LONGEST_TRANSFER = 3600s;
constexpr uint64_t REPAIR_LIMIT_FACTOR = 4;
constexpr uint64_t REPAIR_LIMIT_BASE = 20'000;

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

void Judge(Room& room, StudyCell& result) {
  // A receiver that leaves late has its last word still to say.
  room.World().RunFor(1s);
  const auto failed = room.FailedReceivers();
  for (size_t i = 0; i < room.Receivers(); ++i) {
    const bool isComplete = room.HoldsAllFiles(i) && room.WasToldComplete(i);
    (isComplete ? result.complete : result.incomplete) += 1;
    if (isComplete && failed.contains(i)) ++result.wronglyFailed;
    if (!isComplete && !failed.contains(i)) ++result.unreported;
  }
}

StudyCell RunRoom(const StudyCell& cell, uint64_t number) {
  StudyCell result;
  result.rooms = 1;
  Room room({cell.receivers, number, cell.profile, cell.profile});
  room.World().SetLogging(false);
  room.Net().SetDelay(DELAY);
  const CountingLoss losses(room, cell.loss, number);
  for (uint64_t i = 0; i < FILES; ++i) room.File("file" + std::to_string(i), BLOCKS_PER_FILE * BLOCK_SIZE - 1);
  room.StartReceivers();
  room.Send();
  const Moment start = room.World().Now();
  if (RunToItsEnd(room, losses, FILES * BLOCKS_PER_FILE)) {
    result.seconds = std::chrono::duration<double>(room.World().Now() - start).count();
  } else {
    result.endless = 1;
  }
  Judge(room, result);
  result.lostBlocks = losses.LostBlocks();
  result.resentBlocks = room.Server().GetState().blocksResent;
  return result;
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
}

double MeanSeconds(const StudyCell& cell) {
  return cell.rooms == cell.endless ? 0 : cell.seconds / static_cast<double>(cell.rooms - cell.endless);
}

void Print(const StudyCell& cell, double idealSeconds) {
  const uint64_t receivers = cell.complete + cell.incomplete;
  const double repair =
      static_cast<double>(cell.resentBlocks) / static_cast<double>(std::max<uint64_t>(1, cell.lostBlocks));
  std::printf("| %zu | %g | %llu | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |\n", cell.receivers, 100 * cell.loss,
              static_cast<unsigned long long>(cell.rooms), Share(cell.complete, receivers),
              Share(cell.incomplete, receivers), Share(cell.unreported, receivers),
              Share(cell.wronglyFailed, receivers), Share(cell.endless, cell.rooms), MeanSeconds(cell) / idealSeconds,
              repair);
  std::fflush(stdout);
}

}  // namespace

void StudyCell::Add(const StudyCell& other) {
  rooms += other.rooms;
  endless += other.endless;
  complete += other.complete;
  incomplete += other.incomplete;
  wronglyFailed += other.wronglyFailed;
  unreported += other.unreported;
  lostBlocks += other.lostBlocks;
  resentBlocks += other.resentBlocks;
  seconds += other.seconds;
}

StudyCell RunCell(const StudyCell& cell, uint64_t rooms, std::chrono::seconds realTime, unsigned threads) {
  const auto start = std::chrono::steady_clock::now();
  std::atomic<uint64_t> next = 1;
  std::mutex mutex;
  StudyCell sum = cell;
  const auto work = [&] {
    for (uint64_t number = next++; number <= rooms; number = next++) {
      if (number > 1 && std::chrono::steady_clock::now() - start >= realTime) return;
      const StudyCell result = RunRoom(cell, number);
      const std::scoped_lock lock(mutex);
      sum.Add(result);
    }
  };
  std::vector<std::jthread> others;
  for (unsigned i = 1; i < threads; ++i) others.emplace_back(work);
  work();
  others.clear();
  return sum;
}

void RunStudy(const StudyOptions& options) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    std::printf("\n%s profile\n\n", profile == Profile::Classic ? "Classic" : "Robust");
    std::puts(
        "| receivers | loss % | rooms | complete % | not complete % | of all: not complete, not reported % | "
        "complete, reported failed % | rooms without end % | time / ideal | repairs / lost block |\n"
        "|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|");
    for (const size_t receivers : {size_t{1}, size_t{10}, size_t{30}, size_t{100}, size_t{200}}) {
      double ideal = 0;
      for (const double loss : {0.0, 0.001, 0.01, 0.05, 0.2}) {
        const StudyCell asked{.profile = profile, .receivers = receivers, .loss = loss};
        // Without loss there is no chance in it.
        const StudyCell cell = RunCell(asked, loss == 0 ? 1 : options.rooms, options.realTime, options.threads);
        if (loss == 0) ideal = MeanSeconds(cell);
        Print(cell, ideal);
      }
    }
  }
}

bool RunScale(Profile profile) {
  constexpr size_t RECEIVERS = 200;
  constexpr uint64_t BLOCKS = 10'000;
  const auto start = std::chrono::steady_clock::now();
  Room room({RECEIVERS, 1, profile, profile});
  room.World().SetLogging(false);
  room.Net().SetLoss(0.01);
  room.File("big", BLOCKS * BLOCK_SIZE - 1);
  const bool started = room.StartReceivers() && room.Send();
  const bool quiet = started && room.RunUntilQuiet(LONGEST_TRANSFER);
  size_t complete = 0;
  for (size_t i = 0; i < RECEIVERS; ++i) complete += room.HoldsAllFiles(i) && room.WasToldComplete(i) ? 1 : 0;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf(
      "%s: %zu receivers, %llu blocks, 1 %% loss: %zu complete after %.0f s of virtual time; %llu datagrams sent, %llu "
      "delivered or lost, in %.1f s of real time: %.0f deliveries a second\n",
      profile == Profile::Classic ? "classic" : "robust", RECEIVERS, static_cast<unsigned long long>(BLOCKS), complete,
      std::chrono::duration<double>(room.World().Now()).count(),
      static_cast<unsigned long long>(room.Net().Datagrams()), static_cast<unsigned long long>(room.Net().Deliveries()),
      seconds, static_cast<double>(room.Net().Deliveries()) / seconds);
  std::fflush(stdout);
  return quiet && (profile == Profile::Classic || complete == RECEIVERS);
}

}  // namespace quorl::sim
