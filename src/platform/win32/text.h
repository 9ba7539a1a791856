// 8-bit text is text in the process's ANSI code page; the system's own names are UTF-16.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Nothing when the code page gives the text no meaning.
std::optional<std::wstring> ToWide(std::string_view text);

/// A question mark stands for a character that the code page does not have, never a similar character: that could be a
/// backslash.
std::string ToNarrow(std::wstring_view text);

/// To wide characters and back, with whatever replacements the system finds best.
std::string ThroughWide(const std::string& text);

}  // namespace quorl
