// Drives, and what the shell says of folders and disks.
#include <stdlib.h>
#include <unistd.h>

#include "platform/posix/drives.h"
#include "platform/posix/shell.h"
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

class ShellTest : public testing::Test {
 protected:
  ShellTest() {
    setenv("HOME", temp.Path().c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_TRUE(drives.Map('H', temp.Path()));
  }
  ~ShellTest() override { setenv("HOME", before.c_str(), 1); }

  std::string Path(uint32_t folder) { return shell.LookUpFolder(folder).path.value_or("none"); }

  const TempDirectory temp;
  Drives drives;
  PosixShell shell{drives};
  const std::string before = getenv("HOME") ? getenv("HOME") : "/";
};

TEST_F(ShellTest, FoldersAreWhereTheDesktopSettingsPutThem) {
  fs::create_directories(temp / ".config");
  WriteText(temp / ".config/user-dirs.dirs",
            "# XDG_MUSIC_DIR=\"$HOME/no\"\n"
            "XDG_DESKTOP_DIR=\"$HOME/Schreib \\\"tisch\\\"\"\n"
            "  XDG_DOCUMENTS_DIR=\"/srv/papers\"\n"
            "XDG_VIDEOS_DIR=\"relative\"\n"
            "XDG_PICTURES_DIR=$HOME/unquoted\n");
  EXPECT_EQ(Path(0), "H:\\Schreib \"tisch\"");
  EXPECT_EQ(Path(5), "C:\\srv\\papers");
  EXPECT_EQ(Path(13), "H:\\Music");
  EXPECT_EQ(Path(14), "H:\\Videos");
  EXPECT_EQ(Path(39), "H:\\Pictures");
}

TEST_F(ShellTest, DiskQuestionsAskTheNearestDirectoryThatExists) {
  EXPECT_EQ(shell.DriveTypeOf("H:\\not\\yet\\there"), DriveType::Fixed);
  EXPECT_EQ(shell.DriveTypeOf(""), DriveType::Fixed);
  EXPECT_EQ(shell.DriveTypeOf("D:\\"), DriveType::NoRoot);
  EXPECT_EQ(shell.FreeBytes("D:\\"), std::nullopt);
  EXPECT_GT(shell.FreeBytes("H:\\not\\yet\\there").value_or(0), 0u);
}

}  // namespace
}  // namespace quorl
