#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorl::cli {

/// A name as it may be shown on a terminal: what is not printable UTF-8 (control characters, marks that reorder or hide
/// text, broken sequences) appears as \xNN, byte by byte. Names on disk and from the network hold any bytes.
std::string Escape(std::string_view text);

/// One character of a text.
struct Character {
  uint32_t code = 0;
  size_t length = 0;  ///< In bytes; 0: not UTF-8.
};

/// The first character of a text that is not empty. Strict: no overlong forms, no surrogates.
Character DecodeUtf8(std::string_view text);
bool IsUtf8(std::string_view text);

/// How many columns it takes on a terminal: 2 for ideographs and pictures, 0 for marks on the letter before.
size_t ColumnsOf(Character character);

/// Whether the character can neither steer a terminal nor reorder or hide what stands around it.
bool IsHarmless(uint32_t code);

}  // namespace quorl::cli
