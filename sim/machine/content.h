#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace quorl::sim {

/// The bytes from `offset` on of an endless file that a number determines.
void FillPattern(uint64_t pattern, uint64_t offset, std::span<uint8_t> into);

/// The patterns that files of a world consist of.
using Patterns = std::vector<uint64_t>;

/// A set of byte positions.
class ByteRanges {
 public:
  void Add(uint64_t begin, uint64_t end);
  void Remove(uint64_t begin, uint64_t end);
  bool Covers(uint64_t begin, uint64_t end) const;

  /// Calls visit(begin, end) for each stretch of the set within the given one.
  template <typename Visit>
  void ForEach(uint64_t begin, uint64_t end, const Visit& visit) const {
    auto range = ranges.upper_bound(begin);
    if (range != ranges.begin() && std::prev(range)->second > begin) --range;
    for (; range != ranges.end() && range->first < end; ++range)
      visit(std::max(begin, range->first), std::min(end, range->second));
  }

 private:
  std::map<uint64_t, uint64_t> ranges;  ///< Begin to end; neither touching nor overlapping.
};

/// The content of a file. Costs memory for what was written, not for holes; and what was written costs nothing as long
/// as it repeats a known pattern at its place, so that whole rooms can receive gigabytes.
class FileContent {
 public:
  FileContent() = default;

  /// `length` bytes of a pattern.
  FileContent(uint64_t pattern, uint64_t length);

  uint64_t Length() const { return length; }

  /// Fills `into` from `offset` on, up to the end of the file; how many bytes that were.
  size_t ReadAt(uint64_t offset, std::span<uint8_t> into) const;

  /// `known`: the patterns that the bytes may belong to.
  void WriteAt(uint64_t offset, std::span<const uint8_t> bytes, const Patterns& known);

  bool SameAs(const FileContent& other) const;

 private:
  bool FollowsPattern(uint64_t offset, std::span<const uint8_t> bytes, const Patterns& known);
  void Store(uint64_t offset, std::span<const uint8_t> bytes);
  bool IsPattern() const { return pattern && patternBytes.Covers(0, length); }

  uint64_t length = 0;
  std::optional<uint64_t> pattern;
  bool patternDecided = false;
  ByteRanges patternBytes;                          ///< What is not in `chunks` but follows from the pattern.
  std::map<uint64_t, std::vector<uint8_t>> chunks;  ///< By number; each holds its bytes up to the last written one.
};

}  // namespace quorl::sim
