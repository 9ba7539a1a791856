#include "sender/announcements.h"

#include <algorithm>
#include <vector>

#include "protocol/blocks.h"
#include "protocol/datagrams.h"

namespace quorl {

BlockCount CountBlocks(Files& files, const FileLists& lists) {
  uint64_t total = 0;
  BlockCount count;
  for (const FileEntry& entry : lists.ArraySendFile) {
    const auto file = files.OpenInput(entry.fullPath);
    const auto length = file ? file->Length() : std::nullopt;
    const auto shape = length ? FileShape::Of(*length) : std::nullopt;
    total += shape ? shape->BlockCount() : 1;
    count.fits = count.fits && (shape || !length) && total <= UINT32_MAX;
    count.shapes.push_back(shape);
  }
  count.total = static_cast<uint32_t>(total);
  return count;
}

bool SendServerOs(SenderContext& context, const SendWait& wait) {
  const uint8_t platform = context.machine.shell.IsNtPlatform() ? 1 : 0;
  return context.SendRepeatedly(Build(ServerOs{platform}), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE, wait);
}

void SendAutoOpenName(SenderContext& context, const std::string& autoOpenName, const SendWait& wait) {
  const auto datagram = Build(AutoOpenName{NameField::From(autoOpenName)});
  for (int i = 0; i < ANNOUNCEMENT_COPIES; ++i) {
    if (!context.sockets.SendToGroup(datagram, wait))
      context.Debug("\nQuorl-----Send CMD_AOFNAME auto open file name Failed\n");
    context.machine.clock.Sleep(ANNOUNCEMENT_PAUSE);
  }
}

bool SendTask(SenderContext& context, const Task& task, const SendWait& wait) {
  return context.SendRepeatedly(Build(task), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE, wait);
}

bool SendEmptyDirs(SenderContext& context, const FileLists& lists, const SendWait& wait) {
  if (lists.ArrayEmptyDir.empty()) return true;
  std::vector<NameField> names;
  for (const std::string& name : lists.ArrayEmptyDir) {
    if (names.size() == EMPTY_DIR_LIMIT) break;
    names.push_back(NameField::From(name));
  }
  const auto datagram = BuildEmptyDir(names);
  return context.profile == Profile::Robust
             ? context.SendRepeatedly(datagram, ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE, wait)
             : context.sockets.SendToGroup(datagram, wait);
}

}  // namespace quorl
