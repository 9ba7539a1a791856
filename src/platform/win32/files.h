#pragma once

#include "platform/files.h"
#include "platform/win32/beneath.h"
#include "platform/win32/drive_letters.h"

namespace quorl {

class Win32Files : public Files {
 public:
  explicit Win32Files(const DriveLetters& drives) : drives(drives) {}

  PathKind KindOf(const std::string& path) override;
  std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) override;
  std::unique_ptr<InputFile> OpenInput(const std::string& path) override;

  void MakeTarget(const std::string& base) override;
  void CreateDirectories(const std::string& base, const RelativePath& name) override;
  bool CanOpenOutput(const std::string& base, const RelativePath& name) override;
  OpenedOutput OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) override;

 private:
  OpenedHandle OpenBeneathTarget(const std::string& base, const RelativePath& name, Purpose purpose) const;

  const DriveLetters& drives;
};

}  // namespace quorl
