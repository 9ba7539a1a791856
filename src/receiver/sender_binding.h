#pragma once

#include <atomic>
#include <cstdint>

namespace quorl {

/// Whom a receiver listens to: the sender that its host named; else, in the robust profile, the one whose transfer it
/// takes part in, until that is over or the sender is lost. Any thread may use it.
class SenderBinding {
 public:
  /// 0 names nobody.
  void Name(uint32_t address) { named = address; }
  void Bind(uint32_t address) { bound = address; }
  void Release() { bound = 0; }

  /// The heartbeat has been missed for good.
  void SetLost() { lost = true; }
  bool IsLost() const { return lost; }
  /// Whether it was lost until now.
  bool TakeLost() { return lost.exchange(false); }

  bool Accepts(uint32_t address) const {
    if (named != 0) return address == named;
    return bound == 0 || address == bound || lost;
  }

 private:
  std::atomic<uint32_t> named = 0;
  std::atomic<uint32_t> bound = 0;
  std::atomic<bool> lost = false;
};

}  // namespace quorl
