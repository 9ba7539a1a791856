#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::cli {

/// The rate over the last five seconds, from a running total.
class RateMeter {
 public:
  using Clock = std::chrono::steady_clock;

  void Add(Clock::time_point now, uint64_t total);
  std::optional<double> PerSecond() const;  ///< Nothing before there are two values.

  /// How long `rest` takes at this rate; nothing while there is none.
  std::optional<std::chrono::seconds> TimeFor(uint64_t rest) const;

 private:
  struct Sample {
    Clock::time_point at;
    uint64_t total = 0;
  };
  std::deque<Sample> samples;
};

/// The share of `part` in `whole` in per cent; 100 only when nothing is left.
uint32_t Percent(uint64_t part, uint64_t whole);

/// "Sending    ████████░░░░░░   58 %   1.07 of 1.84 GB   25.0 MB/s": a phase, a bar, and what there is to say about it.
/// Where `width` is too small, parts are left out from the right, then the bar becomes shorter.
std::string BarLine(std::string_view phase, double share, const std::vector<std::string>& parts, size_t width);

/// What stands below the bar, from the same column on.
std::string BelowBar(const std::vector<std::string>& parts, size_t width);

/// Labels in columns, no more than `mostLines` of them; the others are counted, with `hint` behind the number.
std::string InColumns(const std::vector<std::string>& labels, size_t width, size_t mostLines, const std::string& hint);

/// A name from the library, "\a\b.jpg", as this machine writes it: "a/b.jpg".
std::string LocalName(std::string_view name);

/// The same, escaped and cut in the middle to fit: "a/very/long/na…end.jpg".
std::string ShownName(std::string_view name, size_t columns);

/// How many columns the text takes on a terminal.
size_t Columns(std::string_view text);

}  // namespace quorl::cli
