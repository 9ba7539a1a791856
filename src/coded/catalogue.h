// The list of what a coded transfer carries. It travels in symbols of its own, in front of the contents.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "protocol/blocks.h"

namespace quorl {

/// A list may have so many bytes; it is held in memory as a whole at either end.
inline constexpr size_t LONGEST_CATALOGUE = 16 << 20;

/// Names are as they travel in a name field, and no longer.
struct Catalogue {
  struct File {
    std::string name;
    FileShape shape;
  };

  std::string autoOpenName;  ///< "": none.
  std::vector<File> files;
  std::vector<std::string> directories;  ///< That no file creates.
};

std::vector<uint8_t> BuildCatalogue(const Catalogue& catalogue);

/// Nothing when the bytes are not a whole catalogue of so many files and blocks.
std::optional<Catalogue> ParseCatalogue(std::span<const uint8_t> bytes, uint32_t fileCount, uint32_t totalBlocks);

}  // namespace quorl
