// What a name shows on a terminal: decodes UTF-8 strictly and lets through what cannot steer the terminal or reorder
// the line.
#include "cli/escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quorl::cli {
namespace {

struct Range {
  uint32_t first = 0;
  uint32_t last = 0;
};

// Format and filler characters of the Unicode character database: they have no width, hide, join, or change the
// direction of text.
constexpr std::array<Range, 14> UNSEEN = {{{0x00, 0x1F},
                                           {0x7F, 0x9F},
                                           {0xAD, 0xAD},
                                           {0x61C, 0x61C},
                                           {0x115F, 0x1160},
                                           {0x180E, 0x180E},
                                           {0x200B, 0x200F},
                                           {0x2028, 0x202E},
                                           {0x2060, 0x206F},
                                           {0x3164, 0x3164},
                                           {0xFEFF, 0xFEFF},
                                           {0xFFA0, 0xFFA0},
                                           {0xFFF9, 0xFFFB},
                                           {0xE0000, 0xE0FFF}}};

}  // namespace

Character DecodeUtf8(std::string_view text) {
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

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    Character character = DecodeUtf8(text);
    if (character.length == 0) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

bool IsHarmless(uint32_t code) {
  return std::none_of(UNSEEN.begin(), UNSEEN.end(),
                      [code](const Range& range) { return code >= range.first && code <= range.last; });
}

std::string Escape(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    Character character = DecodeUtf8(text);
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
