#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

/// As far as it can be read. Writing takes the place of what is there.
Kept ReadRecord(const Directory& staging);
SystemError WriteRecord(const Directory& staging, const Kept& kept);

}  // namespace quorl::cli
