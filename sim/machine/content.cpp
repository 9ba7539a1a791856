// Content of simulated files. A position has one of three sources: the pattern, where `patternBytes` holds it; else a
// chunk; else it is zero. The first write of some length decides whether a file follows a pattern at all.
#include "sim/machine/content.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "sim/world/random.h"

namespace quorl::sim {

namespace {

constexpr uint64_t CHUNK_BYTES = 64 * 1024;

/// Bytes of a pattern that follow from each other.
constexpr size_t GROUP_BYTES = 512;
constexpr uint64_t WORD_STEP = 0x9E3779B97F4A7C15;

// Fewer bytes could belong to another pattern by chance.
constexpr size_t TELLING_BYTES = 16;

void FillGroup(uint64_t word, uint8_t* out) {
  for (size_t byte = 0; byte < GROUP_BYTES; byte += sizeof word, word += WORD_STEP)
    std::memcpy(out + byte, &word, sizeof word);
}

bool Follows(uint64_t pattern, uint64_t offset, std::span<const uint8_t> bytes) {
  std::array<uint8_t, 1024> expected;
  size_t pieceSize = TELLING_BYTES;
  while (!bytes.empty()) {
    const auto piece = bytes.first(std::min(pieceSize, bytes.size()));
    FillPattern(pattern, offset, std::span(expected).first(piece.size()));
    if (!std::equal(piece.begin(), piece.end(), expected.begin())) return false;
    offset += piece.size();
    bytes = bytes.subspan(piece.size());
    pieceSize = expected.size();
  }
  return true;
}

}  // namespace

// Mixing each word would take as long as all the rest of a simulated transfer: only each group of them is mixed.
void FillPattern(uint64_t pattern, uint64_t offset, std::span<uint8_t> into) {
  const uint64_t end = offset + into.size();
  uint8_t* out = into.data();
  for (uint64_t position = offset; position < end;) {
    const size_t begin = static_cast<size_t>(position % GROUP_BYTES);
    const size_t count = static_cast<size_t>(std::min<uint64_t>(GROUP_BYTES - begin, end - position));
    const uint64_t first = Mix(pattern + position / GROUP_BYTES);
    if (count == GROUP_BYTES) {
      FillGroup(first, out);
    } else {
      std::array<uint8_t, GROUP_BYTES> group;
      FillGroup(first, group.data());
      std::copy_n(group.data() + begin, count, out);
    }
    out += count;
    position += count;
  }
}

void ByteRanges::Add(uint64_t begin, uint64_t end) {
  if (begin >= end) return;
  auto next = ranges.upper_bound(begin);
  if (next != ranges.begin() && std::prev(next)->second >= begin) {
    --next;
    begin = next->first;
  }
  while (next != ranges.end() && next->first <= end) {
    end = std::max(end, next->second);
    next = ranges.erase(next);
  }
  ranges.emplace_hint(next, begin, end);
}

void ByteRanges::Remove(uint64_t begin, uint64_t end) {
  std::vector<std::pair<uint64_t, uint64_t>> cut;
  ForEach(begin, end, [&](uint64_t from, uint64_t to) { cut.emplace_back(from, to); });
  for (const auto& [from, to] : cut) {
    const auto range = std::prev(ranges.upper_bound(from));
    const uint64_t oldEnd = range->second;
    if (range->first == from) {
      ranges.erase(range);
    } else {
      range->second = from;
    }
    if (to < oldEnd) ranges.emplace(to, oldEnd);
  }
}

bool ByteRanges::Covers(uint64_t begin, uint64_t end) const {
  const auto next = ranges.upper_bound(begin);
  return begin >= end || (next != ranges.begin() && std::prev(next)->second >= end);
}

FileContent::FileContent(uint64_t pattern, uint64_t length) : length(length), pattern(pattern), patternDecided(true) {
  patternBytes.Add(0, length);
}

size_t FileContent::ReadAt(uint64_t offset, std::span<uint8_t> into) const {
  if (offset >= length) return 0;
  into = into.first(static_cast<size_t>(std::min<uint64_t>(into.size(), length - offset)));
  const uint64_t end = offset + into.size();
  if (patternBytes.Covers(offset, end)) {
    FillPattern(*pattern, offset, into);
    return into.size();
  }
  std::fill(into.begin(), into.end(), uint8_t{0});
  for (auto chunk = chunks.lower_bound(offset / CHUNK_BYTES); chunk != chunks.end(); ++chunk) {
    const uint64_t chunkBegin = chunk->first * CHUNK_BYTES;
    if (chunkBegin >= end) break;
    const uint64_t from = std::max(offset, chunkBegin);
    const uint64_t to = std::min(end, chunkBegin + chunk->second.size());
    if (from < to) std::copy_n(chunk->second.data() + (from - chunkBegin), to - from, into.data() + (from - offset));
  }
  patternBytes.ForEach(offset, end, [&](uint64_t from, uint64_t to) {
    FillPattern(*pattern, from, into.subspan(from - offset, to - from));
  });
  return into.size();
}

void FileContent::WriteAt(uint64_t offset, std::span<const uint8_t> bytes, const Patterns& known) {
  if (bytes.empty()) return;
  const uint64_t end = offset + bytes.size();
  if (FollowsPattern(offset, bytes, known)) {
    patternBytes.Add(offset, end);
  } else {
    patternBytes.Remove(offset, end);
    Store(offset, bytes);
  }
  length = std::max(length, end);
}

bool FileContent::FollowsPattern(uint64_t offset, std::span<const uint8_t> bytes, const Patterns& known) {
  const auto follows = [&](uint64_t candidate) { return Follows(candidate, offset, bytes); };
  if (!patternDecided && bytes.size() >= TELLING_BYTES) {
    patternDecided = true;
    const auto found = std::find_if(known.begin(), known.end(), follows);
    if (found != known.end()) pattern = *found;
    return pattern.has_value();
  }
  return pattern && follows(*pattern);
}

void FileContent::Store(uint64_t offset, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const size_t within = static_cast<size_t>(offset % CHUNK_BYTES);
    const size_t count = std::min(bytes.size(), static_cast<size_t>(CHUNK_BYTES) - within);
    std::vector<uint8_t>& chunk = chunks[offset / CHUNK_BYTES];
    if (chunk.size() < within + count) chunk.resize(within + count);
    std::copy_n(bytes.begin(), count, chunk.begin() + static_cast<std::ptrdiff_t>(within));
    offset += count;
    bytes = bytes.subspan(count);
  }
}

bool FileContent::SameAs(const FileContent& other) const {
  if (length != other.length) return false;
  if (pattern == other.pattern && IsPattern() && other.IsPattern()) return true;
  std::vector<uint8_t> mine(CHUNK_BYTES), others(CHUNK_BYTES);
  for (uint64_t offset = 0; offset < length; offset += CHUNK_BYTES) {
    const size_t count = ReadAt(offset, mine);
    other.ReadAt(offset, others);
    if (!std::equal(mine.begin(), mine.begin() + static_cast<std::ptrdiff_t>(count), others.begin())) return false;
  }
  return true;
}

}  // namespace quorl::sim
