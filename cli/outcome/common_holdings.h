// What all receivers of a room have already, decided on what each of them says.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "cli/talk/messages.h"

namespace quorl::cli {

/// What one receiver has of the files of a catalogue. Whatever it says is kept within these files.
class Holdings {
 public:
  /// `blocks`: of each file.
  explicit Holdings(const std::vector<uint64_t>& blocks) : blocks(blocks) {}

  void Add(const Have::Run& run);

  using Range = std::pair<uint64_t, uint64_t>;  ///< First block, and the one behind the last.
  using Ranges = std::map<size_t, std::vector<Range>>;
  const Ranges& Has() const { return has; }
  const std::set<size_t>& Asks() const { return asks; }

  /// What is left of it when only what `other` has as well counts.
  void Intersect(const Holdings& other);

 private:
  std::vector<uint64_t> blocks;
  Ranges has;
  std::set<size_t> asks;
  size_t runs = 0;
};

}  // namespace quorl::cli
