// What receivers are told before the first block.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "files/file_lists.h"
#include "protocol/datagrams.h"
#include "sender/sender_context.h"

namespace quorl {

/// The files of a transfer as they are announced. They keep their shapes for the whole transfer: a file that grows or
/// shrinks meanwhile must not look different to receivers that hear of it at different times.
struct BlockCount {
  uint32_t total = 0;
  std::vector<std::optional<FileShape>> shapes{};  ///< In list order; nothing for a file that could not be opened.
};

/// A file that cannot be opened counts as one block. Nothing when the sum does not fit 32 bits.
std::optional<BlockCount> CountBlocks(Files& files, const FileLists& lists);

/// Three copies. False when none could be sent.
bool SendServerOs(SenderContext& context);

/// Three copies; failures show in the debug output only.
void SendAutoOpenName(SenderContext& context, const std::string& autoOpenName);

/// Three copies. False when none could be sent.
bool SendTask(SenderContext& context, const Task& task);

/// The first 40 of the lists' empty directories, in one datagram. False when there are some and it could not be sent.
bool SendEmptyDirs(SenderContext& context, const FileLists& lists);

}  // namespace quorl
