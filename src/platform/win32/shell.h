#pragma once

#include "platform/shell.h"
#include "platform/win32/drive_letters.h"

namespace quorl {

class Win32Shell : public Shell {
 public:
  explicit Win32Shell(const DriveLetters& drives) : drives(drives) {}

  bool IsNtPlatform() override;
  SpecialFolder LookUpFolder(uint32_t folder) override;
  std::optional<std::string> AccountName() override;
  std::optional<std::string> ComputerName() override;
  std::optional<std::string> ReadLogonValue(const std::string& key, const std::string& name) override;
  std::string ThroughWideText(std::string text) override;
  DriveType DriveTypeOf(const std::string& directory) override;
  bool HasExtendedFreeSpaceQuery() override;
  std::optional<uint64_t> FreeBytes(const std::string& directory) override;
  std::optional<FreeClusters> QueryFreeClusters(const std::string& directory) override;

 private:
  const DriveLetters& drives;
};

}  // namespace quorl
