// Paths that the user has named, as the system takes them however long they are.
#pragma once

#include <optional>
#include <string>

#include "platform/win32/system.h"

namespace quorl::cli {

/// The full path in the form "\\?\C:\a\b"; devices keep theirs. Nothing when the text has no meaning.
std::optional<std::wstring> LongForm(const std::string& path);

/// In the same form, where an open file or directory is now; empty when the system does not tell.
std::wstring PathOf(HANDLE handle);

}  // namespace quorl::cli
