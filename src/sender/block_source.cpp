#include "sender/block_source.h"

#include <cassert>

namespace quorl {

namespace {

std::optional<FileShape> MeasureFile(InputFile& file) {
  const auto length = file.Length();
  return length ? FileShape::Of(*length) : std::nullopt;
}

}  // namespace

bool BlockSource::Open(Files& files, const std::string& path, const std::optional<FileShape>& announced) {
  file = files.OpenInput(path);
  if (!file) return false;
  const auto known = announced ? announced : MeasureFile(*file);
  if (known) {
    shape = *known;
  } else {
    file.reset();
  }
  return known.has_value();
}

std::optional<BlockSource::Block> BlockSource::Read(uint32_t block, std::span<uint8_t> into) {
  assert(file);
  const size_t expected = block <= shape.lastBlock ? shape.BytesInBlock(block) : 0;
  if (expected == 0) return Block{};
  const auto bytes = file->ReadAt(FileShape::BlockOffset(block), into.first(expected));
  if (!bytes) return std::nullopt;
  return Block{*bytes, *bytes < expected};
}

}  // namespace quorl
