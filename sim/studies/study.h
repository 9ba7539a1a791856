#pragma once

#include <chrono>
#include <cstdint>

namespace quorl::sim {

struct StudyOptions {
  uint64_t rooms = 1000;              ///< A cell at most.
  std::chrono::seconds realTime{10};  ///< A cell.
  unsigned threads = 1;
};

/// Receivers 1, 10, 30, 100 and 200, loss 0, 0.1, 1, 5 and 20 %, both profiles; and one room of 200 receivers with
/// 10 000 blocks. Prints its tables as it goes, in the form in which they stand in docs/reliability.md.
void RunStudy(const StudyOptions& options);

}  // namespace quorl::sim
