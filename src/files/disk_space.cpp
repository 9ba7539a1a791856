// Whether a transfer fits on the target's disk.
//
// The announced size is compared as it is announced, modulo 4 GiB, and where the caller's rules want it once more as it
// truly is: a transfer that only seems to fit would end with a full disk. What is asked is the file system that holds
// the target directory, not the one behind the drive's root, which may be another. The receive loop calls this once for
// each announced transfer.

#include "files/disk_space.h"

#include <quorl/quorl.h>

#include <chrono>

namespace quorl {

namespace {

constexpr int LOOKUP_ATTEMPTS = 3;
constexpr Duration LOOKUP_PAUSE = std::chrono::milliseconds(200);

constexpr uint32_t FITS = 1;
constexpr uint32_t DOES_NOT_FIT = 0;

bool FindExtendedQuery(const Machine& machine) {
  for (int attempt = 0; attempt < LOOKUP_ATTEMPTS; ++attempt) {
    if (machine.shell.HasExtendedFreeSpaceQuery()) return true;
    machine.clock.Sleep(LOOKUP_PAUSE);
  }
  return false;
}

void WriteSizes(const Machine& machine, const std::string& prefix, uint64_t needed, uint64_t available) {
  machine.debug.Write(prefix + " tosize  = " + std::to_string(needed) + ", DiskSize = " + std::to_string(available) +
                      " \n");
}

uint32_t CheckFreeBytes(const Machine& machine, const std::string& targetDir, uint32_t needed, uint64_t trueNeed) {
  const std::optional<uint64_t> available = machine.shell.FreeBytes(targetDir);
  if (!available) {
    machine.debug.Write("\n");
    machine.debug.Write(targetDir);
    machine.debug.Write("\n");
    machine.debug.Write("\nQuorl-----GetDiskFreeSpace false!\n");
    return DOES_NOT_FIT;
  }
  if (*available < needed) {
    WriteSizes(machine, "\n@@", needed, *available);
  } else if (*available < trueNeed) {
    WriteSizes(machine, "\n@@", trueNeed, *available);
  } else {
    return FITS;
  }
  machine.debug.Write("\nQuorl-----No free space to write file!\n");
  return DOES_NOT_FIT;
}

uint32_t CheckFreeClusters(const Machine& machine, const std::string& targetDir, uint32_t needed, uint64_t trueNeed) {
  const std::optional<FreeClusters> clusters = machine.shell.QueryFreeClusters(targetDir);
  if (!clusters) {
    machine.debug.Write("\nQuorl-----GetDiskFreeSpace false\n");
    return DOES_NOT_FIT;
  }
  const uint64_t trulyAvailable =
      uint64_t{clusters->freeClusters} * clusters->bytesPerSector * clusters->sectorsPerCluster;
  const uint32_t available = static_cast<uint32_t>(trulyAvailable);
  if (available < needed) {
    WriteSizes(machine, "\n@@2", needed, available);
  } else if (trulyAvailable < trueNeed) {
    WriteSizes(machine, "\n@@2", trueNeed, trulyAvailable);
  } else {
    return FITS;
  }
  machine.debug.Write("\nQuorl-----No free space to write file\n");
  return DOES_NOT_FIT;
}

}  // namespace

uint32_t CheckDiskSpace(const Machine& machine, const std::string& targetDir, uint32_t needed, uint64_t trueNeed) {
  if (const DriveType type = machine.shell.DriveTypeOf(targetDir); type != DriveType::Fixed) {
    const std::string root = targetDir.substr(0, 2) + "\\";
    machine.debug.Write("Quorl...Drv:" + root + ">>>type:" + std::to_string(static_cast<uint32_t>(type)) + "\n");
    return QUORL_STATUS_NOT_FIXED_DISK;
  }
  return FindExtendedQuery(machine) ? CheckFreeBytes(machine, targetDir, needed, trueNeed)
                                    : CheckFreeClusters(machine, targetDir, needed, trueNeed);
}

}  // namespace quorl
