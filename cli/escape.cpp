// What a name shows on a terminal: decodes UTF-8 strictly (no overlong forms, no surrogates) and lets through what
// cannot steer the terminal or reorder the line.
#include "cli/escape.h"

#include <fmt/format.h>

#include <cstdint>

namespace quorl::cli {
namespace {

struct Character {
  uint32_t code = 0;
  size_t length = 0;  ///< 0: not UTF-8.
};

Character Decode(std::string_view text) {
  auto byte = [&](size_t index) { return static_cast<uint32_t>(static_cast<unsigned char>(text[index])); };
  uint32_t first = byte(0);
  if (first < 0x80) return {first, 1};
  size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return {};
  uint32_t code = first & (0x7Fu >> length);
  for (size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0) != 0x80) return {};
    code = code << 6 | (byte(index) & 0x3F);
  }
  bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (overlong || surrogate || code > 0x10FFFF) return {};
  return {code, length};
}

bool IsHarmless(uint32_t code) {
  if (code < 0x20 || (code >= 0x7F && code <= 0x9F)) return false;
  bool joinerOrMark = code >= 0x200B && code <= 0x200F;
  bool lineBreak = code == 0x2028 || code == 0x2029;
  bool embedding = code >= 0x202A && code <= 0x202E;
  bool isolate = code >= 0x2066 && code <= 0x2069;
  return !joinerOrMark && !lineBreak && !embedding && !isolate && code != 0x061C && code != 0xFEFF;
}

}  // namespace

std::string Escape(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    Character character = Decode(text);
    size_t length = character.length == 0 ? 1 : character.length;
    if (character.length != 0 && IsHarmless(character.code)) {
      shown += text.substr(0, length);
    } else {
      for (char byte : text.substr(0, length)) shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
    }
    text.remove_prefix(length);
  }
  return shown;
}

}  // namespace quorl::cli
