#include "cli/progress.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/escape.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

constexpr std::chrono::seconds WINDOW{5};
constexpr size_t LONGEST_NAME = 30;

/// A name from the library, "\a\b.jpg", as one line shows it.
std::string ShownName(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  if (name.starts_with('/')) name.erase(0, 1);
  if (name.size() > LONGEST_NAME) {
    auto continues = [&](size_t at) { return (static_cast<unsigned char>(name[at]) & 0xC0) == 0x80; };
    size_t head = LONGEST_NAME / 2 - 1;
    size_t tail = name.size() - LONGEST_NAME / 2 + 2;
    while (head > 0 && continues(head)) --head;
    while (tail < name.size() && continues(tail)) ++tail;
    name = name.substr(0, head) + "..." + name.substr(tail);
  }
  return Escape(name);
}

}  // namespace

void RateMeter::Add(Clock::time_point now, uint64_t total) {
  samples.push_back({now, total});
  while (samples.size() > 2 && now - samples[1].at >= WINDOW) samples.pop_front();
}

double RateMeter::PerSecond() const {
  if (samples.size() < 2) return 0;
  double seconds = std::chrono::duration<double>(samples.back().at - samples.front().at).count();
  double gained = static_cast<double>(samples.back().total) - static_cast<double>(samples.front().total);
  return seconds > 0 ? gained / seconds : 0;
}

uint32_t Percent(uint64_t part, uint64_t whole) {
  if (part >= whole) return 100;
  return static_cast<uint32_t>(100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string SendLine(const QuorlSendState& state, uint64_t totalBytes, double bytesPerSecond, uint32_t complete,
                     uint32_t receivers, const std::string& name) {
  if (state.phase == QUORL_PHASE_FINISHING) return "Finishing   the receivers count what they miss";
  if (state.phase == QUORL_PHASE_REPAIRING || state.phase == QUORL_PHASE_OVER) {
    return fmt::format("Repairing   {} of {} complete   {} sent again   {}", complete, Count(receivers, "receiver"),
                       Count(state.blocksResent, "block"), ShownName(name));
  }
  double share =
      state.blocksTotal == 0 ? 0 : static_cast<double>(state.blocksSent) / static_cast<double>(state.blocksTotal);
  auto sent = static_cast<uint64_t>(share * static_cast<double>(totalBytes));
  return fmt::format("Sending     {:3} %   {} of {}   {}   {}", Percent(state.blocksSent, state.blocksTotal),
                     FormatBytes(sent), FormatBytes(totalBytes), FormatRate(bytesPerSecond), ShownName(name));
}

std::string ReceiveLine(const QuorlReceiveState& state, double bytesPerSecond, const std::string& name) {
  const char* phase = state.phase == QUORL_PHASE_REPAIRING ? "Repairing " : "Receiving ";
  return fmt::format("{}  {:3} %   {} of {}   {}   {}", phase, Percent(state.blocksStored, state.blocksExpected),
                     state.blocksStored, Count(state.blocksExpected, "block"), FormatRate(bytesPerSecond),
                     ShownName(name));
}

}  // namespace quorl::cli
