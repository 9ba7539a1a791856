#pragma once

#include <cstdint>
#include <optional>

namespace quorl {

// What is asked of the file system that holds an open file or directory.

/// Whether it may be on another machine.
bool IsOnNetwork(int descriptor);

/// Bytes that this process may still use there.
std::optional<uint64_t> FreeBytesAround(int descriptor);

/// Files and directories that may still be made there; nothing where only their bytes count.
std::optional<uint64_t> FreeNamesAround(int descriptor);

}  // namespace quorl
