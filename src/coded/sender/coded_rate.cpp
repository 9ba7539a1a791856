#include "coded/sender/coded_rate.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "protocol/datagrams.h"
#include "protocol/wire_size.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// A period is as long as it takes to tell two percent from chance, within these bounds.
constexpr Duration SHORTEST_PERIOD = 20ms;
constexpr Duration LONGEST_PERIOD = 250ms;
constexpr double FEWEST_SYMBOLS = 300;

// While the rate doubles, what is too much shows sooner.
constexpr Duration DOUBLING_PERIOD = 10ms;
constexpr double FEWEST_TO_DOUBLE = 100;

// Nobody waits longer for a receiver's answer.
constexpr Duration LONGEST_WAIT = 500ms;

// A receiver loses too much that loses so much more than always, and more than chance explains.
constexpr double TOLERATED = 0.02;
constexpr double DEVIATIONS = 3;

// A receiver that loses this share of what it lost of the faster stream does not lose it for the rate.
constexpr double AS_MUCH = 0.5;

// Of what came through.
constexpr double SLOWER = 0.85;

// So many must be lost of a slower stream to compare it with the faster one.
constexpr double ENOUGH_LOST = 36;

// While the rate doubles, a receiver may lose so much of the first, slow stream already.
constexpr double MOST_AT_FIRST = 0.3;

// To be taken down so often, and by so much, is a trial.
constexpr int TRIES = 3;
constexpr double MUCH_SLOWER = 0.7;

// However much is lost at once, the rate comes down to this share of itself at least.
constexpr double SLOWEST_AT_ONCE = 0.25;

// By so many kbit/s the rate rises in a second, where it has begun, and at another rate by as much as the fourth roots
// differ; by twice as much after as many quiet periods, and so on.
constexpr double RISE = 40'000;
constexpr int QUIET_PERIODS = 16;

// A stream that is slower than it may be is held back by something else.
constexpr double HELD_BACK = 0.7;

// Polls of one period that are remembered.
constexpr size_t MOST_POLLS = 1024;

/// By how much the lost share of so many may differ from the share that is lost on average.
double Chance(double share, double symbols) {
  return DEVIATIONS * std::sqrt(share / symbols);
}

constexpr double KILOBITS_A_SYMBOL = BytesOnWire(CODED_DATAGRAM) * 8 / 1000.0;

}  // namespace

void CodedRate::Polled(uint32_t round, bool ofAll, uint64_t symbolsSent, Moment now) {
  if (polls.size() == MOST_POLLS) BeginPeriod();
  polls.push_back({round, ofAll, symbolsSent, now});
}

const CodedRate::Poll* CodedRate::Find(uint32_t round) const {
  const bool isThere = !polls.empty() && round >= polls.front().round && round - polls.front().round < polls.size();
  return isThere ? &polls[round - polls.front().round] : nullptr;
}

void CodedRate::Take(uint32_t address, uint32_t round, uint32_t arrived, Moment now) {
  const Poll* poll = round < since ? nullptr : Find(round);
  if (!poll || !poll->ofAll) return;
  Peer& peer = peers[address];
  peer.heard = now;
  if (peer.from.round < since) peer.from = peer.to = {round, arrived};
  if (round > peer.to.round) peer.to = {round, arrived};
  if (IsOver(now)) Judge();
}

CodedRate::Share CodedRate::ShareOf(const Peer& peer) const {
  if (peer.from.round < since || peer.from.round == peer.to.round) return {};
  const Poll& from = *Find(peer.from.round);
  const Poll& to = *Find(peer.to.round);
  const auto sent = static_cast<double>(to.sent - from.sent);
  const double came = peer.to.arrived - peer.from.arrived;
  return {sent, sent > 0 ? std::max(0.0, 1 - came / sent) : 0, std::chrono::duration<double>(to.at - from.at).count()};
}

/// Of how many symbols it has to have told.
double CodedRate::Enough(const Peer& peer) const {
  if (isDoubling) return FEWEST_TO_DOUBLE;
  if (peer.tried > 0) return std::max(FEWEST_SYMBOLS, ENOUGH_LOST / peer.tried);
  return std::max(FEWEST_SYMBOLS, peer.always * std::pow(DEVIATIONS / TOLERATED, 2));
}

/// Whether everybody who is there has told enough.
bool CodedRate::IsOver(Moment now) const {
  return std::all_of(peers.begin(), peers.end(), [&](const auto& each) {
    const Peer& peer = each.second;
    if (now - peer.heard >= LONGEST_WAIT) return true;
    const Share share = ShareOf(peer);
    const std::chrono::duration<double> shortest = isDoubling ? DOUBLING_PERIOD : SHORTEST_PERIOD;
    const std::chrono::duration<double> longest = LONGEST_PERIOD;
    return share.seconds >= shortest.count() && (share.sent >= Enough(peer) || share.seconds >= longest.count());
  });
}

void CodedRate::Judge() {
  if (rateBefore > 0) {
    GoOnTrying();
  } else if (!SlowDown()) {
    double actual = rate;
    double seconds = 0;
    for (auto& [address, peer] : peers) {
      const Share share = ShareOf(peer);
      if (share.sent == 0) continue;
      // It may have got better.
      if (share.lost < peer.always - Chance(peer.always, share.sent)) peer.always = (peer.always + share.lost) / 2;
      actual = std::min(actual, share.sent * KILOBITS_A_SYMBOL / share.seconds);
      seconds = std::max(seconds, share.seconds);
    }
    Rise(actual, seconds);
  }
  BeginPeriod();
}

/// The rate has been taken down. If somebody is better off, that was right.
void CodedRate::GoOnTrying() {
  const bool hasHelped = std::any_of(peers.begin(), peers.end(), [&](const auto& each) {
    const Share share = ShareOf(each.second);
    return each.second.tried > 0 && share.sent > 0 && share.lost < AS_MUCH * each.second.tried;
  });
  if (!hasHelped && tries < TRIES) {
    ++tries;
    rate = std::max<double>(MUCH_SLOWER * rate, LEAST);
    return;
  }
  for (auto& [address, peer] : peers) {
    const bool isUsedToIt = std::exchange(peer.tried, 0) > 0 && !hasHelped;
    if (isUsedToIt) peer.always = std::max(peer.always, ShareOf(peer).lost);
  }
  if (!hasHelped) {
    rate = rateBefore;
    isDoubling = wasDoubling;
  }
  rateBefore = 0;
}

/// False when nobody loses too much.
bool CodedRate::SlowDown() {
  double bearable = MOST;
  for (auto& [address, peer] : peers) {
    const Share share = ShareOf(peer);
    if (share.sent == 0) continue;
    if (isDoubling && peer.always == 0 && share.lost < MOST_AT_FIRST) peer.always = share.lost;
    if (share.lost <= peer.always + TOLERATED + Chance(std::max(peer.always, TOLERATED), share.sent)) continue;
    peer.tried = share.lost;
    bearable =
        std::min(bearable, share.sent * KILOBITS_A_SYMBOL / share.seconds * (1 - share.lost) / (1 - peer.always));
  }
  if (bearable >= MOST) return false;
  rateBefore = rate;
  tries = 1;
  quiet = 0;
  wasDoubling = std::exchange(isDoubling, false);
  rate = std::clamp<double>(SLOWER * bearable, std::max<double>(SLOWEST_AT_ONCE * rate, LEAST), rate);
  return true;
}

void CodedRate::Rise(double actual, double seconds) {
  if (actual < HELD_BACK * rate) return;
  const int faster = 1 + quiet++ / QUIET_PERIODS;
  const double step = RISE * std::pow(rate / BEGIN, 0.25) * seconds * faster;
  rate = std::min<double>(isDoubling ? 2 * rate : rate + step, MOST);
}

/// What leaves from now on counts, and that is what follows the next poll.
void CodedRate::BeginPeriod() {
  since = polls.back().round + 1;
  polls.clear();
}

}  // namespace quorl
