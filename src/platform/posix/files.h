#pragma once

#include "platform/files.h"
#include "platform/posix/beneath.h"
#include "platform/posix/drives.h"

namespace quorl {

class PosixFiles : public Files {
 public:
  PosixFiles(const Drives& drives, Resolver resolver) : drives(drives), resolver(resolver) {}

  PathKind KindOf(const std::string& path) override;
  std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) override;
  std::unique_ptr<InputFile> OpenInput(const std::string& path) override;

  void MakeTarget(const std::string& base) override;
  void CreateDirectories(const std::string& base, const RelativePath& name) override;
  bool CanOpenOutput(const std::string& base, const RelativePath& name) override;
  OpenedOutput OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) override;

 private:
  Descriptor OpenRegular(const std::string& base, const RelativePath& name, int flags) const;

  const Drives& drives;
  const Resolver resolver;
};

}  // namespace quorl
