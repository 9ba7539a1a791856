#include "cli/transfer/rate_control.h"

#include <algorithm>
#include <utility>

#include "cli/show/views.h"
#include "cli/system/network.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// Receivers say six times a second what they have lost.
constexpr auto SETTLING = 300ms;
constexpr auto PERIOD = 300ms;

constexpr uint32_t USUAL = 100'000;    // kbit/s, where nothing is known
constexpr uint32_t UNCUT = 4796 + 28;  // bytes of a packet that holds a whole block
constexpr double SLOWEST = 1000;       // kbit/s
constexpr double FAST_RISE = 1.25;
constexpr double RISE = 1.012;            // in a period
constexpr double NEGLIGIBLE_LOSS = 0.01;  // shares of the blocks
constexpr double NEGLIGIBLE_OVERFLOW = 0.002;
constexpr double STILL_THE_SAME = 0.7;  // of the loss, when the stream was slower
constexpr double SOME_MORE = 1.5;       // than it loses at any rate: chance
constexpr double SLOWER_TO_SEE = 0.7;
constexpr uint64_t ENOUGH_TO_TELL = 50;  // blocks

// Of the memory for fragments. What is in it stays for half a minute.
constexpr double FRAGMENT_SECONDS = 30;
constexpr double MEMORY_IN_USE = 0.1, MEMORY_AIM = 0.6;

}  // namespace

double RateControl::Receiver::Overflow() const {
  const uint64_t all = came + lost;
  return all == 0 ? 0 : std::min(1.0, static_cast<double>(overflowed) / static_cast<double>(all));
}

/// Without those that its own buffers had no room for.
double RateControl::Receiver::Loss() const {
  const uint64_t all = came + lost;
  return all < ENOUGH_TO_TELL ? 0 : static_cast<double>(lost - std::min(lost, overflowed)) / static_cast<double>(all);
}

bool RateControl::Receiver::IsSuspect() const {
  return Loss() > SOME_MORE * accepted + NEGLIGIBLE_LOSS;
}

void RateControl::Take(uint32_t address, const Intake& intake) {
  Receiver& receiver = receivers[address];
  receiver.memory = std::min<double>(intake.memory, 1000) / 1000;
  if (isSettling) return;
  receiver.came += intake.came;
  receiver.lost += intake.lost;
  receiver.overflowed += intake.overflowed;
}

uint32_t RateControl::Rate(Time now, uint64_t sent) {
  if (since == Time{} || sent < sentBefore) BeginPeriod(now, sent);
  const auto passed = now - since;
  if (isSettling && passed >= SETTLING) {
    BeginPeriod(now, sent);
  } else if (!isSettling && passed >= PERIOD) {
    // What the machine cannot send, nobody has lost.
    const double seconds = std::chrono::duration<double>(passed).count();
    const double actual =
        static_cast<double>((sent - std::min(sent, sentBefore)) * WIRE_BITS_PER_BLOCK) / 1000 / seconds;
    const double before = rate;
    Judge(std::min(rate, actual), seconds);
    BeginPeriod(now, sent);
    isSettling = rate < before || rateBefore != 0 || rate > before * RISE;
  }
  return static_cast<uint32_t>(rate);
}

void RateControl::BeginPeriod(Time now, uint64_t sent) {
  isSettling = false;
  since = now;
  sentBefore = sent;
  for (auto& [address, receiver] : receivers) {
    receiver.came = receiver.lost = receiver.overflowed = 0;
    receiver.memoryBefore = receiver.memory;
  }
}

void RateControl::Judge(double actual, double seconds) {
  const double back = std::exchange(rateBefore, 0);
  if (back != 0 && !HasHelped()) {
    rate = back;
    isRising = wasRising;
  }
  double worst = 0;
  for (auto& [address, receiver] : receivers) {
    if (!receiver.IsSuspect()) continue;
    receiver.tried = receiver.Loss();
    worst = std::max(worst, receiver.tried);
  }
  const double bearable = Bearable(actual, seconds);
  if (worst == 0 && bearable == rate) {
    if (back == 0) Change(rate * (isRising ? FAST_RISE : RISE));
    return;
  }
  wasRising = std::exchange(isRising, false);
  if (worst != 0) rateBefore = rate;
  // Of a link that is too narrow so much comes through.
  Change(worst == 0 ? bearable : std::min({bearable, actual * (1 - worst), rate * SLOWER_TO_SEE}));
}

/// Whether anybody has lost less since the rate was taken down. One whose memory is full loses everything at any rate,
/// until it has forgotten what is in there: that tells nothing.
bool RateControl::HasHelped() {
  bool helped = false;
  for (auto& [address, receiver] : receivers) {
    const double tried = std::exchange(receiver.tried, 0);
    if (tried == 0) continue;
    const double loss = receiver.Loss();
    if (loss < STILL_THE_SAME * tried || receiver.memory > MEMORY_AIM) {
      helped = true;
    } else {
      receiver.accepted = std::max({receiver.accepted, tried, loss});
    }
  }
  return helped;
}

/// The rate at which buffers and memory suffice.
double RateControl::Bearable(double actual, double seconds) const {
  double bearable = rate;
  for (const auto& [address, receiver] : receivers) {
    if (receiver.Overflow() > NEGLIGIBLE_OVERFLOW)
      bearable = std::min(bearable, actual * (1 - std::clamp(receiver.Overflow(), 0.1, 0.5)));
    // A suspect may yet lose nothing at all when it is slower, and need no memory.
    if (receiver.IsSuspect() || receiver.memory < MEMORY_IN_USE) continue;
    // What comes goes again half a minute later.
    const double inTheEnd = receiver.memory + (receiver.memory - receiver.memoryBefore) / seconds * FRAGMENT_SECONDS;
    if (inTheEnd > MEMORY_AIM) bearable = std::min(bearable, actual * std::max(MEMORY_AIM / inTheEnd, 0.5));
  }
  return bearable;
}

void RateControl::Change(double kilobits) {
  rate = std::clamp(kilobits, std::min(SLOWEST, most), most);
}

RateControl RateControl::For(const std::string& interfaceName, const std::vector<QuorlReceiverState>& receivers) {
  const bool allTell = std::all_of(receivers.begin(), receivers.end(),
                                   [](const auto& row) { return (row.capabilities & TELLS_INTAKE) != 0; });
  const Device device = ReadDevice(interfaceName);
  if (!allTell || device.speed == 0 || device.speed > UINT32_MAX / 1000) return {USUAL, USUAL};
  const uint32_t most = device.speed * 900;
  return {device.mtu >= UNCUT ? most : std::min(most, 2 * USUAL), most};
}

}  // namespace quorl::cli
