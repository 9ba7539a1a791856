// What a name shows on a terminal: what cannot steer the terminal or reorder the line. The one file that knows the
// library for Unicode.
#include "cli/show/escape.h"

#include <fmt/format.h>
#include <utf8proc.h>

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
  utf8proc_int32_t code = -1;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  const utf8proc_ssize_t length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &code);
  return length > 0 ? Character{static_cast<uint32_t>(code), static_cast<size_t>(length)} : Character{};
}

size_t ColumnsOf(Character character) {
  if (character.length == 0) return 1;
  return static_cast<size_t>(utf8proc_charwidth(static_cast<utf8proc_int32_t>(character.code)));
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
