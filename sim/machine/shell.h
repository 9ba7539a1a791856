#pragma once

#include <functional>
#include <map>
#include <utility>

#include "platform/shell.h"
#include "sim/machine/disk.h"

namespace quorl::sim {

/// Who is logged on and where the folders are, as a test sets it. Drive types and free space are the disk's. At first
/// the machine is of the NT family, account "mary" on computer "PC1", with a desktop and nothing else.
class SimShell : public Shell {
 public:
  explicit SimShell(const SimDisk& disk) : disk(disk) {}

  bool ntPlatform = true;
  std::map<uint32_t, std::optional<std::string>> folders{
      {0, "C:\\Users\\mary\\Desktop"}};  ///< What is not here is unknown.
  std::optional<std::string> account = "mary";
  std::optional<std::string> computer = "PC1";
  std::map<std::pair<std::string, std::string>, std::string> logonValues;  ///< By key and name.
  std::function<std::string(std::string)> throughWideText;                 ///< Empty: text stays as it is.
  uint64_t failingQueryLookups = 0;   ///< So many lookups of the extended free-space query fail first.
  bool freeSpaceFails = false;        ///< Both free-space queries fail.
  std::optional<uint64_t> freeNames;  ///< Nothing: the disk does not count them.

  bool IsNtPlatform() override { return ntPlatform; }
  SpecialFolder LookUpFolder(uint32_t folder) override {
    const auto found = folders.find(folder);
    if (found == folders.end()) return {};
    return {true, found->second};
  }
  std::optional<std::string> AccountName() override { return account; }
  std::optional<std::string> ComputerName() override { return computer; }
  std::optional<std::string> ReadLogonValue(const std::string& key, const std::string& name) override;
  std::string ThroughWideText(std::string text) override {
    return throughWideText ? throughWideText(std::move(text)) : text;
  }
  DriveType DriveTypeOf(const std::string& directory) override { return disk.TypeOf(directory); }
  bool HasExtendedFreeSpaceQuery() override;
  std::optional<uint64_t> FreeBytes(const std::string& directory) override;
  std::optional<FreeClusters> QueryFreeClusters(const std::string& directory) override;
  std::optional<uint64_t> FreeNames(const std::string&) override { return freeNames; }

 private:
  const SimDisk& disk;
};

}  // namespace quorl::sim
