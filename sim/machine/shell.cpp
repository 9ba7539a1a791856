#include "sim/machine/shell.h"

#include <algorithm>
#include <limits>

namespace quorl::sim {

namespace {

constexpr uint32_t SECTOR_BYTES = 512;
constexpr uint32_t CLUSTER_SECTORS = 8;

}  // namespace

std::optional<std::string> SimShell::ReadLogonValue(const std::string& key, const std::string& name) {
  const auto found = logonValues.find({key, name});
  if (found == logonValues.end()) return std::nullopt;
  return found->second;
}

bool SimShell::HasExtendedFreeSpaceQuery() {
  if (failingQueryLookups == 0) return true;
  --failingQueryLookups;
  return false;
}

std::optional<uint64_t> SimShell::FreeBytes(const std::string& directory) {
  return freeSpaceFails ? std::nullopt : disk.FreeBytes(directory);
}

std::optional<FreeClusters> SimShell::QueryFreeClusters(const std::string& directory) {
  const std::optional<uint64_t> bytes = FreeBytes(directory);
  if (!bytes) return std::nullopt;
  const uint64_t clusters = *bytes / (SECTOR_BYTES * CLUSTER_SECTORS);
  const auto counted = std::min<uint64_t>(clusters, std::numeric_limits<uint32_t>::max());
  return FreeClusters{static_cast<uint32_t>(counted), SECTOR_BYTES, CLUSTER_SECTORS};
}

}  // namespace quorl::sim
