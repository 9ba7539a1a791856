#include "sim/machine/machine_files.h"

#include "sim/machine/machine.h"

namespace quorl::sim {

namespace {

std::string Joined(const std::string& base, const RelativePath& name) {
  std::string path = base;
  for (const std::string& component : name.Components()) path += "\\" + component;
  return path;
}

class SimInputFile : public InputFile {
 public:
  SimInputFile(SimMachine& machine, SimDisk::Handle file, std::string path)
      : machine(machine), file(std::move(file)), path(std::move(path)) {
    machine.FileOpened();
  }
  ~SimInputFile() override {
    machine.FileClosed();
    machine.Log("close", path);
  }

  std::optional<uint64_t> Length() override {
    if (machine.Fails(Seam::Files, "files.length")) return std::nullopt;
    return file.content->Length();
  }

  std::optional<size_t> ReadAt(uint64_t offset, std::span<uint8_t> into) override {
    if (machine.Fails(Seam::Files, "files.read")) return std::nullopt;
    return file.content->ReadAt(offset, into);
  }

 private:
  SimMachine& machine;
  const SimDisk::Handle file;
  const std::string path;
};

class SimOutputFile : public OutputFile {
 public:
  SimOutputFile(SimMachine& machine, SimDisk::Handle file, std::string path)
      : machine(machine), file(std::move(file)), path(std::move(path)) {
    machine.FileOpened();
  }
  ~SimOutputFile() override {
    if (open) CloseHandle();
  }

  WriteOutcome WriteAt(uint64_t offset, std::span<const uint8_t> bytes) override {
    if (machine.Fails(Seam::Files, "files.write")) return WriteOutcome::Failed;
    const Duration writeTime = machine.Disk().WriteTime(bytes.size());
    if (writeTime > Duration::zero()) {
      machine.Wait(machine.Deadline(writeTime), SimMachine::WaitKind::Unbounded);
      if (machine.IsOff()) return WriteOutcome::Failed;
    }
    return machine.Disk().WriteAt(file, offset, bytes) ? WriteOutcome::Done : WriteOutcome::DiskFull;
  }

  WriteOutcome Close() override {
    CloseHandle();
    if (machine.Fails(Seam::Files, "files.close")) return WriteOutcome::Failed;
    return machine.Disk().IsStillAt(path, file) ? WriteOutcome::Done : WriteOutcome::Removed;
  }

 private:
  void CloseHandle() {
    open = false;
    machine.FileClosed();
    machine.Log("close", path);
  }

  SimMachine& machine;
  const SimDisk::Handle file;
  const std::string path;
  bool open = true;
};

}  // namespace

PathKind MachineFiles::KindOf(const std::string& path) {
  return machine.IsOff() ? PathKind::Missing : machine.Disk().KindOf(path);
}

std::optional<std::vector<DirectoryEntry>> MachineFiles::ListDirectory(const std::string& path) {
  if (machine.Fails(Seam::Files, "files.list")) return std::nullopt;
  return machine.Disk().Entries(path);
}

std::unique_ptr<InputFile> MachineFiles::OpenInput(const std::string& path) {
  if (machine.Fails(Seam::Files, "files.open")) return nullptr;
  SimDisk::Handle file = machine.Disk().OpenToRead(path);
  if (!file.content) return nullptr;
  machine.Log("open", path);
  return std::make_unique<SimInputFile>(machine, std::move(file), path);
}

void MachineFiles::MakeTarget(const std::string& base) {
  if (!machine.IsOff()) machine.Disk().MakeDirectories(base, {});
}

void MachineFiles::CreateDirectories(const std::string& base, const RelativePath& name) {
  if (!machine.IsOff() && machine.Disk().Entries(base)) machine.Disk().MakeDirectories(base, name.Components());
}

bool MachineFiles::CanOpenOutput(const std::string& base, const RelativePath& name) {
  if (machine.Fails(Seam::Files, "files.open")) return false;
  return machine.Disk().OpenToWrite(base, name.Components(), WhenMissing::Fail).content != nullptr;
}

OpenedOutput MachineFiles::OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) {
  if (machine.Fails(Seam::Files, "files.open")) return {};
  SimDisk::Handle file = machine.Disk().OpenToWrite(base, name.Components(), whenMissing);
  if (!file.content) return {};
  std::string path = Joined(base, name);
  machine.Log("open to write", path);
  return {std::make_unique<SimOutputFile>(machine, std::move(file), std::move(path)), WriteOutcome::Done};
}

}  // namespace quorl::sim
