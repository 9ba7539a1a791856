#include "files/disk_space.h"

#include "tests/files/fake_machine.h"

namespace quorl {
namespace {

using std::chrono::milliseconds;

constexpr uint64_t GIB = uint64_t{1} << 30;
const std::string TARGET = "D:\\in\\deep";

class DiskSpaceTest : public FakeMachineTest {
 protected:
  uint32_t Check(uint64_t bytes) { return CheckDiskSpace(machine, TARGET, static_cast<uint32_t>(bytes), bytes); }
};

TEST_F(DiskSpaceTest, OnlyAFixedDiskIsTaken) {
  shell.freeBytes = 100 * GIB;
  for (uint32_t type = 0; type <= 6; ++type) {
    shell.driveType = static_cast<DriveType>(type);
    EXPECT_EQ(Check(1), type == 3 ? 1u : 1002u) << type;
    EXPECT_EQ(debug.Take(), type == 3 ? "" : "Quorl...Drv:D:\\>>>type:" + std::to_string(type) + "\n");
  }
  EXPECT_EQ(shell.askedAbout, TARGET);
  shell.driveType = DriveType::NoRoot;
  EXPECT_EQ(CheckDiskSpace(machine, "", 0, 0), 1002u);
  EXPECT_EQ(debug.Take(), "Quorl...Drv:\\>>>type:1\n");
  EXPECT_EQ(clock.now, Moment{});
}

TEST_F(DiskSpaceTest, TheExtendedQueryDecidesByBytes) {
  EXPECT_EQ(Check(0), 0u);
  EXPECT_EQ(debug.Take(), "\nD:\\in\\deep\n\nQuorl-----GetDiskFreeSpace false!\n");
  shell.freeBytes = 1000;
  EXPECT_EQ(Check(1000), 1u);
  EXPECT_EQ(debug.Take(), "");
  EXPECT_EQ(Check(1001), 0u);
  EXPECT_EQ(debug.Take(), "\n@@ tosize  = 1001, DiskSize = 1000 \n\nQuorl-----No free space to write file!\n");
  shell.freeBytes = 4 * GIB;
  EXPECT_EQ(CheckDiskSpace(machine, TARGET, UINT32_MAX, UINT32_MAX), 1u);
}

TEST_F(DiskSpaceTest, AnAnnouncedSizeThatWrapsIsComparedAsItTrulyIsToo) {
  shell.freeBytes = 2 * GIB;
  EXPECT_EQ(Check(5 * GIB), 0u);
  EXPECT_EQ(debug.Take(),
            "\n@@ tosize  = 5368709120, DiskSize = 2147483648 \n\nQuorl-----No free space to write file!\n");
  shell.freeBytes = 5 * GIB;
  EXPECT_EQ(Check(5 * GIB), 1u);
  EXPECT_EQ(Check(5 * GIB + 1), 0u);
}

TEST_F(DiskSpaceTest, WithoutTheExtendedQueryClustersDecideAfterThreeLookups) {
  shell.failingLookups = 3;
  EXPECT_EQ(Check(0), 0u);
  EXPECT_EQ(debug.Take(), "\nQuorl-----GetDiskFreeSpace false\n");
  EXPECT_EQ(clock.now, milliseconds(600));

  shell.freeClusters = {10, 512, 8};
  shell.failingLookups = 3;
  EXPECT_EQ(Check(40960), 1u);
  shell.failingLookups = 3;
  EXPECT_EQ(Check(40961), 0u);
  EXPECT_EQ(debug.Take(), "\n@@2 tosize  = 40961, DiskSize = 40960 \n\nQuorl-----No free space to write file\n");
}

}  // namespace
}  // namespace quorl
