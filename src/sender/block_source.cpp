#include "sender/block_source.h"

#include <algorithm>
#include <cassert>

namespace quorl {

namespace {

std::optional<FileShape> MeasureFile(InputFile& file) {
  const auto length = file.Length();
  return length ? FileShape::Of(*length) : std::nullopt;
}

}  // namespace

/// While the disk has the thread.
class BlockSource::Waiting {
 public:
  explicit Waiting(BlockSource& source) : source(source) { source.waitingSince = source.clock.Now(); }
  ~Waiting() { source.waitingSince = NEVER; }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  BlockSource& source;
};

bool BlockSource::Open(Files& files, const std::string& path, const std::optional<FileShape>& pinned) {
  const Waiting waiting(*this);
  ahead.clear();
  file = files.OpenInput(path);
  if (!file) return false;
  const auto known = pinned ? pinned : MeasureFile(*file);
  if (known) {
    shape = *known;
    isPinned = pinned.has_value();
  } else {
    file.reset();
  }
  return known.has_value();
}

std::optional<BlockSource::Block> BlockSource::Read(uint32_t block, std::span<uint8_t> into) {
  assert(file);
  const size_t expected = block <= shape.lastBlock ? shape.BytesInBlock(block) : 0;
  const size_t wanted = isPinned ? expected : BLOCK_SIZE;
  if (wanted == 0) return Block{};
  if (!isPinned || blocksAhead == 1) {
    const auto bytes = ReadFile(FileShape::BlockOffset(block), into.first(wanted));
    if (!bytes) return std::nullopt;
    return Block{*bytes, *bytes < expected};
  }
  const uint64_t offset = FileShape::BlockOffset(block);
  const bool isThere = offset >= aheadFrom && offset < aheadFrom + ahead.size();
  if (!isThere && !Fetch(block)) return std::nullopt;
  const auto rest = std::span(ahead).subspan(static_cast<size_t>(offset - aheadFrom));
  const size_t bytes = std::min(rest.size(), wanted);
  std::copy_n(rest.begin(), bytes, into.begin());
  return Block{bytes, bytes < expected};
}

std::optional<BlockSource::Block> BlockSource::ReadRun(uint32_t first, uint32_t count, std::span<uint8_t> into) {
  assert(file && isPinned && first + count - 1 <= shape.lastBlock);
  const size_t expected = (count - 1) * BLOCK_SIZE + shape.BytesInBlock(first + count - 1);
  if (expected == 0) return Block{};
  const auto bytes = ReadFile(FileShape::BlockOffset(first), into.first(expected));
  if (!bytes) return std::nullopt;
  return Block{*bytes, *bytes < expected};
}

bool BlockSource::Fetch(uint32_t block) {
  aheadFrom = FileShape::BlockOffset(block);
  const uint64_t inFile = shape.Length() - aheadFrom;
  ahead.resize(static_cast<size_t>(std::min<uint64_t>(blocksAhead * BLOCK_SIZE, inFile)));
  const auto bytes = ReadFile(aheadFrom, ahead);
  ahead.resize(bytes.value_or(0));
  return bytes.has_value();
}

std::optional<size_t> BlockSource::ReadFile(uint64_t offset, std::span<uint8_t> into) {
  const Waiting waiting(*this);
  return file->ReadAt(offset, into);
}

bool BlockSource::IsStuckFor(Duration limit) const {
  const Moment since = waitingSince;
  return since != NEVER && clock.Now() - since >= limit;
}

}  // namespace quorl
