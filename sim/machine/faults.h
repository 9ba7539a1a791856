#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quorl::sim {

/// The parts of a machine whose calls can fail.
enum class Seam { Network, Threads, Files };

/// Which of a machine's calls fail. Calls have names: "network.start", "network.open", "network.reuse",
/// "network.bind", "network.buffer", "network.interface", "network.ttl", "network.join", "network.leave",
/// "network.nonblocking", "network.send", "network.receive"; "threads.event", "threads.start"; "files.list",
/// "files.open", "files.length", "files.read", "files.write", "files.close".
class Faults {
 public:
  using Predicate = std::function<bool(std::string_view call)>;

  /// The `nth` call of `seam` from now on (1: the next) fails, once.
  void FailCall(Seam seam, uint64_t nth) { Of(seam).failing = Of(seam).calls + nth; }

  /// The `nth` call of this name from now on fails, once; 0 ends that.
  void FailCall(std::string name, uint64_t nth) {
    failingName = std::move(name);
    callsUntilFailure = nth;
  }

  /// Every call fails for which the predicate holds; an empty one ends that.
  void FailEvery(Predicate newPredicate) { predicate = std::move(newPredicate); }

  /// Calls of `seam` since the machine was made.
  uint64_t Calls(Seam seam) const { return counts[static_cast<size_t>(seam)].calls; }

  /// Counts a call; whether it is to fail.
  bool Hits(Seam seam, std::string_view call) {
    Count& count = Of(seam);
    const bool isNamed = callsUntilFailure != 0 && call == failingName && --callsUntilFailure == 0;
    return ++count.calls == count.failing || isNamed || (predicate && predicate(call));
  }

 private:
  struct Count {
    uint64_t calls = 0;
    uint64_t failing = 0;
  };
  Count& Of(Seam seam) { return counts[static_cast<size_t>(seam)]; }

  std::array<Count, 3> counts;
  std::string failingName;
  uint64_t callsUntilFailure = 0;
  Predicate predicate;
};

}  // namespace quorl::sim
