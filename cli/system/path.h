#pragma once

#include <filesystem>
#include <string_view>

namespace quorl::cli {

/// The path that a text names. The command's texts are UTF-8 on every system; the language itself would take them for
/// something else on one whose own names are wide.
inline std::filesystem::path PathFrom(std::string_view text) {
  return std::u8string_view(reinterpret_cast<const char8_t*>(text.data()), text.size());
}

}  // namespace quorl::cli
