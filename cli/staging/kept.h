#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/system/files.h"

namespace quorl::cli {

/// The record of a staging directory that a broken transfer has left, in that directory. One that holds it is not
/// removed as stale: the next sending of the same files goes on from there. It is written now and then while a transfer
/// arrives, for a receiver that is killed.
inline constexpr std::string_view RECORD_NAME = ".quorl-record";

/// Which blocks of which files are there. A file is the one that is sent when name, size and time agree; its digest has
/// the last word all the same.
struct Kept {
  struct File {
    uint64_t size = 0;
    FileTime written;
    std::vector<std::pair<uint32_t, uint32_t>> blocks;  ///< First and count, in ascending order.

    bool IsWhole() const;
  };
  std::map<std::string, File> files;  ///< By the names that they travel under.

  uint64_t Bytes() const;
};

/// The text of a record, file by file: of a transfer that arrives there may be very many.
class RecordText {
 public:
  void AddFile(const std::string& name, uint64_t size, FileTime written);
  /// Of that file, in ascending order.
  void AddBlocks(uint32_t first, uint32_t count);
  /// To be called once.
  std::string Finish();

 private:
  CatalogueText catalogue;
  std::string blocks;
  size_t files = 0;
};

/// As far as it can be read. Writing takes the place of what is there.
Kept ReadRecord(const Directory& staging);
SystemError WriteRecord(const Directory& staging, const Kept& kept);
SystemError WriteRecord(const Directory& staging, RecordText text);

}  // namespace quorl::cli
