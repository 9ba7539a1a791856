#pragma once

#include <quorl/quorl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace quorl {

/// Bytes of the text part of a name on the wire and in the sender's lists.
inline constexpr size_t NAME_TEXT_SIZE = QUORL_NAME_SIZE;

/// A name as it travels: a field of 8-bit text with a terminator, and a length that counts the terminator.
struct NameField {
  std::array<char, NAME_TEXT_SIZE> text{};
  uint32_t length = 0;

  /// A name that does not fit is cut. The names of listed files and directories are never longer.
  static NameField From(std::string_view name) {
    NameField field;
    name = name.substr(0, NAME_TEXT_SIZE - 1);
    std::copy(name.begin(), name.end(), field.text.begin());
    field.length = static_cast<uint32_t>(name.size() + 1);
    return field;
  }

  /// The name: up to its first NUL, never more than the length says, never beyond the field, whatever the wire held.
  std::string_view Text() const {
    const std::string_view field(text.data(), std::min<size_t>(length, text.size()));
    return field.substr(0, field.find('\0'));
  }

  friend bool operator==(const NameField&, const NameField&) = default;
};

}  // namespace quorl
