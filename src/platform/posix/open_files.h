#pragma once

#include "platform/files.h"
#include "platform/posix/descriptor.h"

namespace quorl {

/// What the host is told of a failed call that would have taken room on the disk.
WriteOutcome OutcomeOf(int error);

class PosixInputFile : public InputFile {
 public:
  explicit PosixInputFile(Descriptor descriptor) : descriptor(std::move(descriptor)) {}
  std::optional<uint64_t> Length() override;
  std::optional<size_t> ReadAt(uint64_t offset, std::span<uint8_t> into) override;

 private:
  const Descriptor descriptor;
};

class PosixOutputFile : public OutputFile {
 public:
  explicit PosixOutputFile(Descriptor descriptor) : descriptor(std::move(descriptor)) {}
  WriteOutcome WriteAt(uint64_t offset, std::span<const uint8_t> bytes) override;
  WriteOutcome Close() override;

 private:
  WriteOutcome Write(uint64_t offset, std::span<const uint8_t> bytes);
  WriteOutcome WriteSparsely(uint64_t offset, std::span<const uint8_t> bytes);

  Descriptor descriptor;
  std::optional<uint64_t> length;  ///< Of the file, once it has been looked at.
};

}  // namespace quorl
