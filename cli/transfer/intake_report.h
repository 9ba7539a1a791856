#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>

namespace quorl::cli {

/// Tells the sender, while its stream runs, what of it gets lost here; nothing while nothing does.
class IntakeReport {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// A transfer begins. `overflows`: datagrams that this machine has had no room for so far.
  void Begin(uint64_t overflows) { *this = IntakeReport(overflows); }

  IntakeReport() = default;
  void Tell(Time now, const QuorlReceiveState& state, uint64_t overflows);

 private:
  explicit IntakeReport(uint64_t overflows) : overflowsBefore(overflows) {}

  Time due{};
  uint64_t cameBefore = 0;
  uint64_t lostBefore = 0;
  uint64_t overflowsBefore = 0;
  uint16_t memoryBefore = 0;
};

}  // namespace quorl::cli
