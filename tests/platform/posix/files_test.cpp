#include "platform/posix/files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <map>

#include "platform/posix/open_files.h"
#include "tests/failing_call.h"
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

class FilesTest : public testing::TestWithParam<Resolver> {
 protected:
  FilesTest() { EXPECT_TRUE(drives.Map('T', temp.Path())); }

  OpenedOutput Open(std::string_view name, WhenMissing whenMissing = WhenMissing::Create) {
    OpenedOutput opened = files.OpenOutput("T:\\in", Name(name), whenMissing);
    EXPECT_EQ(opened.outcome == WriteOutcome::Done, opened.file != nullptr);
    return opened;
  }
  WriteOutcome Store(std::string_view name, std::string_view text) {
    const OpenedOutput opened = Open(name);
    if (!opened.file) return opened.outcome;
    const WriteOutcome written = opened.file->WriteAt(0, Bytes(text));
    return written == WriteOutcome::Done ? opened.file->Close() : written;
  }
  bool CanOpen(std::string_view name) { return files.CanOpenOutput("T:\\in", Name(name)); }

  const TempDirectory temp;
  Drives drives;
  PosixFiles files{drives, GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Resolvers, FilesTest, testing::Values(Resolver::Kernel, Resolver::Component),
                         [](const auto& each) { return each.param == Resolver::Kernel ? "Kernel" : "Component"; });

TEST_P(FilesTest, StoresBeneathTheTargetWhichLinksMayLeadTo) {
  fs::create_directory_symlink("elsewhere", temp / "in");
  fs::create_directories(temp / "elsewhere");
  files.MakeTarget("T:\\in");
  EXPECT_EQ(Store("a\\b\\file", "x"), WriteOutcome::Failed) << "without its directories";
  files.CreateDirectories("T:\\in", Name("a\\b"));
  EXPECT_TRUE(MakeDirectoriesBeneath(GetParam(), OpenBase(temp / "in").Get(), Name("a\\b"))) << "another had made it";
  EXPECT_FALSE(CanOpen("a\\b\\file"));
  EXPECT_FALSE(fs::exists(temp / "in/a/b/file")) << "asking creates nothing";
  EXPECT_EQ(Store("a\\b\\file", "hello"), WriteOutcome::Done);
  EXPECT_TRUE(CanOpen("a\\b\\file"));
  EXPECT_EQ(Store("a\\b\\file", "HE"), WriteOutcome::Done);
  EXPECT_EQ(ReadText(temp / "elsewhere/a/b/file"), "HEllo") << "not truncated";
  for (const std::string name : {"a", "a\\b\\file\\c", ""}) EXPECT_EQ(Store(name, "x"), WriteOutcome::Failed) << name;
  EXPECT_EQ(Store(std::string(300, 'n'), "x"), WriteOutcome::Failed);
}

TEST_P(FilesTest, ATargetIsMadeOnceAndNotAgainForAName) {
  files.MakeTarget("T:\\new\\target");
  EXPECT_TRUE(fs::is_directory(temp / "new/target"));
  fs::remove_all(temp / "new");
  files.CreateDirectories("T:\\new\\target", Name("a"));
  EXPECT_FALSE(fs::exists(temp / "new"));
  files.MakeTarget("T:\\..\\escaped");
  EXPECT_FALSE(fs::exists(temp / "../escaped"));
  for (const char* base : {"D:\\x", "T:\\..\\x", "T:\\a/b", "..", "T:\\missing"})
    EXPECT_EQ(files.OpenOutput(base, Name("a"), WhenMissing::Create).outcome, WriteOutcome::Failed) << base;
}

TEST_P(FilesTest, AFileThatHasBeenRemovedIsNeitherWellClosedNorMadeAgain) {
  files.MakeTarget("T:\\in");
  const OpenedOutput opened = Open("a");
  ASSERT_TRUE(opened.file);
  EXPECT_EQ(opened.file->WriteAt(0, Bytes("x")), WriteOutcome::Done);
  fs::remove(temp / "in/a");
  EXPECT_EQ(opened.file->Close(), WriteOutcome::Removed);
  EXPECT_EQ(Open("a", WhenMissing::Fail).outcome, WriteOutcome::Failed);
  EXPECT_FALSE(fs::exists(temp / "in/a"));
}

TEST_P(FilesTest, NoLinkIsFollowedAndOnlyARegularFileWithOneNameOpened) {
  fs::create_directories(temp / "in/real");
  fs::create_directories(temp / "outside");
  WriteText(temp / "outside/secret", "secret");
  WriteText(temp / "in/real/file", "file");
  fs::create_directory_symlink(temp / "outside", temp / "in/absolute");
  fs::create_directory_symlink("../outside", temp / "in/upward");
  fs::create_directory_symlink("real", temp / "in/inward");
  fs::create_symlink("../outside/secret", temp / "in/tofile");
  fs::create_symlink("../outside/new", temp / "in/dangling");
  fs::create_hard_link(temp / "outside/secret", temp / "in/hard");
  ASSERT_EQ(mkfifo((temp / "in/fifo").c_str(), 0600), 0);
  const Descriptor reader(open((temp / "in/fifo").c_str(), O_RDONLY | O_NONBLOCK));
  for (const char* name :
       {"absolute\\secret", "upward\\secret", "tofile", "inward\\file", "dangling", "upward\\new", "hard", "fifo"}) {
    EXPECT_FALSE(CanOpen(name)) << name;
    EXPECT_EQ(Store(name, "changed"), WriteOutcome::Failed) << name;
  }
  for (const char* name : {"absolute\\dir", "upward\\dir", "dangling\\dir"})
    files.CreateDirectories("T:\\in", Name(name));
  EXPECT_EQ(ReadText(temp / "outside/secret"), "secret");
  EXPECT_EQ(ReadText(temp / "in/real/file"), "file");
  EXPECT_EQ(std::distance(fs::directory_iterator(temp / "outside"), {}), 1);
}

TEST_P(FilesTest, OffsetsHave64BitsAndAFullDiskIsTold) {
  files.MakeTarget("T:\\in");
  const OpenedOutput opened = Open("big");
  ASSERT_TRUE(opened.file);
  constexpr uint64_t BEYOND = (uint64_t{1} << 33) + 5;
  EXPECT_EQ(opened.file->WriteAt(BEYOND, Bytes("end")), WriteOutcome::Done);
  EXPECT_EQ(opened.file->WriteAt(0, {}), WriteOutcome::Done);
  // Beyond what any file may grow to.
  EXPECT_EQ(opened.file->WriteAt((uint64_t{1} << 63) - 2, Bytes("end")), WriteOutcome::DiskFull);
  EXPECT_EQ(opened.file->WriteAt(~uint64_t{0}, Bytes("end")), WriteOutcome::DiskFull);
  EXPECT_EQ(opened.file->Close(), WriteOutcome::Done);
  EXPECT_EQ(fs::file_size(temp / "in/big"), BEYOND + 3);
  for (const int full : {ENOSPC, EDQUOT, EFBIG}) EXPECT_EQ(OutcomeOf(full), WriteOutcome::DiskFull) << full;
  EXPECT_EQ(OutcomeOf(EIO), WriteOutcome::Failed);
  WhileCallFails(SYS_close, EDQUOT, [&] { EXPECT_EQ(Store("told at the close", "x"), WriteOutcome::DiskFull); });
  // The system writes what fits, and says so by the count alone.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{100, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(Store("cut", std::string(200, 'x')), WriteOutcome::DiskFull);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
}

TEST_P(FilesTest, ZerosTakeNoRoomAndEveryByteIsInItsPlace) {
  files.MakeTarget("T:\\in");
  std::string text(1 << 20, '\0');
  text[300'000] = 'a';
  text[700'001] = 'b';
  const OpenedOutput opened = Open("sparse");
  ASSERT_TRUE(opened.file);
  for (const size_t at : {0, 400'000, 800'000})
    EXPECT_EQ(opened.file->WriteAt(at, Bytes(std::string_view(text).substr(at, 400'000))), WriteOutcome::Done);
  EXPECT_EQ(opened.file->WriteAt(700'000, Bytes(std::string_view("\0\0", 2))), WriteOutcome::Done);
  text[700'001] = '\0';
  EXPECT_EQ(opened.file->Close(), WriteOutcome::Done);
  EXPECT_EQ(ReadText(temp / "in/sparse"), text);
  struct stat status {};
  ASSERT_EQ(stat((temp / "in/sparse").c_str(), &status), 0);
  EXPECT_LE(status.st_blocks * 512, 16384) << "two pages";
}

TEST(ResolverProbe, FallsBackWhereTheCallIsMissingOrForbiddenAndOnlyThen) {
  // An old kernel, and some containers.
  for (const int error : {ENOSYS, EPERM}) {
    const TempDirectory temp;
    Drives drives;
    ASSERT_TRUE(drives.Map('T', temp.Path()));
    const bool isFailing = WhileCallFails(SYS_openat2, error, [&] {
      ASSERT_EQ(ProbeResolver(), Resolver::Component);
      PosixFiles without(drives, ProbeResolver());
      without.CreateDirectories("T:\\", Name("a\\b"));
      EXPECT_TRUE(without.OpenOutput("T:\\", Name("a\\b\\c"), WhenMissing::Create).file);
      // A resolver that was chosen with the call stays closed when the call goes.
      PosixFiles with(drives, Resolver::Kernel);
      EXPECT_FALSE(with.OpenOutput("T:\\", Name("a\\b\\c"), WhenMissing::Create).file);
    });
    if (!isFailing) GTEST_SKIP() << "calls cannot be made to fail here";
  }
}

TEST(SenderFiles, ListsFilesAndDirectoriesInTheDisksOwnOrderAndOpensOnlyFiles) {
  const TempDirectory temp;
  Drives drives;
  ASSERT_TRUE(drives.Map('T', temp.Path()));
  PosixFiles files(drives, Resolver::Kernel);
  fs::create_directories(temp / "b dir");
  for (const char* name : {"a", "\xC3\xA4", ".hidden", "back\\slash"}) WriteText(temp / name, "");
  fs::create_symlink("a", temp / "linked");
  fs::create_directory_symlink("b dir", temp / "linked dir");
  fs::create_symlink("loop", temp / "loop");
  ASSERT_EQ(mkfifo((temp / "fifo").c_str(), 0600), 0);
  const auto openFiles = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  const auto before = openFiles();
  const auto entries = files.ListDirectory("T:\\");
  EXPECT_EQ(openFiles(), before);
  ASSERT_TRUE(entries);
  std::vector<std::string> listed, there;
  std::map<std::string, Unsent> unsent;
  for (const DirectoryEntry& entry : *entries) {
    if (entry.unsent != Unsent::No) unsent[entry.name] = entry.unsent;
    if (entry.unsent == Unsent::No) listed.push_back(entry.name + (entry.isDirectory ? "|d" : ""));
  }
  EXPECT_EQ(unsent,
            (std::map<std::string, Unsent>{
                {"fifo", Unsent::Fifo}, {"linked dir", Unsent::LinkToDirectory}, {"loop", Unsent::BrokenLink}}));
  for (const auto& entry : fs::directory_iterator(temp.Path())) {
    std::error_code isNoFile;
    if (entry.path().filename() == "b dir") there.push_back("b dir|d");
    if (entry.is_regular_file(isNoFile)) there.push_back(entry.path().filename());
  }
  EXPECT_EQ(listed, there);
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, (std::vector<std::string>{".hidden", "a", "b dir|d", "back\\slash", "linked", "\xC3\xA4"}));
  EXPECT_EQ(files.KindOf("T:\\linked dir"), PathKind::Directory);
  EXPECT_EQ(files.KindOf("T:\\fifo"), PathKind::Other);
  for (const char* path : {"T:\\a", "T:\\linked", "T:a"}) EXPECT_TRUE(files.OpenInput(path)) << path;
  for (const char* path : {"T:\\b dir", "T:\\fifo", "T:\\loop", "T:\\b dir\\..\\a", "T:\\back\\slash", ""})
    EXPECT_FALSE(files.OpenInput(path)) << path;
}

}  // namespace
}  // namespace quorl
