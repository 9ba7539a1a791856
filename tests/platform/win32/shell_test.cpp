#include "platform/win32/shell.h"

#include "platform/win32/system.h"
#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

TEST(Win32Shell, DiskQuestionsAskTheVolumeThatWillHoldTheDirectory) {
  const TempDirectory temp;
  DriveLetters drives;
  ASSERT_TRUE(drives.Map('T', temp.Path()));
  Win32Shell shell(drives);
  for (const char* directory : {"T:\\not\\yet\\there", "C:\\", "C:\\..\\x", ""})
    EXPECT_EQ(shell.DriveTypeOf(directory), DriveType::Fixed) << directory;
  EXPECT_EQ(shell.DriveTypeOf("\\\\server\\share"), DriveType::NoRoot);
  EXPECT_EQ(shell.DriveTypeOf("Q:\\"), DriveType::NoRoot);
  EXPECT_TRUE(shell.HasExtendedFreeSpaceQuery());
  const uint64_t free = shell.FreeBytes("T:\\not\\yet\\there").value_or(0);
  EXPECT_GT(free, 0u);
  EXPECT_EQ(shell.FreeBytes("Q:\\"), std::nullopt);
  const auto clusters = shell.QueryFreeClusters("T:\\").value_or(FreeClusters{});
  EXPECT_GT(uint64_t{clusters.freeClusters} * clusters.bytesPerSector * clusters.sectorsPerCluster, 0u);
}

}  // namespace
}  // namespace quorl
