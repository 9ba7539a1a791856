#include "platform/posix/drives.h"

#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

namespace fs = std::filesystem;

std::string Local(const std::optional<DrivePlace>& place) {
  return place ? place->LocalPath() : "none";
}

TEST(Drives, OnlyDriveCIsThereAtFirst) {
  const Drives drives;
  EXPECT_EQ(Local(drives.Resolve("C:\\tmp\\a b")), "/tmp/a b");
  EXPECT_EQ(Local(drives.Resolve("c:")), "/");
  EXPECT_EQ(Local(drives.Resolve("C:tmp")), "/tmp");
  for (const char* none : {"D:\\x", "", "\\x", "x", "1:\\x", "::", "C:\\..\\x", "C:\\a\\.", "C:\\a/b"})
    EXPECT_FALSE(drives.Resolve(none)) << none;
  EXPECT_EQ(Local(drives.ResolveTarget("")), "/");
  EXPECT_EQ(Local(drives.ResolveTarget("in\\box")), "/in/box");
  // A target that its sender wrote with slashes, for directories and as it is left for files.
  EXPECT_EQ(Local(drives.ResolveTarget("C:/in/box")), "/in/box");
  EXPECT_EQ(Local(drives.ResolveTarget("C:inbox")), "/inbox");
  EXPECT_FALSE(drives.ResolveTarget("..\\in"));
}

TEST(Drives, ALocalDirectoryGetsThePathOfTheNearestDrive) {
  const TempDirectory temp;
  fs::create_directories(temp / "in/box");
  fs::create_directories(temp / "inner");
  fs::create_directory_symlink(temp / "in", temp / "link");
  Drives drives;
  ASSERT_TRUE(drives.Map('Q', temp / "in"));
  ASSERT_TRUE(drives.Map('R', temp.Path()));
  EXPECT_EQ(drives.DrivePathOf(temp / "in/box"), "Q:\\box");
  EXPECT_EQ(drives.DrivePathOf(temp / "link"), "Q:\\");
  EXPECT_EQ(drives.DrivePathOf(temp / "inner"), "R:\\inner");
  EXPECT_EQ(drives.DrivePathOf("/"), "C:\\");
  EXPECT_EQ(drives.DrivePathOfText(temp / "in//nothing/there/"), "Q:\\nothing\\there");
  EXPECT_EQ(drives.DrivePathOfText("relative"), std::nullopt);
}

}  // namespace
}  // namespace quorl
