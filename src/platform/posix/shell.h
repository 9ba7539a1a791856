#pragma once

#include "platform/posix/drives.h"
#include "platform/shell.h"

namespace quorl {

class PosixShell : public Shell {
 public:
  explicit PosixShell(const Drives& drives) : drives(drives) {}

  // On the wire this system counts as one of the NT family.
  bool IsNtPlatform() override { return true; }

  SpecialFolder LookUpFolder(uint32_t folder) override;
  std::optional<std::string> AccountName() override;
  std::optional<std::string> ComputerName() override;

  // The account that runs the process is the one whose folders are meant; no setting names another.
  std::optional<std::string> ReadLogonValue(const std::string&, const std::string&) override { return std::nullopt; }

  // Names are UTF-8 throughout.
  std::string ThroughWideText(std::string text) override { return text; }

  DriveType DriveTypeOf(const std::string& directory) override;
  bool HasExtendedFreeSpaceQuery() override { return true; }
  std::optional<uint64_t> FreeBytes(const std::string& directory) override;
  std::optional<uint64_t> FreeNames(const std::string& directory) override;
  std::optional<FreeClusters> QueryFreeClusters(const std::string&) override { return std::nullopt; }

 private:
  const Drives& drives;
};

}  // namespace quorl
