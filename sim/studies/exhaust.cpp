// Small spaces are exhausted instead of sampled: a transfer of six blocks is short enough to lose each of its
// datagrams, and each pair of them, at each receiver.
#include "sim/studies/exhaust.h"

#include <algorithm>
#include <cstdio>

#include "protocol/blocks.h"
#include "sim/room/room.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr Duration LONGEST_TRANSFER = 600s;
constexpr size_t FLAWED_KEPT = 8;

bool IsLost(const Losses& losses, uint64_t index) {
  return std::find(losses.begin(), losses.end(), index) != losses.end();
}

}  // namespace

Tally RunWithLosses(Profile profile, const Losses& losses) {
  Room room({.receivers = 2, .seed = 1, .senderProfile = profile, .receiverProfile = profile});
  room.World().SetLogging(false);
  for (uint64_t blocks = 1; blocks <= 3; ++blocks) room.File(std::to_string(blocks), (blocks - 1) * BLOCK_SIZE + 100);
  room.Net().SetFilter([&](const Transit& transit) { return !IsLost(losses, transit.index); });
  room.StartReceivers();
  const bool started = room.Send();
  const Moment start = room.World().Now();
  const bool ended = started && room.RunUntilQuiet(LONGEST_TRANSFER);
  return Judge(room, ended, room.World().Now() - start);
}

void ExhaustTally::Add(const Losses& losses, const Tally& run) {
  Tally::Add(run);
  if (run.flawless == 0 && flawed.size() < FLAWED_KEPT) flawed.push_back(losses);
}

std::vector<ExhaustTally> Exhaust(Profile profile) {
  const std::string name = profile == Profile::Classic ? "classic" : "robust";
  ExhaustTally none{{}, name + ", no loss"};
  ExhaustTally singles{{}, name + ", one loss"};
  ExhaustTally pairs{{}, name + ", two losses"};
  const Tally whole = RunWithLosses(profile, {});
  none.Add({}, whole);
  for (uint64_t first = 0; first < whole.deliveries; ++first) {
    const Tally single = RunWithLosses(profile, {first});
    singles.Add({first}, single);
    for (uint64_t second = first + 1; second < single.deliveries; ++second)
      pairs.Add({first, second}, RunWithLosses(profile, {first, second}));
  }
  return {none, singles, pairs};
}

std::string ToText(const std::vector<ExhaustTally>& tallies) {
  std::string text =
      "                        runs  flawless   no end  complete  incomplete  told wrongly  failed though  missed and  "
      "longest\n"
      "                                                                            complete   not reported\n";
  for (const ExhaustTally& tally : tallies) {
    char line[200];
    std::snprintf(
        line, sizeof line, "%-20s %7llu %9llu %8llu %9llu %11llu %13llu %14llu %11llu %7.1f s\n", tally.kind.c_str(),
        static_cast<unsigned long long>(tally.runs), static_cast<unsigned long long>(tally.flawless),
        static_cast<unsigned long long>(tally.endless), static_cast<unsigned long long>(tally.complete),
        static_cast<unsigned long long>(tally.incomplete), static_cast<unsigned long long>(tally.wronglyTold),
        static_cast<unsigned long long>(tally.wronglyFailed), static_cast<unsigned long long>(tally.unreported),
        std::chrono::duration<double>(tally.longest).count());
    text += line;
    for (const Losses& losses : tally.flawed) {
      text += "    e.g. lost:";
      for (const uint64_t index : losses) text += " " + std::to_string(index);
      text += "\n";
    }
  }
  return text;
}

}  // namespace quorl::sim
