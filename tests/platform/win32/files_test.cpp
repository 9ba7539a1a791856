#include "platform/win32/files.h"

#include <array>

#include "platform/win32/ordinary_name.h"
#include "platform/win32/text.h"
#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

namespace fs = std::filesystem;

std::span<const uint8_t> Bytes(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

RelativePath Name(std::string_view text) {
  return RelativePath::FromText(text).value();
}

class Win32FilesTest : public testing::Test {
 protected:
  Win32FilesTest() {
    EXPECT_TRUE(drives.Map('T', temp.Path()));
    files.MakeTarget("T:\\in");
  }

  WriteOutcome Store(std::string_view name, std::string_view text) {
    const OpenedOutput opened = files.OpenOutput("T:\\in", Name(name), WhenMissing::Create);
    EXPECT_EQ(opened.outcome == WriteOutcome::Done, opened.file != nullptr);
    if (!opened.file) return opened.outcome;
    const WriteOutcome written = opened.file->WriteAt(0, Bytes(text));
    return written == WriteOutcome::Done ? opened.file->Close() : written;
  }
  bool CanOpen(std::string_view name) { return files.CanOpenOutput("T:\\in", Name(name)); }
  size_t CountIn(const std::string& directory) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(temp / directory), {}));
  }

  const TempDirectory temp;
  DriveLetters drives;
  Win32Files files{drives};
};

TEST(OrdinaryName, IsOneThatMeansAFileOfThatNameEverywhere) {
  for (const auto* name :
       {L"a", L"a.b.c", L".hidden", L"com", L"com10", L"console", L"nul-", L"LPT", L"a~1", L"\u00E4"})
    EXPECT_TRUE(IsOrdinaryName(name)) << ToNarrow(name);
  for (const auto* device : {L"NUL", L"con", L"Aux.txt", L"prn.tar.gz", L"COM1", L"lpt9.x", L"com\u00B2", L"CONIN$",
                             L"conout$.log", L"nul .txt", L"CLOCK$"})
    EXPECT_FALSE(IsOrdinaryName(device)) << ToNarrow(device);
  for (const auto* other : {L"", L"a.", L"a ", L"...", L"a:b", L"a:b:$DATA", L"a|b", L"a\"b", L"a\tb", L"a<b", L"a/b"})
    EXPECT_FALSE(IsOrdinaryName(other)) << ToNarrow(other);
  EXPECT_TRUE(IsOrdinaryName(std::wstring(255, L'n')));
  EXPECT_FALSE(IsOrdinaryName(std::wstring(256, L'n')));
}

TEST_F(Win32FilesTest, StoresBeneathTheTargetWithoutTruncating) {
  EXPECT_EQ(Store("a\\b\\file", "x"), WriteOutcome::Failed) << "without its directories";
  files.CreateDirectories("T:\\in", Name("a\\b"));
  files.CreateDirectories("T:\\in", Name("a\\b"));
  EXPECT_FALSE(CanOpen("a\\b\\file"));
  EXPECT_EQ(CountIn("in/a/b"), 0u) << "asking creates nothing";
  EXPECT_EQ(Store("a\\b\\file", "hello"), WriteOutcome::Done);
  EXPECT_EQ(Store("A\\b\\FILE", "HE"), WriteOutcome::Done) << "this system does not tell capitals apart";
  EXPECT_EQ(ReadText(temp / "in/a/b/file"), "HEllo");
  for (const char* name : {"a", "a\\b\\file\\c", ""}) EXPECT_EQ(Store(name, "x"), WriteOutcome::Failed) << name;
  for (const char* base : {"T:\\..\\x", "..", "T:\\missing", "\\\\server\\share", "T:\\in\\nul", "1:\\x"})
    EXPECT_EQ(files.OpenOutput(base, Name("a"), WhenMissing::Create).outcome, WriteOutcome::Failed) << base;
}

TEST_F(Win32FilesTest, NamesThatMeanMoreThanAFileAreRefused) {
  WriteText(temp / "in/file", "file");
  for (const std::string name : {"NUL", "com1.txt", "aux", "file:stream", "file::$DATA", "file.", "file ", "a|b",
                                 "a\"b", "a\x01", "dir:x\\file", "dir.\\file", "con\\file"}) {
    files.CreateDirectories("T:\\in", Name(name).Parent());
    EXPECT_FALSE(CanOpen(name)) << name;
    EXPECT_EQ(Store(name, "changed"), WriteOutcome::Failed) << name;
  }
  EXPECT_EQ(CountIn("in"), 1u);
  EXPECT_EQ(ReadText(temp / "in/file"), "file");
}

TEST_F(Win32FilesTest, AShortAliasReachesNothing) {
  fs::create_directories(temp / "in/a directory with a long name");
  WriteText(temp / "in/a file with a long name.text", "old");
  for (const bool isDirectory : {false, true}) {
    const fs::path path(temp / (isDirectory ? "in/a directory with a long name" : "in/a file with a long name.text"));
    std::array<wchar_t, MAX_PATH> shortPath{};
    ASSERT_NE(GetShortPathNameW(path.c_str(), shortPath.data(), MAX_PATH), 0u);
    const std::string alias = fs::path(shortPath.data()).filename().string();
    if (alias.find('~') == std::string::npos) GTEST_SKIP() << "this file system has no short names";
    EXPECT_EQ(Store(isDirectory ? alias + "\\file" : alias, "new"), WriteOutcome::Failed) << alias;
    files.CreateDirectories("T:\\in", Name(alias + "\\below"));
  }
  EXPECT_EQ(ReadText(temp / "in/a file with a long name.text"), "old");
  EXPECT_EQ(CountIn("in/a directory with a long name"), 0u);
  EXPECT_EQ(Store("new~1.txt", "a name like any other"), WriteOutcome::Done);
}

TEST_F(Win32FilesTest, AFileWithAnotherNameIsNotOpened) {
  WriteText(temp / "outside", "outside");
  ASSERT_TRUE(CreateHardLinkA((temp / "in/inside").c_str(), (temp / "outside").c_str(), nullptr));
  EXPECT_FALSE(CanOpen("inside"));
  EXPECT_EQ(Store("inside", "changed"), WriteOutcome::Failed);
  EXPECT_EQ(ReadText(temp / "outside"), "outside");
}

TEST_F(Win32FilesTest, WhatIsReceivedMayBeReadAndNotWrittenByOthers) {
  const OpenedOutput opened = files.OpenOutput("T:\\in", Name("file"), WhenMissing::Create);
  ASSERT_TRUE(opened.file);
  EXPECT_EQ(opened.file->WriteAt(0, Bytes("text")), WriteOutcome::Done);
  EXPECT_TRUE(CanOpen("file")) << "it is there, and this receiver's own";
  EXPECT_FALSE(files.OpenOutput("T:\\in", Name("file"), WhenMissing::Fail).file);
  EXPECT_FALSE(files.OpenInput("T:\\in\\file")) << "a sender sends nothing that still changes";
  EXPECT_EQ(opened.file->WriteAt((uint64_t{1} << 33) + 5, Bytes("end")), WriteOutcome::Done);
  EXPECT_EQ(opened.file->WriteAt(~uint64_t{0}, Bytes("end")), WriteOutcome::DiskFull);
  EXPECT_EQ(opened.file->Close(), WriteOutcome::Done);
  const auto input = files.OpenInput("T:\\in\\file");
  ASSERT_TRUE(input);
  EXPECT_EQ(input->Length(), (uint64_t{1} << 33) + 8);
  std::array<uint8_t, 4> start{}, end{};
  EXPECT_EQ(input->ReadAt(0, start), 4u);
  EXPECT_EQ(input->ReadAt((uint64_t{1} << 33) + 6, end), 2u);
  EXPECT_EQ(input->ReadAt(~uint64_t{0}, end), 0u);
  EXPECT_EQ(start, (std::array<uint8_t, 4>{'t', 'e', 'x', 't'}));
  EXPECT_FALSE(files.OpenOutput("T:\\in", Name("file"), WhenMissing::Fail).file) << "while a sender reads it";
}

TEST_F(Win32FilesTest, ListsWhatTravelsUnderTheNamesOfTheCodePage) {
  fs::create_directories(temp / "out/sub dir");
  for (const wchar_t* name : {L"a", L"\u00E4", L"\u65E5\u672C", L"slash\uFF3C"})
    WriteText(fs::path(temp / "out") / name, "");
  const auto entries = files.ListDirectory("T:\\out");
  ASSERT_TRUE(entries);
  std::vector<std::string> listed;
  for (const DirectoryEntry& entry : *entries) listed.push_back(entry.name + (entry.isDirectory ? "|d" : ""));
  std::sort(listed.begin(), listed.end());
  const auto wanted = GetACP() == CP_UTF8 ? std::vector<std::string>{"a", "slash\xEF\xBC\xBC", "sub dir|d", "\xC3\xA4",
                                                                     "\xE6\x97\xA5\xE6\x9C\xAC"}
                                          : std::vector<std::string>{"??", "a", "slash?", "sub dir|d", "\xE4"};
  EXPECT_EQ(listed, wanted);
  EXPECT_FALSE(files.ListDirectory("T:\\none"));
  EXPECT_EQ(files.KindOf("T:\\out\\a"), PathKind::File);
  EXPECT_EQ(files.KindOf("T:\\out"), PathKind::Directory);
  for (const char* path : {"T:\\out", "T:\\out\\none", "T:\\nul", ""}) {
    EXPECT_NE(files.KindOf(path), PathKind::File) << path;
    EXPECT_FALSE(files.OpenInput(path)) << path;
  }
}

TEST(DriveLetters, AreTheMachinesUntilAHostPutsADirectoryBehindOne) {
  const TempDirectory temp;
  const fs::path box = fs::path(temp.Path()).make_preferred() / "box";
  fs::create_directories(box);
  const std::string path = box.string();
  DriveLetters drives;
  EXPECT_EQ(drives.DrivePathOf(path), path);
  EXPECT_EQ(drives.DrivePathOf(temp / "box/../box/"), path);
  EXPECT_EQ(drives.DrivePathOf(temp / "none"), std::nullopt);
  EXPECT_EQ(drives.Resolve("c:\\a\\b"), L"\\\\?\\C:\\a\\b");
  EXPECT_EQ(drives.Resolve("C:a/b"), L"\\\\?\\C:\\a\\b");
  EXPECT_EQ(drives.Resolve("C:"), L"\\\\?\\C:\\");
  EXPECT_EQ(drives.ResolveTarget("in\\box")->substr(5), L":\\in\\box");
  EXPECT_EQ(drives.ResolveTarget("\\\\server\\share\\in"), std::nullopt);
  ASSERT_TRUE(drives.Map(path[0], path));
  EXPECT_EQ(drives.Resolve(path.substr(0, 2) + "\\x"), L"\\\\?\\" + box.wstring() + L"\\x");
  const auto moved = drives.DrivePathOf(temp.Path());
  ASSERT_TRUE(moved) << "its own letter leads elsewhere now";
  EXPECT_NE((*moved)[0], path[0]);
  EXPECT_EQ(drives.Resolve(*moved + "box"), L"\\\\?\\" + box.wstring());
  EXPECT_FALSE(drives.Map('1', path));
  EXPECT_FALSE(drives.Map('E', path + "\\none"));
}

}  // namespace
}  // namespace quorl
