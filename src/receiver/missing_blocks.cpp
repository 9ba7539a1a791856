#include "receiver/missing_blocks.h"

#include <algorithm>

namespace quorl {

uint32_t MissingBlocks::Begin(uint32_t fileCount, uint32_t totalBlocks) {
  Clear();
  const std::scoped_lock locked(lostLock);
  // LostThread may have entered a block of the earlier transfer since.
  lostMap.Clear();
  stored = StoredBlocks(fileCount, totalBlocks);
  return ++generation;
}

void MissingBlocks::Clear() {
  {
    const std::scoped_lock locked(gapLock);
    gapList.clear();
  }
  const std::scoped_lock locked(lostLock);
  lostMap.Clear();
}

Admission MissingBlocks::Admit(const BlockHead& head) {
  const std::scoped_lock locked(lostLock);
  return stored.Admit(head.file, head.Shape(), head.name.Text());
}

void MissingBlocks::AddGap(const GapRecord& gap) {
  TakenGap taken{gap, 0, 0};
  {
    const std::scoped_lock locked(lostLock);
    taken.generation = generation;
    taken.blockLimit = stored.TotalBlocks();
  }
  {
    const std::scoped_lock locked(gapLock);
    if (!expansionEnded) {
      if (gapList.size() < GAP_LIMIT) {
        gapList.push_back(taken);
        counters.Raise(Count::GapsHighWater, gapList.size());
      } else {
        counters.Add(Count::RefusedGaps);
      }
      return;
    }
  }
  Expand(taken);
}

bool MissingBlocks::IsClear() {
  {
    const std::scoped_lock locked(gapLock);
    if (!gapList.empty()) return false;
  }
  const std::scoped_lock locked(lostLock);
  return lostMap.IsEmpty();
}

bool MissingBlocks::Contains(LostBlock block) {
  const std::scoped_lock locked(lostLock);
  return lostMap.Contains(block);
}

void MissingBlocks::Remove(LostBlock block) {
  const std::scoped_lock locked(lostLock);
  lostMap.Remove(block);
}

std::optional<LostBlock> MissingBlocks::First() {
  const std::scoped_lock locked(lostLock);
  return lostMap.First();
}

void MissingBlocks::EnterBlocks(uint32_t file, uint64_t first, uint32_t last) {
  const std::scoped_lock locked(lostLock);
  for (uint64_t block = first; block <= last; ++block)
    if (!Enter({file, static_cast<uint32_t>(block)})) return;
}

void MissingBlocks::EnterFiles(uint64_t first, uint32_t last) {
  const std::scoped_lock locked(lostLock);
  for (uint64_t file = first; file <= last; ++file)
    if (!Enter({static_cast<uint32_t>(file), 0})) return;
}

void MissingBlocks::EnterUnstored() {
  const std::scoped_lock locked(lostLock);
  stored.ForEachMissing([this](LostBlock block) { return Enter(block); });
}

void MissingBlocks::EnterOneUnstored(LostBlock preferred) {
  const std::scoped_lock locked(lostLock);
  if (stored.MayExist(preferred) && !stored.IsStored(preferred) && !stored.IsFailed(preferred.file)) {
    Enter(preferred);
    return;
  }
  stored.ForEachMissing([this](LostBlock block) {
    Enter(block);
    return false;
  });
}

uint32_t MissingBlocks::CountForAnswer() {
  const std::scoped_lock locked(lostLock);
  // A full map says only that there is more.
  const uint64_t repairable =
      lostMap.Size() < LostMap::LIMIT ? lostMap.Size() : std::max<uint64_t>(lostMap.Size(), stored.MissingCount());
  return static_cast<uint32_t>(std::min<uint64_t>(repairable + stored.BlocksOfFailedFiles(), UINT32_MAX));
}

std::optional<MissingBlocks::TakenGap> MissingBlocks::TakeGap() {
  const std::scoped_lock locked(gapLock);
  if (gapList.empty()) return std::nullopt;
  const TakenGap gap = gapList.front();
  gapList.pop_front();
  return gap;
}

bool MissingBlocks::EnterExpanded(uint32_t ofGeneration, LostBlock block) {
  const std::scoped_lock locked(lostLock);
  return ofGeneration == generation && Enter(block);
}

bool MissingBlocks::EndExpansion() {
  const std::scoped_lock locked(gapLock);
  expansionEnded = gapList.empty();
  return expansionEnded;
}

bool MissingBlocks::IsCurrent(uint32_t ofGeneration) {
  const std::scoped_lock locked(lostLock);
  return ofGeneration == generation;
}

void MissingBlocks::Store(uint32_t ofGeneration, uint32_t file, uint32_t firstBlock, uint32_t count) {
  const std::scoped_lock locked(lostLock);
  // Before an announcement there is nothing to measure against.
  if (ofGeneration == generation && generation != 0) stored.Store(file, firstBlock, count);
}

bool MissingBlocks::IsStored(uint32_t ofGeneration, LostBlock block) {
  const std::scoped_lock locked(lostLock);
  return ofGeneration == generation && stored.IsStored(block);
}

bool MissingBlocks::HasStored(uint32_t ofGeneration, uint32_t file) {
  const std::scoped_lock locked(lostLock);
  return ofGeneration == generation && stored.HasStored(file);
}

bool MissingBlocks::Fail(uint32_t ofGeneration, uint32_t file, uint32_t status) {
  const std::scoped_lock locked(lostLock);
  if (ofGeneration != generation) return false;
  lostMap.RemoveFile(file);
  return stored.Fail(file, status);
}

bool MissingBlocks::IsFailed(uint32_t ofGeneration, uint32_t file) {
  const std::scoped_lock locked(lostLock);
  return ofGeneration == generation && stored.IsFailed(file);
}

bool MissingBlocks::IsWhole() {
  const std::scoped_lock locked(lostLock);
  return generation != 0 && stored.IsWhole();
}

uint32_t MissingBlocks::FileFailure() {
  const std::scoped_lock locked(lostLock);
  return stored.FirstFailure();
}

MissingBlocks::Counts MissingBlocks::Count() {
  const std::scoped_lock locked(lostLock);
  return {stored.StoredCount(), lostMap.Size() + stored.BlocksOfFailedFiles(), stored.FailedFiles()};
}

bool MissingBlocks::Enter(LostBlock block) {
  if (!stored.MayExist(block) || stored.IsFailed(block.file)) return true;
  const bool entered = lostMap.Enter(block);
  if (entered) {
    counters.Raise(Count::MissingHighWater, lostMap.Size());
  } else {
    counters.Add(Count::RefusedMissing);
  }
  return entered;
}

void MissingBlocks::Expand(const TakenGap& gap) {
  GapExpansion expansion(gap.record, gap.blockLimit);
  const std::scoped_lock locked(lostLock);
  while (const std::optional<LostBlock> block = expansion.Next())
    if (!Enter(*block)) return;
}

}  // namespace quorl
