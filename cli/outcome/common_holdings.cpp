#include "cli/outcome/common_holdings.h"

#include <algorithm>

namespace quorl::cli {
namespace {

// Of one receiver. What is beyond counts as not held.
constexpr size_t MOST_RUNS = 100'000;

}  // namespace

void Holdings::Add(const Have::Run& run) {
  if (run.file == 0 || run.file > blocks.size() || ++runs > MOST_RUNS) return;
  const size_t file = run.file - 1;
  if (run.kind == Have::Kind::Blocks) {
    const uint64_t end = uint64_t{run.first} + run.count;
    auto& ranges = has[file];
    const bool isLater = ranges.empty() || run.first > ranges.back().second;
    if (isLater && run.count > 0 && end <= blocks[file]) ranges.emplace_back(run.first, end);
    return;
  }
  const size_t end = static_cast<size_t>(std::min<uint64_t>(file + uint64_t{run.count}, blocks.size()));
  for (size_t i = file; i < end; ++i) {
    if (run.kind == Have::Kind::Asks) {
      asks.insert(i);
    } else {
      has[i] = {{0, blocks[i]}};
    }
  }
}

void Holdings::Intersect(const Holdings& other) {
  Ranges common;
  for (const auto& [file, ranges] : has) {
    const auto theirs = other.has.find(file);
    if (theirs == other.has.end()) continue;
    auto right = theirs->second.begin();
    for (auto left = ranges.begin(); left != ranges.end() && right != theirs->second.end();) {
      const Range both{std::max(left->first, right->first), std::min(left->second, right->second)};
      if (both.first < both.second) common[file].push_back(both);
      left->second < right->second ? ++left : ++right;
    }
  }
  has = std::move(common);
}

}  // namespace quorl::cli
