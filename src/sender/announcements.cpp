#include "sender/announcements.h"

#include <algorithm>
#include <vector>

#include "protocol/blocks.h"
#include "protocol/datagrams.h"

namespace quorl {

std::optional<BlockCount> CountBlocks(Files& files, const FileLists& lists) {
  uint64_t total = 0;
  BlockCount count;
  for (const FileEntry& entry : lists.ArraySendFile) {
    const auto file = files.OpenInput(entry.fullPath);
    const auto length = file ? file->Length() : std::nullopt;
    const auto shape = FileShape::Of(length.value_or(0));
    if (!shape) return std::nullopt;
    total += shape->BlockCount();
    count.shapes.push_back(length ? shape : std::nullopt);
  }
  if (total > UINT32_MAX) return std::nullopt;
  count.total = static_cast<uint32_t>(total);
  return count;
}

bool SendServerOs(SenderContext& context) {
  const uint8_t platform = context.machine.shell.IsNtPlatform() ? 1 : 0;
  if (context.SendRepeatedly(Build(ServerOs{platform}), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE)) return true;
  context.Debug("\nQuorl-----Send Server OS Packet Failed!\n");
  return false;
}

void SendAutoOpenName(SenderContext& context, const std::string& autoOpenName) {
  const auto datagram = Build(AutoOpenName{NameField::From(autoOpenName)});
  for (int i = 0; i < ANNOUNCEMENT_COPIES; ++i)
    if (!context.SendRepeatedly(datagram, 1, ANNOUNCEMENT_PAUSE))
      context.Debug("\nQuorl-----Send CMD_AOFNAME auto open file name Failed\n");
}

bool SendTask(SenderContext& context, const Task& task) {
  if (context.SendRepeatedly(Build(task), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE)) return true;
  context.Debug("\nQuorl-----Send  Task Packet Failed!\n");
  return false;
}

bool SendEmptyDirs(SenderContext& context, const FileLists& lists) {
  if (lists.ArrayEmptyDir.empty()) return true;
  std::vector<NameField> names;
  for (const std::string& name : lists.ArrayEmptyDir) {
    if (names.size() == EMPTY_DIR_LIMIT) break;
    names.push_back(NameField::From(name));
  }
  const auto datagram = BuildEmptyDir(names);
  const bool sent = context.profile == Profile::Robust
                        ? context.SendRepeatedly(datagram, ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE)
                        : context.sockets.SendToGroup(datagram);
  if (!sent) context.Debug("\nQuorl-----Send Empty Directory Failed!\n");
  return sent;
}

}  // namespace quorl
