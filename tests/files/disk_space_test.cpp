#include "files/disk_space.h"

#include "tests/files/one_machine.h"

namespace quorl {
namespace {

constexpr uint64_t GIB = uint64_t{1} << 30;
const std::string TARGET = "C:\\in\\deep";

class DiskSpaceTest : public OneMachineTest {
 protected:
  uint32_t Check(uint64_t bytes) { return CheckDiskSpace(machine, TARGET, static_cast<uint32_t>(bytes), bytes); }
};

TEST_F(DiskSpaceTest, OnlyAFixedDiskIsTaken) {
  for (uint32_t type = 0; type <= 6; ++type) {
    disk.SetDriveType(static_cast<DriveType>(type));
    EXPECT_EQ(Check(1), type == 3 ? 1u : 1002u) << type;
    EXPECT_EQ(TakeDebug(), type == 3 ? "" : "Quorl...Drv:C:\\>>>type:" + std::to_string(type) + "\n");
  }
  EXPECT_EQ(CheckDiskSpace(machine, "", 0, 0), 1002u);
  EXPECT_EQ(TakeDebug(), "Quorl...Drv:\\>>>type:6\n");
}

TEST_F(DiskSpaceTest, BytesDecideAndAnAnnouncedSizeThatWrapsCountsAsItTrulyIsToo) {
  // The sizes as they are told when it does not fit.
  const std::tuple<uint64_t, uint64_t, std::string> cases[] = {
      {1000, 1000, ""},          {1000, 1001, "tosize  = 1001, DiskSize = 1000"},
      {4 * GIB, UINT32_MAX, ""}, {2 * GIB, 5 * GIB, "tosize  = 5368709120, DiskSize = 2147483648"},
      {5 * GIB, 5 * GIB, ""},    {5 * GIB, 5 * GIB + 1, "tosize  = 5368709121, DiskSize = 5368709120"},
  };
  for (const auto& [freeBytes, needed, sizes] : cases) {
    disk.SetFreeBytes(freeBytes);
    EXPECT_EQ(Check(needed), sizes.empty() ? 1u : 0u) << needed;
    EXPECT_EQ(TakeDebug(), sizes.empty() ? "" : "\n@@ " + sizes + " \n\nQuorl-----No free space to write file!\n");
  }
  shell.freeSpaceFails = true;
  EXPECT_EQ(Check(0), 0u);
  EXPECT_EQ(TakeDebug(), "\nC:\\in\\deep\n\nQuorl-----GetDiskFreeSpace false!\n");
}

TEST_F(DiskSpaceTest, WithoutTheExtendedQueryClustersDecideAfterThreeLookups) {
  const auto checkByClusters = [this](uint64_t bytes) {
    shell.failingQueryLookups = 3;
    return Check(bytes);
  };
  disk.SetFreeBytes(40960);  // ten clusters
  EXPECT_EQ(checkByClusters(40960), 1u);
  EXPECT_EQ(world.Now(), Moment{std::chrono::milliseconds(600)});
  EXPECT_EQ(checkByClusters(40961), 0u);
  EXPECT_EQ(TakeDebug(), "\n@@2 tosize  = 40961, DiskSize = 40960 \n\nQuorl-----No free space to write file\n");
  disk.SetFreeBytes((uint64_t{1} << 32) + 40960);
  EXPECT_EQ(checkByClusters(40961), 0u) << "reckoned with 32 bits";
  EXPECT_EQ(checkByClusters((uint64_t{1} << 33) + 40960), 0u) << "and then as it truly is";
  TakeDebug();
  shell.freeSpaceFails = true;
  EXPECT_EQ(checkByClusters(0), 0u);
  EXPECT_EQ(TakeDebug(), "\nQuorl-----GetDiskFreeSpace false\n");
}

}  // namespace
}  // namespace quorl
