#pragma once

#include <atomic>
#include <cstdint>

namespace quorl {

/// Lets calls into an object that any thread may close: what the calls use is given back when the object is closed and
/// the last call has left, by the thread that notices.
class ClosingGate {
 public:
  /// False once the gate is closed; else Leave must follow.
  bool Enter() {
    uint32_t seen = state.load();
    do {
      if (seen & CLOSED) return false;
    } while (!state.compare_exchange_weak(seen, seen + 1));
    return true;
  }

  /// True when the caller is the one to give back.
  bool Leave() { return state.fetch_sub(1) == CLOSED + 1; }

  enum class Closing { Already, CallsInside, Empty };

  /// With Empty the caller is the one to give back.
  Closing Close() {
    const uint32_t before = state.fetch_or(CLOSED);
    if (before & CLOSED) return Closing::Already;
    return before == 0 ? Closing::Empty : Closing::CallsInside;
  }

  bool IsClosed() const { return (state.load() & CLOSED) != 0; }

 private:
  static constexpr uint32_t CLOSED = 0x80000000;

  std::atomic<uint32_t> state{0};  // Calls inside, and CLOSED.
};

}  // namespace quorl
