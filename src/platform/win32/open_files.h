#pragma once

#include "platform/files.h"
#include "platform/win32/handle.h"

namespace quorl {

/// What the host is told of a failed call that would have taken room on the disk.
WriteOutcome OutcomeOf(DWORD error);

class Win32InputFile : public InputFile {
 public:
  explicit Win32InputFile(Handle handle) : handle(std::move(handle)) {}
  std::optional<uint64_t> Length() override;
  std::optional<size_t> ReadAt(uint64_t offset, std::span<uint8_t> into) override;

 private:
  const Handle handle;
};

class Win32OutputFile : public OutputFile {
 public:
  explicit Win32OutputFile(Handle handle) : handle(std::move(handle)) {}
  WriteOutcome WriteAt(uint64_t offset, std::span<const uint8_t> bytes) override;
  WriteOutcome Close() override;

 private:
  Handle handle;
};

}  // namespace quorl
