// Any bytes as a name from the network, under any target directory, against a slow and obvious reading of the rules.
#include <quorl/quorl.h>

#include <vector>

#include "files/names.h"
#include "fuzz/fuzz_input.h"

namespace quorl {
namespace {

std::string Without(std::string text, std::string_view characters) {
  std::erase_if(text, [&](char c) { return characters.find(c) != std::string_view::npos; });
  return text;
}

/// What stands between the backslashes, empty pieces too.
std::vector<std::string> Pieces(const std::string& text) {
  std::vector<std::string> pieces;
  for (size_t begin = 0, end = 0; end < text.size() || pieces.empty(); begin = end + 1) {
    end = std::min(text.find('\\', begin), text.size());
    pieces.push_back(text.substr(begin, end - begin));
  }
  return pieces;
}

void Check(const MappedPath& mapped, const std::string& base, const std::string& name, bool isFile) {
  const std::vector<std::string> pieces = Pieces(name);
  // One component would be partly the target's and partly the name's: a sibling of the target.
  bool isRefused = !Pieces(base).back().empty() && !pieces.front().empty();
  isRefused = isRefused || (isFile && pieces.back().empty());
  std::vector<std::string> components;
  for (const std::string& piece : pieces) {
    isRefused = isRefused || piece == "." || piece == ".." || piece.find_first_of({"/\0", 2}) != std::string::npos;
    if (!piece.empty()) components.push_back(piece);
  }
  uint32_t status = isRefused ? uint32_t{QUORL_STATUS_FILE_UNWRITABLE} : 0;
  if ((base + name).size() > 260) status = QUORL_STATUS_PATH_TOO_LONG;
  MUST(mapped.status == status);
  MUST(mapped.status != 0 || (mapped.path.base == base && mapped.path.name.Components() == components));
}

}  // namespace

void fuzz::Run(Input input) {
  const std::string targetDir = "C:\\" + input.TakeText(input.Below(80));
  // As it comes off the wire: a length that need not be the text's, a field that need not hold a NUL.
  NameField field;
  field.length = input.Below(2) == 0 ? NAME_TEXT_SIZE : input.Take<uint32_t>();
  const auto text = input.TakeBytes(NAME_TEXT_SIZE);
  std::copy(text.begin(), text.end(), field.text.begin());
  const std::string name(field.Text());
  static constexpr std::string_view ILLEGAL = "/*?><";
  Check(MapFilePath(targetDir, name), Without(targetDir, ILLEGAL), Without(name, ILLEGAL), true);
  Check(MapDirectoryPath(targetDir, name), targetDir, name, false);
}

}  // namespace quorl
