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
constexpr Duration LONGEST_PERIOD = 1s;
constexpr double SYMBOLS_A_PERIOD = 300;

// Nobody waits longer for a receiver's answer.
constexpr Duration LONGEST_SILENCE = 500ms;

// A receiver loses too much that loses so much more than always, and more than chance explains.
constexpr double TOLERATED = 0.02;
constexpr double DEVIATIONS = 3;

// A receiver that loses this share of what it lost of the faster stream does not lose it for the rate.
constexpr double AS_MUCH = 0.6;

// Of what came through.
constexpr double SLOWER = 0.9;

// Of the highest rate so far.
constexpr double STEP = 0.01;

// A stream that is slower than it may be is held back by something else.
constexpr double HELD_BACK = 0.7;

// Polls of one period that are remembered.
constexpr size_t MOST_POLLS = 1024;

constexpr double KILOBITS_A_SYMBOL = BytesOnWire(CODED_DATAGRAM) * 8 / 1000.0;

}  // namespace

void CodedRate::Polled(uint32_t round, uint64_t symbolsSent, Moment now) {
  if (polls.size() == MOST_POLLS) BeginPeriod();
  polls.push_back({round, symbolsSent, now});
}

const CodedRate::Poll* CodedRate::Find(uint32_t round) const {
  const bool isThere = !polls.empty() && round >= polls.front().round && round - polls.front().round < polls.size();
  return isThere ? &polls[round - polls.front().round] : nullptr;
}

void CodedRate::Take(uint32_t address, uint32_t round, uint32_t arrived, Moment now) {
  if (round < since || !Find(round)) return;
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

/// Whether everybody who is there has told enough.
bool CodedRate::IsOver(Moment now) const {
  return std::all_of(peers.begin(), peers.end(), [&](const auto& each) {
    const Peer& peer = each.second;
    if (now - peer.heard >= LONGEST_SILENCE) return true;
    const Share share = ShareOf(peer);
    const std::chrono::duration<double> shortest = SHORTEST_PERIOD;
    const std::chrono::duration<double> longest = LONGEST_PERIOD;
    return share.seconds >= shortest.count() && (share.sent >= SYMBOLS_A_PERIOD || share.seconds >= longest.count());
  });
}

void CodedRate::Judge() {
  if (rateBefore > 0) {
    EndTrial();
  } else if (!SlowDown()) {
    double actual = rate;
    for (auto& [address, peer] : peers) {
      const Share share = ShareOf(peer);
      if (share.sent == 0) continue;
      // It may have got better.
      peer.always = std::min(peer.always, (7 * peer.always + share.lost) / 8);
      actual = std::min(actual, share.sent * KILOBITS_A_SYMBOL / share.seconds);
    }
    Rise(actual);
  }
  BeginPeriod();
}

/// The rate has been taken down. Who is better off for it was right.
void CodedRate::EndTrial() {
  bool hasHelped = false;
  for (auto& [address, peer] : peers) {
    const double tried = std::exchange(peer.tried, 0);
    const Share share = ShareOf(peer);
    if (tried == 0 || share.sent == 0) continue;
    if (share.lost < AS_MUCH * tried) {
      hasHelped = true;
    } else {
      peer.always = std::max(peer.always, share.lost);
    }
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
    const double chance = DEVIATIONS * std::sqrt(std::max(peer.always, TOLERATED) / share.sent);
    if (share.lost <= peer.always + TOLERATED + chance) continue;
    peer.tried = share.lost;
    bearable =
        std::min(bearable, share.sent * KILOBITS_A_SYMBOL / share.seconds * (1 - share.lost) / (1 - peer.always));
  }
  if (bearable >= MOST) return false;
  rateBefore = rate;
  wasDoubling = std::exchange(isDoubling, false);
  rate = std::clamp<double>(SLOWER * bearable, LEAST, rate);
  return true;
}

void CodedRate::Rise(double actual) {
  highest = std::max(highest, actual);
  if (actual < HELD_BACK * rate) return;
  rate = std::min<double>(isDoubling ? 2 * rate : rate + STEP * highest, MOST);
}

/// What leaves from now on counts, and that is what follows the next poll.
void CodedRate::BeginPeriod() {
  since = polls.back().round + 1;
  polls.clear();
}

}  // namespace quorl
