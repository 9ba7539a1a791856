// Any bytes as a name from the network, under any target directory, against a slow and obvious reading of the rules.
#include <quorl/quorl.h>

#include <vector>

#include "files/names.h"
#include "fuzz/fuzz_input.h"

namespace quorl {
namespace {

std::string Without(const std::string& text, const std::string& characters) {
  std::string kept;
  for (const char c : text)
    if (characters.find(c) == std::string::npos) kept += c;
  return kept;
}

/// What stands between the backslashes, empty pieces too.
std::vector<std::string> Pieces(const std::string& text) {
  std::vector<std::string> pieces(1);
  for (const char c : text) {
    if (c == '\\') {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

struct Expected {
  uint32_t status = 0;
  std::vector<std::string> components{};
};

Expected Beneath(const std::string& base, const std::string& name) {
  if ((base + name).size() > 260) return {QUORL_STATUS_PATH_TOO_LONG};
  Expected expected;
  for (const std::string& piece : Pieces(name)) {
    if (piece == "." || piece == "..") return {QUORL_STATUS_FILE_UNWRITABLE};
    for (const char c : piece)
      if (c == '/' || c == '\0') return {QUORL_STATUS_FILE_UNWRITABLE};
    if (!piece.empty()) expected.components.push_back(piece);
  }
  // One component would be partly the target's and partly the name's: a sibling of the target.
  const bool isSibling = !Pieces(base).back().empty() && !Pieces(name).front().empty();
  return isSibling ? Expected{QUORL_STATUS_FILE_UNWRITABLE} : expected;
}

Expected ExpectedFile(const std::string& targetDir, const std::string& name) {
  const std::string kept = Without(name, "/*?><");
  const Expected expected = Beneath(Without(targetDir, "/*?><"), kept);
  const bool namesNoFile = Pieces(kept).back().empty();
  return expected.status == 0 && namesNoFile ? Expected{QUORL_STATUS_FILE_UNWRITABLE} : expected;
}

void Check(const MappedPath& mapped, const Expected& expected, const std::string& base) {
  MUST(mapped.status == expected.status);
  if (mapped.status != 0) return;
  MUST(mapped.path.base == base);
  MUST(mapped.path.name.Components() == expected.components);
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorl;
  fuzz::Input input(data, size);
  const std::string targetDir = "C:\\" + input.TakeText(input.Below(80));
  // As it comes off the wire: a length that need not be the text's, a field that need not hold a NUL.
  NameField field;
  field.length = input.Below(2) == 0 ? NAME_TEXT_SIZE : input.Take<uint32_t>();
  const auto text = input.TakeBytes(NAME_TEXT_SIZE);
  std::copy(text.begin(), text.end(), field.text.begin());
  const std::string name(field.Text());

  Check(MapFilePath(targetDir, name), ExpectedFile(targetDir, name), Without(targetDir, "/*?><"));
  Check(MapDirectoryPath(targetDir, name), Beneath(targetDir, name), targetDir);
  return 0;
}
