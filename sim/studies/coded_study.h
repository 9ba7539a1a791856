#pragma once

#include <cstdint>

namespace quorl::sim {

struct CodedStudyOptions {
  uint64_t rooms = 1000;  ///< Of those that lose a fifth in all directions.
  unsigned threads = 1;
};

/// What the stream in symbols achieves: big rooms with loss, a narrow link behind a fast one, a slow disk, and many
/// rooms that lose a fifth of everything. Prints its tables as it goes, in the form in which they stand in
/// docs/reliability.md.
void RunCodedStudy(const CodedStudyOptions& options);

}  // namespace quorl::sim
