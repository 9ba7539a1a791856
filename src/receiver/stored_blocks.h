#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "protocol/blocks.h"
#include "receiver/lost_map.h"

namespace quorl {

/// Whether a block can belong to the announced transfer, or why not.
enum class Admission {
  Admitted,
  BeyondFileCount,  ///< A file number above the announced ones, or 0.
  BeyondTotal,      ///< More blocks than were announced in all.
  SecondShape,      ///< A file that is known with another last block, tail or name.
};

/// What of an announced transfer is on the disk: for each file, once a block of it has come, its shape, its name and
/// one bit a block. Memory is bounded by what was announced. Not for several threads at once.
class StoredBlocks {
 public:
  StoredBlocks() = default;
  StoredBlocks(uint32_t fileCount, uint32_t totalBlocks) : fileCount(fileCount), totalBlocks(totalBlocks) {}

  /// Learns a file's shape and name from its first block.
  Admission Admit(uint32_t file, FileShape shape, std::string_view name);

  /// Whether the transfer may have such a block, as far as its files are known; of an unknown file only block 0.
  bool MayExist(LostBlock block) const;

  /// `count` blocks from `firstBlock` on are on the disk. Their file has been admitted.
  void Store(uint32_t file, uint32_t firstBlock, uint32_t count);

  bool IsStored(LostBlock block) const;
  /// Whether any block of the file is stored.
  bool HasStored(uint32_t file) const;

  /// A file could not be opened or written; `status` says why. True when that is news.
  bool Fail(uint32_t file, uint32_t status);
  bool IsFailed(uint32_t file) const { return failedFiles.contains(file); }

  /// Calls `visit` with each block that is not stored, of files that have not failed, in order; block 0 stands for a
  /// file never seen. Ends early when `visit` returns false.
  void ForEachMissing(const std::function<bool(LostBlock)>& visit) const;

  /// Every block of every file is stored, and no file has failed.
  bool IsWhole() const;

  uint64_t TotalBlocks() const { return totalBlocks; }
  uint64_t StoredCount() const { return storedBlocks; }
  /// Blocks not stored, of files that have not failed, as far as known: one for a file never seen.
  uint64_t MissingCount() const;
  uint64_t BlocksOfFailedFiles() const;
  uint32_t FailedFiles() const { return static_cast<uint32_t>(failedFiles.size()); }
  /// Why the first file failed; 0 when none has.
  uint32_t FirstFailure() const { return firstFailure; }

 private:
  struct FileRecord {
    FileShape shape;
    std::string name;
    uint64_t stored = 0;
    std::vector<bool> bits;

    bool IsWhole() const { return stored == shape.BlockCount(); }
  };

  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;
  uint64_t knownBlocks = 0;
  uint64_t storedBlocks = 0;
  uint32_t firstFailure = 0;
  std::map<uint32_t, FileRecord> files;
  std::map<uint32_t, uint32_t> failedFiles;  // with their status
};

}  // namespace quorl
