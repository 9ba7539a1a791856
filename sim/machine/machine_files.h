#pragma once

#include "platform/files.h"

namespace quorl::sim {

class SimMachine;

/// The file calls of a machine, on its simulated disk, with the faults and the time that a test gave them.
class MachineFiles : public Files {
 public:
  explicit MachineFiles(SimMachine& machine) : machine(machine) {}

  PathKind KindOf(const std::string& path) override;
  std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) override;
  std::unique_ptr<InputFile> OpenInput(const std::string& path) override;
  void MakeTarget(const std::string& base) override;
  void CreateDirectories(const std::string& base, const RelativePath& name) override;
  bool CanOpenOutput(const std::string& base, const RelativePath& name) override;
  OpenedOutput OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) override;

 private:
  SimMachine& machine;
};

}  // namespace quorl::sim
