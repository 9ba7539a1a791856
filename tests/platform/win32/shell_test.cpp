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

TEST(Win32Shell, KnowsTheUserAndTheFolders) {
  DriveLetters drives;
  Win32Shell shell(drives);
  EXPECT_TRUE(shell.IsNtPlatform());
  EXPECT_NE(shell.AccountName().value_or(""), "");
  EXPECT_NE(shell.ComputerName().value_or(""), "");
  const SpecialFolder desktop = shell.LookUpFolder(0);
  ASSERT_TRUE(desktop.known && desktop.path);
  EXPECT_TRUE(std::filesystem::is_directory(*desktop.path)) << *desktop.path;
  EXPECT_FALSE(shell.LookUpFolder(0x7FFF).known);
  EXPECT_FALSE(shell.LookUpFolder(17).path) << "the list of drives has no directory";
  EXPECT_EQ(shell.ThroughWideText("C:\\a b"), "C:\\a b");
}

TEST(Win32Shell, ReadsLogonValuesAsTheyStand) {
  constexpr const char* KEY = "SOFTWARE\\QuorlTest";
  HKEY key = nullptr;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, KEY, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS | KEY_WOW64_64KEY,
                      nullptr, &key, nullptr) != ERROR_SUCCESS)
    GTEST_SKIP() << "only an administrator may write there";
  const std::string longest(259, 'x'), tooLong(260, 'x');
  for (const std::string& text : {std::string("mary"), std::string(), longest, tooLong})
    RegSetValueExA(key, ("of " + std::to_string(text.size())).c_str(), 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(text.c_str()), static_cast<DWORD>(text.size() + 1));
  DriveLetters drives;
  Win32Shell shell(drives);
  EXPECT_EQ(shell.ReadLogonValue(KEY, "of 4"), "mary");
  EXPECT_EQ(shell.ReadLogonValue(KEY, "of 0"), "") << "empty is not missing";
  EXPECT_EQ(shell.ReadLogonValue(KEY, "of 259"), longest);
  EXPECT_EQ(shell.ReadLogonValue(KEY, "of 260"), std::nullopt);
  EXPECT_EQ(shell.ReadLogonValue(KEY, "none"), std::nullopt);
  RegCloseKey(key);
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, KEY);
}

}  // namespace
}  // namespace quorl
