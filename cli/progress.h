#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace quorl::cli {

/// The rate over the last five seconds, from a running total.
class RateMeter {
 public:
  using Clock = std::chrono::steady_clock;

  void Add(Clock::time_point now, uint64_t total);
  double PerSecond() const;  ///< 0 before there are two values.

 private:
  struct Sample {
    Clock::time_point at;
    uint64_t total = 0;
  };
  std::deque<Sample> samples;
};

/// The share of `part` in `whole` in per cent; 100 only when nothing is left.
uint32_t Percent(uint64_t part, uint64_t whole);

/// "Sending     58 %   1.07 GB of 1.84 GB   25.0 MB/s   file". `name` is cut in the middle where the line would be
/// longer than a terminal.
std::string SendLine(const QuorlSendState& state, uint64_t totalBytes, double bytesPerSecond, uint32_t complete,
                     uint32_t receivers, const std::string& name);

std::string ReceiveLine(const QuorlReceiveState& state, double bytesPerSecond, const std::string& name);

}  // namespace quorl::cli
