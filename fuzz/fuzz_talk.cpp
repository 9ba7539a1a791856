// Any bytes as what the two commands tell each other, and as what is kept of a transfer that broke. What is taken is
// within its bounds, and is the same once it has been written and read again.
#include "cli/manifest/manifest.h"
#include "cli/outcome/common_holdings.h"
#include "cli/talk/messages.h"
#include "fuzz/fuzz_input.h"

namespace quorl {
namespace {

using namespace cli;

void CheckHoldings(const Have& have, fuzz::Input& input) {
  const std::vector<uint64_t> blocks{1, 7, uint64_t{1} << 32, input.Number()};
  Holdings one(blocks), other(blocks);
  for (const Have::Run& run : have.runs) (input.Below(2) == 0 ? one : other).Add(run);
  one.Intersect(other);
  for (const auto& [file, ranges] : one.Has()) {
    MUST(file < blocks.size());
    uint64_t end = 0;
    for (const Holdings::Range& range : ranges) {
      MUST(range.first >= end && range.first < range.second && range.second <= blocks[file]);
      end = range.second;
    }
  }
}

}  // namespace

void fuzz::Run(Input input) {
  const bool isCatalogue = input.Below(2) == 0;
  const auto bytes = input.TakeBytes(input.Below(256) * 5);
  if (const auto word = ParseWord(bytes)) {
    MUST(std::ranges::equal(FormatWord(*word), FormatWord(*ParseWord(FormatWord(*word)))));
    if (const auto* about = std::get_if<About>(&*word)) MUST(about->onlyFor.size() <= QUORL_RECEIVERS);
  }
  if (const auto letter = ParseLetter(bytes)) {
    MUST(std::ranges::equal(FormatLetter(*letter), bytes));
    if (const auto* have = std::get_if<Have>(&*letter)) CheckHoldings(*have, input);
  }
  const std::string text(bytes.begin(), bytes.end());
  const auto parsed = isCatalogue ? ParseCatalogue(text, nullptr) : ParseManifest(text, nullptr);
  if (const auto* read = std::get_if<ReadManifest>(&parsed)) MUST(IsWellFormed(read->manifest));
}

}  // namespace quorl
