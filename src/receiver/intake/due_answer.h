#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "platform/time.h"

namespace quorl {

/// The answer to a poll, which waits for a moment of its own within the time over which all receivers spread theirs. A
/// newer one takes its place, at that moment still.
class DueAnswer {
 public:
  /// `started`: of this receiver; so each draws moments of its own.
  explicit DueAnswer(Moment started) : random(static_cast<uint32_t>(started.count()) | 1) {}

  void Set(std::vector<uint8_t> datagram, Moment now, Duration spread) {
    answer = std::move(datagram);
    if (due) return;
    due = now;
    if (spread > Duration::zero()) *due += Duration(static_cast<Duration::rep>(random()) % spread.count());
  }
  void Forget() { due.reset(); }

  std::optional<Moment> Due() const { return due; }
  /// The answer, once, when its moment has come.
  std::optional<std::vector<uint8_t>> Take(Moment now) {
    if (!due || now < *due) return std::nullopt;
    due.reset();
    return std::move(answer);
  }

 private:
  std::mt19937 random;
  std::vector<uint8_t> answer;
  std::optional<Moment> due;
};

}  // namespace quorl
