#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "protocol/block_ranges.h"
#include "protocol/datagrams.h"
#include "receiver/blocks/block_bits.h"
#include "receiver/blocks/lost_block.h"

namespace quorl {

/// Whether a block is taken, or why not.
enum class Admission {
  Admitted,
  Unannounced,      ///< Nothing has been announced that it could belong to.
  BeyondFileCount,  ///< A file number above the announced ones.
  BeyondTotal,      ///< More blocks than were announced, as far as they are taken.
  BeyondLast,       ///< A block after its file's last.
  SecondShape,      ///< A file that is known with another last block, tail or name.
  QueueFull,        ///< The writer has not come that far.
};

/// What a receiver knows of the blocks of one transfer: which have come, which are on the disk, which are entered as
/// missing. It decides whether the transfer is complete. A file's place in it begins with its first block. Not for
/// several threads at once; SharedRecord is.
class BlockRecord {
 public:
  /// A new transfer: nothing has come. Its generation, by which later calls name it.
  uint32_t Begin(uint32_t fileCount, uint32_t totalBlocks);

  /// 0 before the first transfer.
  uint32_t Generation() const { return generation; }
  uint32_t FileCount() const { return fileCount; }
  uint32_t TotalBlocks() const { return totalBlocks; }
  /// Blocks that are taken or entered as missing at most, whatever shapes the files have.
  uint64_t Room() const;

  /// These are on the disk already. Of a file with a range that does not fit the announcement nothing is taken.
  void Hold(const BlockRanges& ranges);
  /// What is on the disk, with the lengths of the files.
  std::vector<BlockRange> StoredRanges() const;

  // ---- what comes ----

  /// Takes what belongs to the transfer as announced; each file keeps the shape and the name of its first block.
  Admission AdmitAnnounced(const BlockHead& head);

  /// Takes anything, within twice the announced number of blocks and some more. A file that comes with two shapes or
  /// names never counts as stored; under another name it takes its room once more, as it may be another file on disk.
  Admission AdmitAnything(const BlockHead& head);

  /// An admitted block has come. True when it had not before.
  bool Receive(LostBlock block);
  /// Takes back what has come and has not been stored, of files that have not failed: it must come again.
  void ForgetUnstored();
  /// The first block that has not come, of a file that has not failed; block 0 stands for a file never seen.
  std::optional<LostBlock> FirstNotReceived();
  /// The same, from `from` on.
  std::optional<LostBlock> FirstNotReceived(LostBlock from) const;
  bool IsReceived(LostBlock block) const;
  /// Blocks that have not come, those of files never seen included, and all blocks of failed files.
  uint64_t NotReceivedCount() const;
  /// The last block of the last file; nothing while that has not come.
  std::optional<LostBlock> LastOfTransfer() const;

  // ---- what is entered as missing ----

  /// False when there is no room for it.
  bool Lose(LostBlock block);
  /// It has come. True when it was missing.
  bool Find(LostBlock block);
  bool IsLost(LostBlock block) const;
  std::optional<LostBlock> FirstLost();
  uint64_t LostCount() const { return lostBlocks; }
  void ForgetLost();

  // ---- the disk ----

  void Store(uint32_t ofGeneration, uint32_t file, uint32_t firstBlock, uint32_t count);
  /// Whether any block of the file is stored.
  bool HasStored(uint32_t ofGeneration, uint32_t file) const;
  /// A file could not be opened or written; `status` says why. True when that is news.
  bool Fail(uint32_t ofGeneration, uint32_t file, uint32_t status);
  bool IsFailed(uint32_t ofGeneration, uint32_t file) const;
  /// What is on the disk of the file is not what was sent for it alone.
  void Spoil(uint32_t ofGeneration, uint32_t file);

  /// Every block of every announced file is stored, and no file has failed.
  bool IsWhole() const;
  uint64_t StoredCount() const { return storedBlocks; }
  uint64_t StoredBytes() const { return storedBytes; }
  uint32_t FailedFiles() const { return static_cast<uint32_t>(failedFiles.size()); }
  /// Why the first file failed; 0 when none has.
  uint32_t FirstFailure() const { return firstFailure; }

 private:
  struct FileRecord {
    std::optional<FileShape> shape;  ///< Of the latest block; nothing while none has come.
    bool named = true;               ///< Of one that was held nothing but its length is known until a block comes.
    size_t nameHash = 0;
    bool spoiled = false;
    uint64_t extent = 0;  ///< Blocks that it has room for.
    BlockBits received;
    BlockBits stored;
    BlockBits lost;

    bool IsStored() const { return shape && !spoiled && stored.Count() == shape->BlockCount(); }
  };

  bool IsCurrent(uint32_t ofGeneration) const { return ofGeneration == generation && generation != 0; }
  FileRecord* Known(uint32_t file);
  const FileRecord* Known(uint32_t file) const;
  FileRecord* MakeRoom(LostBlock block);
  void SetStored(FileRecord& record, bool wasStored);

  uint32_t generation = 0;
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;
  std::map<uint32_t, FileRecord> files;
  std::map<uint32_t, uint32_t> failedFiles;  // with their status
  uint32_t firstFailure = 0;
  uint32_t shapedFiles = 0;     // of the announced ones, those of which a block has come
  uint64_t shapedBlocks = 0;    // theirs
  uint64_t extents = 0;         // of all files together
  uint64_t receivedBlocks = 0;  // of files that have not failed
  uint64_t storedBlocks = 0;
  uint64_t storedBytes = 0;  // of contents
  uint64_t lostBlocks = 0;
  size_t lostFiles = 0;  // known by nothing but missing blocks
  uint32_t storedFiles = 0;
  uint32_t receivedUpTo = 1;  // every file below this one has come or failed
  uint32_t noneLostBelow = 1;
};

/// The record as the threads of a receiver share it.
class SharedRecord {
 public:
  /// What `use` returns, called with the record, alone.
  template <typename Use>
  auto With(Use use) {
    const std::scoped_lock locked(lock);
    return use(record);
  }

 private:
  std::mutex lock;
  BlockRecord record;
};

}  // namespace quorl
