// The stream in symbols where it is hardest for it. Each table has one question, and each row is a room, or as many
// rooms as it says. Loss hits each delivery by itself, in both directions, from the collection of the receivers on.
#include "sim/studies/coded_study.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>

#include "coded/code/erasure_code.h"
#include "protocol/datagrams.h"
#include "protocol/wire_size.h"
#include "sim/campaign/parallel.h"
#include "sim/campaign/tally.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint64_t MEBIBYTE = 1 << 20;
constexpr Duration DELAY = 500us;
constexpr Duration LONGEST_TRANSFER = 3600s;
constexpr uint64_t GIGABIT = 125'000'000;  // bytes a second
constexpr size_t SYMBOL_ON_WIRE = BytesOnWire(LENGTH<SymbolHead> + SYMBOL_SIZE);

/// What a room has, and what it is to do.
struct RoomPlan {
  size_t receivers = 4;
  uint64_t bytes = 256 * MEBIBYTE;
  uint32_t rate = 0;  ///< kbit/s; 0: none is given.
  double loss = 0;
  uint64_t bottleneck = 0;  ///< Bytes a second, behind a link of a gigabit; 0: there is none.
  uint64_t disk = 0;        ///< Bytes a second of the first receiver's; 0: it takes no time.
  uint64_t number = 1;
};

struct Outcome {
  Tally tally{};
  double seconds = 0;                           ///< From the start of the transfer to its end,
  double streamSeconds = 0;                     ///< and from the first symbol to the last.
  uint64_t source = 0, repair = 0, blocks = 0;  ///< What went out in symbols and in blocks.
  uint64_t answers = 0;
  uint64_t lateSent = 0, lateDropped = 0;  ///< After the first second of the stream: symbols, and what queues dropped.
};

double Seconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

/// Counts what is sent in a room.
class Observer {
 public:
  explicit Observer(Room& room) : room(room) {
    room.Net().SetTap([this](const SentDatagram& sent) { See(sent); });
  }

  void FillIn(Outcome& outcome) const {
    outcome.source = source;
    outcome.repair = repair;
    outcome.blocks = blocks;
    outcome.answers = answers;
    outcome.streamSeconds = Seconds(last - first.value_or(last));
    if (!atSecond) return;
    outcome.lateSent = source + repair - atSecond->sent;
    outcome.lateDropped = room.Net().Count(Fate::QueueFull) - atSecond->dropped;
  }

 private:
  struct Counts {
    uint64_t sent, dropped;
  };

  void See(const SentDatagram& sent) {
    switch (sent.bytes.at(2)) {
      case CMD_SYMBOL: return SeeSymbol(sent);
      case CMD_LACKS: ++answers; return;
      case CMD_DATA:
      case CMD_RESEND: ++blocks; return;
      default: return;
    }
  }

  void SeeSymbol(const SentDatagram& sent) {
    last = sent.at;
    if (!first) first = sent.at;
    if (!atSecond && sent.at - *first >= 1s) atSecond = {source + repair, room.Net().Count(Fate::QueueFull)};
    ++(ReadFields<SymbolHead>(sent.bytes).index < MOST_SOURCE_SYMBOLS ? source : repair);
  }

  Room& room;
  uint64_t source = 0, repair = 0, blocks = 0, answers = 0;
  std::optional<Moment> first;
  Moment last{};
  std::optional<Counts> atSecond;
};

Outcome Play(const RoomPlan& plan) {
  Room room({.receivers = plan.receivers,
             .seed = plan.number,
             .senderProfile = Profile::Robust,
             .receiverProfile = Profile::Robust,
             .symbols = true});
  room.World().SetLogging(false);
  room.Net().SetDelay(DELAY);
  room.Net().SetLoss(plan.loss);
  if (plan.bottleneck != 0)
    room.Net().SetUplink(room.Sender(), {.own = {GIGABIT}, .bottleneck = {plan.bottleneck, 64 * 1024}});
  room.Receiver(0).Disk().SetBytesPerSecond(plan.disk);
  const Observer observer(room);
  room.File("file", plan.bytes);
  room.Server().SetSendRate(plan.rate);
  room.StartReceivers();
  room.Send();
  const Moment start = room.World().Now();
  const Moment deadline = start + LONGEST_TRANSFER;
  while (!room.IsSenderThrough() && room.World().Now() < deadline) room.World().RunFor(10ms);
  Outcome outcome;
  outcome.seconds = Seconds(room.World().Now() - start);
  const bool ended = room.IsSenderThrough();
  // A receiver that leaves late has its last word still to say.
  room.World().RunFor(1s);
  outcome.tally = Judge(room, ended, room.World().Now() - start);
  observer.FillIn(outcome);
  return outcome;
}

void Print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

template <typename... Values>
void PrintLine(const char* format, const Values&... values) {
  std::array<char, 400> line{};
  std::snprintf(line.data(), line.size(), format, values...);
  Print(line.data());
}

std::string Completed(const Tally& tally) {
  return std::to_string(tally.complete) + " of " + std::to_string(tally.Receivers());
}

std::string Rate(uint32_t kilobits) {
  return kilobits == 0 ? "none" : std::to_string(kilobits / 1000) + " Mbit/s";
}

void StudyBigRooms() {
  Print(
      "\n**Big rooms**\n\n"
      "| receivers | loss % | MiB | complete | time / without loss | repair / source symbols | answers a second |\n"
      "|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const size_t receivers : {size_t{200}, size_t{1000}}) {
    double ideal = 0;
    for (const double loss : {0.0, 0.05}) {
      const RoomPlan plan{.receivers = receivers, .bytes = 64 * MEBIBYTE, .rate = 100'000, .loss = loss};
      const Outcome outcome = Play(plan);
      if (loss == 0) ideal = outcome.seconds;
      PrintLine("| %zu | %g | %llu | %s | %.2f | %.3f | %.0f |\n", receivers, 100 * loss,
                static_cast<unsigned long long>(plan.bytes / MEBIBYTE), Completed(outcome.tally).c_str(),
                outcome.seconds / ideal, Share(outcome.repair, outcome.source),
                static_cast<double>(outcome.answers) / outcome.seconds);
    }
  }
}

void StudyBottlenecks() {
  Print(
      "\n**A narrow link behind a fast one**\n\n"
      "| link Mbit/s | rate given | complete | share of the link % | lost after the first second % | "
      "repair / source symbols |\n"
      "|---:|---|---:|---:|---:|---:|\n");
  for (const auto& [megabits, rate] :
       {std::pair{100, 0}, std::pair{300, 0}, std::pair{30, 0}, std::pair{100, 900'000}}) {
    const uint64_t bottleneck = static_cast<uint64_t>(megabits) * 125'000;
    const Outcome outcome =
        Play({.bytes = 256 * MEBIBYTE, .rate = static_cast<uint32_t>(rate), .bottleneck = bottleneck});
    const double carried = static_cast<double>(outcome.source * SYMBOL_ON_WIRE) / outcome.streamSeconds;
    PrintLine("| %d | %s | %s | %.1f | %.2f | %.3f |\n", megabits, Rate(static_cast<uint32_t>(rate)).c_str(),
              Completed(outcome.tally).c_str(), 100 * carried / static_cast<double>(bottleneck),
              100 * Share(outcome.lateDropped, outcome.lateSent), Share(outcome.repair, outcome.source));
  }
}

void StudySlowDisk() {
  Print(
      "\n**One receiver's disk takes 20 MB/s**\n\n"
      "| rate given | complete | MB/s | sent twice % |\n"
      "|---|---:|---:|---:|\n");
  for (const uint32_t rate : {0u, 400'000u}) {
    const Outcome outcome = Play({.rate = rate, .disk = 20'000'000});
    PrintLine("| %s | %s | %.1f | %.2f |\n", Rate(rate).c_str(), Completed(outcome.tally).c_str(),
              256 * 1.048576 / outcome.seconds, 100 * Share(outcome.repair, outcome.source));
  }
}

void StudyHeavyLoss(const CodedStudyOptions& options) {
  Print(
      "\n**A fifth of everything is lost**\n\n"
      "| receivers | rooms | complete | rooms with all complete and nobody reported | complete, reported failed | not "
      "complete, not reported | rooms in blocks |\n"
      "|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const size_t receivers : {size_t{4}, size_t{16}}) {
    Tally all;
    uint64_t inBlocks = 0;
    std::mutex mutex;
    ForEachNumber(
        options.threads, [&](uint64_t index) { return index >= options.rooms; },
        [&](uint64_t index) {
          const Outcome outcome = Play({.receivers = receivers, .bytes = MEBIBYTE, .loss = 0.2, .number = index + 1});
          const std::scoped_lock lock(mutex);
          all.Add(outcome.tally);
          if (outcome.source == 0) ++inBlocks;
        });
    PrintLine("| %zu | %llu | %s | %llu | %llu | %llu | %llu |\n", receivers, static_cast<unsigned long long>(all.runs),
              Completed(all).c_str(), static_cast<unsigned long long>(all.flawless),
              static_cast<unsigned long long>(all.wronglyFailed), static_cast<unsigned long long>(all.unreported),
              static_cast<unsigned long long>(inBlocks));
  }
}

}  // namespace

void RunCodedStudy(const CodedStudyOptions& options) {
  PrintLine("    ./dev sim study coded %llu\n", static_cast<unsigned long long>(options.rooms));
  StudyBottlenecks();
  StudySlowDisk();
  StudyHeavyLoss(options);
  StudyBigRooms();
}

}  // namespace quorl::sim
