#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace quorl {

/// Texts whose addresses have been posted. Nobody is told when a posted message has been handled, but the queue of a
/// window's thread has a bound: when that many later messages have been posted, this one is no longer in it. So a text
/// is kept until `kept` later ones have come. The name of a file comes with each of its blocks and is kept once.
class PostedTexts {
 public:
  explicit PostedTexts(size_t kept) : kept(kept) {}

  /// A copy of `text`, which lives until `kept` more texts have been given.
  const char* Keep(const std::string& text);

  /// Copies that are alive.
  size_t Size() const { return runs.size(); }

 private:
  struct Run {
    std::string text;
    uint64_t last;  // Number of the latest text that it stands for.
  };

  const size_t kept;
  uint64_t given = 0;
  std::deque<Run> runs;
};

}  // namespace quorl
