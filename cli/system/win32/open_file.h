#pragma once

#include "cli/system/files.h"
#include "platform/win32/open_files.h"

namespace quorl::cli {

struct OpenedFile::State {
  explicit State(Handle opened) : handle(opened.Get()), file(std::move(opened)) {}

  const HANDLE handle;  // Of `file`, which owns it.
  Win32InputFile file;
  uint64_t position = 0;
};

}  // namespace quorl::cli
