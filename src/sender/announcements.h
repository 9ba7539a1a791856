// What receivers are told before the first block.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "files/file_lists.h"
#include "protocol/blocks.h"
#include "protocol/datagrams.h"
#include "sender/sender_context.h"

namespace quorl {

/// The files of a transfer as they are announced.
struct BlockCount {
  uint32_t total = 0;  ///< Modulo 2^32.
  bool fits = true;    ///< False when that is less than there is, or a file has more blocks than can be numbered.
  std::vector<std::optional<FileShape>> shapes{};  ///< In list order; nothing for a file that could not be opened.
};

/// A file that cannot be opened counts as one block.
BlockCount CountBlocks(Files& files, const FileLists& lists);

// `wait` is for each datagram.

/// Three copies. False when none could be sent.
bool SendServerOs(SenderContext& context, const SendWait& wait);

/// Three copies; failures show in the debug output only.
void SendAutoOpenName(SenderContext& context, const std::string& autoOpenName, const SendWait& wait);

/// Three copies. False when none could be sent.
bool SendTask(SenderContext& context, const Task& task, const SendWait& wait);

/// The first QUORL_EMPTY_DIRECTORIES of the lists' empty directories, in one datagram. False when there are some and it
/// could not be sent.
bool SendEmptyDirs(SenderContext& context, const FileLists& lists, const SendWait& wait);

}  // namespace quorl
