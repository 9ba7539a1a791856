#include "platform/posix/shell.h"

#include <stdlib.h>
#include <unistd.h>

#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

namespace fs = std::filesystem;

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
