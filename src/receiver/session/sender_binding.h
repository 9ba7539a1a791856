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
  void Bind(uint32_t address) {
    announcer = address;
    bound = true;
  }
  void Release() { bound = false; }

  /// The heartbeat has been missed for good.
  void SetLost() {
    lost = true;
    lossIsNews = true;
  }
  /// True once for each loss.
  bool TakeLossNews() { return lossIsNews.exchange(false); }
  /// Whether it was lost until now.
  bool TakeLost() { return lost.exchange(false); }

  bool Accepts(uint32_t address) const {
    if (named != 0) return address == named;
    return !bound || address == announcer || lost;
  }

  /// Once the transfer is over or its sender lost, another may announce one; but the blocks of this one come from who
  /// announced it, also when it lacks some for ever.
  bool AcceptsBlocks(uint32_t address) const { return Accepts(address) && (announcer == 0 || address == announcer); }

 private:
  std::atomic<uint32_t> named = 0;
  std::atomic<uint32_t> announcer = 0;  // of the transfer that was bound to latest; 0 while none
  std::atomic<bool> bound = false;
  std::atomic<bool> lost = false;
  std::atomic<bool> lossIsNews = false;
};

}  // namespace quorl
