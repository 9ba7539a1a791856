// The record that decides whether a transfer is complete. The receive loop asks it which blocks belong to the transfer
// and what is still missing; the writer tells it what has reached the disk. Both under one lock of their own.
#include "receiver/stored_blocks.h"

#include <algorithm>
#include <cassert>

namespace quorl {

Admission StoredBlocks::Admit(uint32_t file, FileShape shape, std::string_view name) {
  if (file == 0 || file > fileCount) return Admission::BeyondFileCount;
  if (const auto known = files.find(file); known != files.end()) {
    const bool same = known->second.shape == shape && known->second.name == name;
    return same ? Admission::Admitted : Admission::SecondShape;
  }
  // Every other file that is still unknown has at least one block.
  const uint64_t unknownOthers = uint64_t{fileCount} - files.size() - 1;
  if (knownBlocks + shape.BlockCount() + unknownOthers > totalBlocks) return Admission::BeyondTotal;
  knownBlocks += shape.BlockCount();
  files[file] = {shape, std::string(name), 0, std::vector<bool>(shape.BlockCount())};
  return Admission::Admitted;
}

bool StoredBlocks::MayExist(LostBlock block) const {
  if (block.file == 0 || block.file > fileCount) return false;
  const auto known = files.find(block.file);
  return block.block <= (known == files.end() ? 0 : known->second.shape.lastBlock);
}

void StoredBlocks::Store(uint32_t file, uint32_t firstBlock, uint32_t count) {
  const auto known = files.find(file);
  assert(known != files.end() && uint64_t{firstBlock} + count <= known->second.bits.size());
  for (uint32_t block = firstBlock; block < firstBlock + count; ++block) {
    if (known->second.bits[block]) continue;
    known->second.bits[block] = true;
    ++known->second.stored;
    ++storedBlocks;
  }
}

bool StoredBlocks::IsStored(LostBlock block) const {
  const auto known = files.find(block.file);
  return known != files.end() && block.block < known->second.bits.size() && known->second.bits[block.block];
}

bool StoredBlocks::HasStored(uint32_t file) const {
  const auto known = files.find(file);
  return known != files.end() && known->second.stored > 0;
}

bool StoredBlocks::Fail(uint32_t file, uint32_t status) {
  // Before anything is announced one file is remembered, so that forged numbers take no memory.
  if (failedFiles.size() >= std::max<size_t>(fileCount, 1)) return false;
  if (firstFailure == 0) firstFailure = status;
  return failedFiles.emplace(file, status).second;
}

void StoredBlocks::ForEachMissing(const std::function<bool(LostBlock)>& visit) const {
  auto known = files.begin();
  for (uint64_t file = 1; file <= fileCount; ++file) {
    const auto number = static_cast<uint32_t>(file);
    if (known == files.end() || known->first != number) {
      if (!IsFailed(number) && !visit({number, 0})) return;
      continue;
    }
    const FileRecord& record = (known++)->second;
    if (record.IsWhole() || IsFailed(number)) continue;
    for (uint32_t block = 0; block < record.bits.size(); ++block)
      if (!record.bits[block] && !visit({number, block})) return;
  }
}

bool StoredBlocks::IsWhole() const {
  return failedFiles.empty() && files.size() == fileCount && storedBlocks == knownBlocks;
}

uint64_t StoredBlocks::MissingCount() const {
  uint64_t missing = knownBlocks - storedBlocks + (fileCount - files.size());
  for (const auto& [file, status] : failedFiles) {
    const auto known = files.find(file);
    if (known != files.end()) missing -= known->second.shape.BlockCount() - known->second.stored;
  }
  return missing;
}

uint64_t StoredBlocks::BlocksOfFailedFiles() const {
  uint64_t blocks = 0;
  for (const auto& [file, status] : failedFiles) {
    const auto known = files.find(file);
    blocks += known == files.end() ? 1 : known->second.shape.BlockCount();
  }
  return blocks;
}

}  // namespace quorl
