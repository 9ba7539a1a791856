// The record that decides whether a transfer is complete. The receive loop's rules ask it what belongs to the transfer
// and what is missing; the writer tells it what has reached the disk.
//
// Its memory follows what was announced: each file has room for the blocks up to its highest known one, and the room of
// all files together is bounded. That bound is also the one on what a sender can fill a disk with.
#include "receiver/blocks/block_record.h"

#include <algorithm>
#include <functional>
#include <string_view>

namespace quorl {

namespace {

// Blocks beyond those announced that are taken where files may have grown since, beside as many again as announced.
constexpr uint64_t SPARE_BLOCKS = 65536;

// However much is announced: 1.1 TB, for which a bit a block takes 32 MB.
constexpr uint64_t BLOCKS_MAX = uint64_t{1} << 28;

// Blocks entered as missing, and files that are known by nothing but their missing first block.
constexpr uint64_t LOST_BLOCKS_MAX = uint64_t{1} << 21;
constexpr size_t LOST_FILES_MAX = 65536;

// As many as may fail before anything was announced, so that invented numbers take no memory.
constexpr size_t UNANNOUNCED_FAILURES_MAX = 1;

size_t HashOf(const NameField& name) {
  return std::hash<std::string_view>()(name.Text());
}

}  // namespace

uint32_t BlockRecord::Begin(uint32_t newFileCount, uint32_t newTotalBlocks) {
  const uint32_t next = generation + 1;
  *this = BlockRecord();
  generation = next;
  fileCount = newFileCount;
  totalBlocks = newTotalBlocks;
  return generation;
}

uint64_t BlockRecord::Room() const {
  return std::min(2 * uint64_t{totalBlocks} + SPARE_BLOCKS, BLOCKS_MAX);
}

Admission BlockRecord::AdmitAnnounced(const BlockHead& head) {
  if (generation == 0) return Admission::Unannounced;
  if (head.file > fileCount) return Admission::BeyondFileCount;
  if (FileRecord* known = Known(head.file)) {
    if (!known->named) known->nameHash = HashOf(head.name);
    known->named = true;
    if (known->shape != head.Shape() || known->nameHash != HashOf(head.name)) return Admission::SecondShape;
    return head.block > head.lastBlock ? Admission::BeyondLast : Admission::Admitted;
  }
  if (head.block > head.lastBlock) return Admission::BeyondLast;
  // Every other file that is still unknown has at least one block.
  const uint64_t unknownOthers = uint64_t{fileCount} - shapedFiles - 1;
  const uint64_t blocks = head.Shape().BlockCount();
  if (shapedBlocks + blocks + unknownOthers > totalBlocks) return Admission::BeyondTotal;
  FileRecord& record = files[head.file];
  record.shape = head.Shape();
  record.nameHash = HashOf(head.name);
  ++shapedFiles;
  shapedBlocks += blocks;
  return Admission::Admitted;
}

Admission BlockRecord::AdmitAnything(const BlockHead& head) {
  const FileRecord* known = Known(head.file);
  const bool wasLost = known && !known->shape;
  FileRecord* record = MakeRoom({head.file, std::min(head.block, head.lastBlock)});
  if (!record) return Admission::BeyondTotal;
  const size_t nameHash = HashOf(head.name);
  const bool hasAnotherName = record->shape && record->nameHash != nameHash;
  if (hasAnotherName) {
    if (extents + record->extent > Room()) return Admission::BeyondTotal;
    extents += record->extent;
  }
  if (wasLost) --lostFiles;
  const bool wasStored = record->IsStored();
  record->spoiled = record->spoiled || hasAnotherName || (record->shape && record->shape != head.Shape());
  record->shape = head.Shape();
  record->nameHash = nameHash;
  SetStored(*record, wasStored);
  return Admission::Admitted;
}

void BlockRecord::Hold(const BlockRanges& ranges) {
  for (const auto& [file, held] : ranges.Files()) {
    const auto shape = FileShape::Of(held.front().length);
    if (file > fileCount || !shape || held.back().End() > shape->BlockCount()) continue;
    const uint64_t unknownOthers = uint64_t{fileCount} - shapedFiles - 1;
    if (shapedBlocks + shape->BlockCount() + unknownOthers > totalBlocks) continue;
    FileRecord& record = files[file];
    record.shape = shape;
    record.named = false;
    ++shapedFiles;
    shapedBlocks += shape->BlockCount();
    for (const BlockRange& range : held) {
      for (uint32_t block = range.first; block < range.End(); ++block) {
        record.received.Set(block);
        record.stored.Set(block);
      }
      receivedBlocks += range.count;
      storedBlocks += range.count;
    }
    SetStored(record, false);
  }
}

std::vector<BlockRange> BlockRecord::StoredRanges() const {
  std::vector<BlockRange> ranges;
  for (const auto& [file, record] : files) {
    if (!record.shape || record.spoiled || failedFiles.contains(file)) continue;
    const uint64_t length = record.shape->Length();
    for (uint64_t block = 0; block < record.shape->BlockCount(); ++block) {
      if (!record.stored.Test(static_cast<uint32_t>(block))) continue;
      const bool continues = !ranges.empty() && ranges.back().file == file && ranges.back().End() == block;
      if (!continues) ranges.push_back({file, static_cast<uint32_t>(block), 0, length});
      ++ranges.back().count;
    }
  }
  return ranges;
}

bool BlockRecord::Receive(LostBlock block) {
  FileRecord* record = Known(block.file);
  if (!record || !record->received.Set(block.block)) return false;
  if (!failedFiles.contains(block.file)) ++receivedBlocks;
  return true;
}

void BlockRecord::ForgetUnstored() {
  for (auto& [file, record] : files) {
    if (failedFiles.contains(file) || record.received.Count() == record.stored.Count()) continue;
    receivedBlocks -= record.received.Count() - record.stored.Count();
    record.received = record.stored;
    receivedUpTo = std::min(receivedUpTo, file);
  }
}

std::optional<LostBlock> BlockRecord::FirstNotReceived() {
  const auto first = FirstNotReceived({receivedUpTo, 0});
  receivedUpTo = first ? first->file : fileCount + 1;
  return first;
}

std::optional<LostBlock> BlockRecord::FirstNotReceived(LostBlock from) const {
  for (; from.file <= fileCount && from.file != 0; from = {from.file + 1, 0}) {
    if (failedFiles.contains(from.file)) continue;
    const FileRecord* record = Known(from.file);
    const uint64_t blocks = record ? record->shape->BlockCount() : 1;
    const uint64_t first = record ? record->received.FirstClear(from.block) : from.block;
    if (first < blocks) return LostBlock{from.file, static_cast<uint32_t>(first)};
  }
  return std::nullopt;
}

bool BlockRecord::IsReceived(LostBlock block) const {
  const FileRecord* record = Known(block.file);
  return record && record->received.Test(block.block);
}

// Once every file is known, their sum is truer than the announcement: a file may have shrunk in between.
uint64_t BlockRecord::NotReceivedCount() const {
  const uint64_t all = shapedFiles == fileCount ? shapedBlocks : totalBlocks;
  return all - std::min(all, receivedBlocks);
}

std::optional<LostBlock> BlockRecord::LastOfTransfer() const {
  const FileRecord* last = Known(fileCount);
  if (!last || !last->shape) return std::nullopt;
  return LostBlock{fileCount, last->shape->lastBlock};
}

bool BlockRecord::Lose(LostBlock block) {
  // Of a file beyond the announced ones no request can be made.
  if (block.file == 0 || block.file > fileCount || lostBlocks >= LOST_BLOCKS_MAX) return false;
  const bool isNew = !files.contains(block.file);
  if (isNew && lostFiles >= LOST_FILES_MAX) return false;
  FileRecord* record = MakeRoom(block);
  if (!record) return false;
  if (isNew) ++lostFiles;
  if (record->lost.Set(block.block)) ++lostBlocks;
  noneLostBelow = std::min(noneLostBelow, block.file);
  return true;
}

bool BlockRecord::Find(LostBlock block) {
  FileRecord* record = Known(block.file);
  if (!record || !record->lost.Clear(block.block)) return false;
  --lostBlocks;
  return true;
}

bool BlockRecord::IsLost(LostBlock block) const {
  const FileRecord* record = Known(block.file);
  return record && record->lost.Test(block.block);
}

std::optional<LostBlock> BlockRecord::FirstLost() {
  if (lostBlocks == 0) return std::nullopt;
  for (auto file = files.lower_bound(noneLostBelow); file != files.end(); ++file) {
    noneLostBelow = file->first;
    if (const auto first = file->second.lost.FirstSet()) return LostBlock{file->first, *first};
  }
  return std::nullopt;
}

void BlockRecord::ForgetLost() {
  for (auto& [file, record] : files) record.lost = BlockBits();
  lostBlocks = 0;
}

void BlockRecord::Store(uint32_t ofGeneration, uint32_t file, uint32_t firstBlock, uint32_t count) {
  FileRecord* record = IsCurrent(ofGeneration) && file <= fileCount ? Known(file) : nullptr;
  if (!record) return;
  const bool wasStored = record->IsStored();
  for (uint32_t block = firstBlock; block != firstBlock + count; ++block) {
    if (!record->stored.Set(block)) continue;
    ++storedBlocks;
    if (record->shape) storedBytes += record->shape->BytesInBlock(block);
  }
  SetStored(*record, wasStored);
}

bool BlockRecord::HasStored(uint32_t ofGeneration, uint32_t file) const {
  const FileRecord* record = IsCurrent(ofGeneration) ? Known(file) : nullptr;
  return record && record->stored.Count() > 0;
}

bool BlockRecord::Fail(uint32_t ofGeneration, uint32_t file, uint32_t status) {
  const size_t most = generation == 0 ? UNANNOUNCED_FAILURES_MAX : std::max<size_t>(fileCount, 1);
  if (ofGeneration != generation || failedFiles.size() >= most) return false;
  if (firstFailure == 0) firstFailure = status;
  if (!failedFiles.emplace(file, status).second) return false;
  if (const FileRecord* record = Known(file)) receivedBlocks -= record->received.Count();
  return true;
}

bool BlockRecord::IsFailed(uint32_t ofGeneration, uint32_t file) const {
  return ofGeneration == generation && failedFiles.contains(file);
}

void BlockRecord::Spoil(uint32_t ofGeneration, uint32_t file) {
  FileRecord* record = IsCurrent(ofGeneration) ? Known(file) : nullptr;
  if (!record) return;
  const bool wasStored = record->IsStored();
  record->spoiled = true;
  SetStored(*record, wasStored);
}

bool BlockRecord::IsWhole() const {
  return generation != 0 && failedFiles.empty() && storedFiles == fileCount;
}

BlockRecord::FileRecord* BlockRecord::Known(uint32_t file) {
  const auto known = files.find(file);
  return known == files.end() ? nullptr : &known->second;
}

const BlockRecord::FileRecord* BlockRecord::Known(uint32_t file) const {
  return const_cast<BlockRecord*>(this)->Known(file);
}

// The file's record with room for the block; nothing when all room is taken.
BlockRecord::FileRecord* BlockRecord::MakeRoom(LostBlock block) {
  FileRecord* record = Known(block.file);
  const uint64_t extent = uint64_t{block.block} + 1;
  const uint64_t has = record ? record->extent : 0;
  if (extent > has) {
    if (extents + (extent - has) > Room()) return nullptr;
    extents += extent - has;
    if (!record) record = &files[block.file];
    record->extent = extent;
  }
  return record;
}

// After a change to a record that may have made it stored, or no longer so.
void BlockRecord::SetStored(FileRecord& record, bool wasStored) {
  if (record.IsStored() == wasStored) return;
  storedFiles = wasStored ? storedFiles - 1 : storedFiles + 1;
}

}  // namespace quorl
