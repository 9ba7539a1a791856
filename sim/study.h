#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace quorl::sim {

struct StudyOptions {
  uint64_t rooms = 1000;              ///< A cell at most.
  std::chrono::seconds realTime{10};  ///< A cell.
  unsigned threads = 1;
  std::string document{};  ///< A file whose part between STUDY_BEGIN and STUDY_END is replaced; empty: none.
};

constexpr const char* STUDY_BEGIN = "<!-- the study begins -->\n";
constexpr const char* STUDY_END = "<!-- the study ends -->\n";

/// Receivers 1, 10, 30, 100 and 200, loss 0, 0.1, 1, 5 and 20 %, both profiles. Prints its tables as it goes, in the
/// form in which they stand in the document. False when the document could not be written.
bool RunStudy(const StudyOptions& options);

}  // namespace quorl::sim
