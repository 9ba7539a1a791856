#include "sim/campaign/tally.h"

#include <algorithm>

namespace quorl::sim {

void Tally::Add(const Tally& other) {
  runs += other.runs;
  endless += other.endless;
  flawless += other.flawless;
  complete += other.complete;
  incomplete += other.incomplete;
  wronglyTold += other.wronglyTold;
  wronglyStated += other.wronglyStated;
  reported += other.reported;
  wronglyFailed += other.wronglyFailed;
  unreported += other.unreported;
  resentBlocks += other.resentBlocks;
  datagrams += other.datagrams;
  deliveries += other.deliveries;
  took += other.took;
  longest = std::max(longest, other.longest);
}

Tally Judge(Room& room, bool ended, Duration took) {
  Tally tally{.runs = 1, .endless = ended ? 0u : 1u, .took = ended ? took : Duration{}, .longest = took};
  const auto reported = room.Sender().IsOff() ? std::map<size_t, uint32_t>{} : room.FailedReceivers();
  for (size_t i = 0; i < room.Receivers(); ++i) {
    const bool statesSo = room.Client(i).GetState().complete;
    const bool saysSo = room.WasToldComplete(i) || statesSo;
    const bool holds = room.HoldsAllFiles(i);
    (holds && saysSo ? tally.complete : tally.incomplete) += 1;
    if (saysSo && !holds) ++tally.wronglyTold;
    if (statesSo && !holds) ++tally.wronglyStated;
    if (reported.contains(i)) {
      ++tally.reported;
      if (holds && saysSo) ++tally.wronglyFailed;
    } else if (!(holds && saysSo)) {
      ++tally.unreported;
    }
  }
  tally.flawless = ended && tally.incomplete == 0 && tally.reported == 0 ? 1 : 0;
  tally.resentBlocks = room.Server().GetState().blocksResent;
  tally.datagrams = room.Net().Datagrams();
  tally.deliveries = room.Net().Deliveries();
  return tally;
}

}  // namespace quorl::sim
