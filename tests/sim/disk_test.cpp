#include "sim/disk.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/random.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t GIGABYTE = uint64_t{1} << 30;

Bytes BytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

RelativePath Name(std::string_view text) {
  return RelativePath::FromText(text).value();
}

struct DiskTest : testing::Test {
  World world{3};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  SimDisk& disk = machine.Disk();
  Files& files = machine.Seam().files;
};

TEST_F(DiskTest, ATestPutsFilesThereAndFindsThem) {
  disk.Write("C:\\in\\a\\b.txt", "text");
  disk.Write("c:/in/z", "");
  disk.MakeDirectory("C:\\in\\empty");
  EXPECT_EQ(disk.List("C:\\in"), (std::vector<std::string>{"a", "a\\b.txt", "empty", "z"}));
  const std::map<std::string, Bytes> tree = {{"a\\b.txt", BytesOf("text")}, {"z", {}}};
  EXPECT_EQ(disk.Tree("C:\\in"), tree);
  EXPECT_EQ(disk.Read("C:\\in\\..\\in\\.\\a\\b.txt"), BytesOf("text"));
  EXPECT_EQ(disk.Read("C:\\in\\a"), std::nullopt);
  EXPECT_EQ(disk.Read("D:\\in\\z"), std::nullopt);
  disk.Remove("C:\\in\\a");
  EXPECT_EQ(disk.List("C:\\in"), (std::vector<std::string>{"empty", "z"}));

  disk.AddDrive('d', DriveType::Fixed);
  disk.Write("D:\\copy\\z", "");
  EXPECT_FALSE(disk.SameTree("C:\\in", disk, "D:\\copy"));
  disk.MakeDirectory("D:\\copy\\empty");
  EXPECT_TRUE(disk.SameTree("C:\\in", disk, "D:\\copy"));
  disk.Write("D:\\copy\\z", "x");
  EXPECT_FALSE(disk.SameTree("C:\\in", disk, "D:\\copy"));
}

TEST_F(DiskTest, ASenderListsAndReads) {
  disk.Write("C:\\src\\f", "0123456789");
  disk.MakeDirectory("C:\\src\\d");
  const auto entries = files.ListDirectory("C:\\src");
  ASSERT_TRUE(entries);
  ASSERT_EQ(entries->size(), 2u);
  EXPECT_TRUE(entries->at(0).isDirectory);
  EXPECT_EQ(entries->at(1).name, "f");
  EXPECT_FALSE(files.ListDirectory("C:\\src\\f"));
  EXPECT_TRUE(files.IsFile("C:\\src\\f"));
  EXPECT_FALSE(files.IsFile("C:\\src\\d"));
  EXPECT_EQ(files.OpenInput("C:\\src\\d"), nullptr);

  const auto file = files.OpenInput("C:\\src\\f");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->Length(), 10u);
  Bytes buffer(4);
  EXPECT_EQ(file->ReadAt(8, buffer), 2u);
  EXPECT_EQ(buffer[1], '9');
  disk.Write("C:\\src\\f", "012");
  EXPECT_EQ(file->ReadAt(2, buffer), 1u) << "the file shrank under its reader";
  machine.FailCall(Seam::Files, 1);
  EXPECT_EQ(file->ReadAt(0, buffer), std::nullopt);
}

TEST_F(DiskTest, AReceiverWritesBeneathItsTarget) {
  EXPECT_EQ(files.OpenOutput("C:\\in", Name("a\\f"), WhenMissing::Create).file, nullptr) << "the directory is missing";
  files.MakeTarget("C:\\in");
  files.CreateDirectories("C:\\in", Name("a"));
  EXPECT_FALSE(files.CanOpenOutput("C:\\in", Name("a\\f")));
  auto opened = files.OpenOutput("C:\\in", Name("a\\f"), WhenMissing::Create);
  ASSERT_EQ(opened.outcome, WriteOutcome::Done);
  EXPECT_TRUE(files.CanOpenOutput("C:\\in", Name("a\\f")));
  EXPECT_EQ(opened.file->WriteAt(3, BytesOf("de")), WriteOutcome::Done);
  EXPECT_EQ(opened.file->WriteAt(0, BytesOf("abc")), WriteOutcome::Done);
  EXPECT_EQ(opened.file->Close(), WriteOutcome::Done);
  opened = files.OpenOutput("C:\\in", Name("a\\f"), WhenMissing::Create);
  EXPECT_EQ(opened.file->WriteAt(1, BytesOf("X")), WriteOutcome::Done);
  EXPECT_EQ(disk.Read("C:\\in\\a\\f"), BytesOf("aXcde")) << "opening truncates nothing";
  EXPECT_EQ(files.OpenOutput("C:\\in", Name("a"), WhenMissing::Create).file, nullptr) << "a directory";
  EXPECT_EQ(files.OpenOutput("E:\\in", Name("f"), WhenMissing::Create).file, nullptr) << "no such drive";
  EXPECT_NE(world.EventLog().find("0 pc1 open to write C:\\in\\a\\f\n0 pc1 close C:\\in\\a\\f\n"), std::string::npos);
}

TEST_F(DiskTest, ADiskCanBeFullSlowOrFussy) {
  disk.SetFreeBytes(10);
  auto file = files.OpenOutput("C:\\", Name("f"), WhenMissing::Create).file;
  EXPECT_EQ(file->WriteAt(0, Bytes(8)), WriteOutcome::Done);
  EXPECT_EQ(machine.Seam().shell.FreeBytes("C:\\"), 2u);
  EXPECT_EQ(file->WriteAt(8, Bytes(3)), WriteOutcome::DiskFull);
  EXPECT_EQ(file->WriteAt(0, Bytes(8)), WriteOutcome::Done) << "what is there can be written again";
  disk.SetWriteTime(30ms);
  machine.Call([&] { EXPECT_EQ(file->WriteAt(8, Bytes(2)), WriteOutcome::Done); });
  EXPECT_EQ(world.Now(), 30ms);
  machine.FailEvery([](std::string_view call) { return call == "files.write" || call == "files.close"; });
  EXPECT_EQ(file->WriteAt(0, Bytes(1)), WriteOutcome::Failed);
  EXPECT_EQ(file->Close(), WriteOutcome::Failed);

  disk.RefuseName([](const std::string& name) { return name.find('?') != std::string::npos; });
  files.CreateDirectories("C:\\", Name("d?r\\x"));
  EXPECT_EQ(files.OpenOutput("C:\\", Name("f?"), WhenMissing::Create).file, nullptr);
  EXPECT_EQ(disk.List("C:"), std::vector<std::string>{"f"});
}

TEST_F(DiskTest, HugeFilesTakeMemoryOnlyForWhatIsInThem) {
  auto file = files.OpenOutput("C:\\", Name("sparse"), WhenMissing::Create).file;
  EXPECT_EQ(file->WriteAt(5 * GIGABYTE, BytesOf("end")), WriteOutcome::Done);
  EXPECT_EQ(disk.Length("C:\\sparse"), 5 * GIGABYTE + 3);
  const auto input = files.OpenInput("C:\\sparse");
  Bytes buffer(6, 1);
  EXPECT_EQ(input->ReadAt(5 * GIGABYTE - 2, buffer), 5u);
  EXPECT_EQ(buffer, (Bytes{0, 0, 'e', 'n', 'd', 1}));
  EXPECT_EQ(
      disk.WriteAt({std::make_shared<DiskFile>(), disk.OpenToRead("C:\\sparse").drive}, uint64_t{1} << 41, buffer),
      false);

  disk.WriteSynthetic("C:\\huge", 6 * GIGABYTE + 1, 77);
  const auto huge = files.OpenInput("C:\\huge");
  EXPECT_EQ(huge->Length(), 6 * GIGABYTE + 1);
  EXPECT_EQ(huge->ReadAt(6 * GIGABYTE, buffer), 1u);
  Bytes aligned(64), unaligned(50);
  huge->ReadAt(4 * GIGABYTE, aligned);
  huge->ReadAt(4 * GIGABYTE + 5, unaligned);
  EXPECT_TRUE(std::equal(unaligned.begin(), unaligned.end(), aligned.begin() + 5));
}

TEST_F(DiskTest, CopiesOfSyntheticFilesAreComparedByEveryByte) {
  SimMachine& other = world.AddMachine("pc2", Ipv4(10, 0, 0, 2));
  constexpr uint64_t LENGTH = 1'000'003;
  disk.WriteSynthetic("C:\\src\\f", LENGTH, 9);
  const Bytes content = disk.Read("C:\\src\\f").value();
  other.Disk().MakeDirectory("C:\\in");
  auto file = other.Seam().files.OpenOutput("C:\\in", Name("f"), WhenMissing::Create).file;
  const auto write = [&](uint64_t begin, uint64_t end) {
    ASSERT_EQ(file->WriteAt(begin, std::span(content).subspan(begin, end - begin)), WriteOutcome::Done);
  };
  const auto same = [&] {
    const bool equal = other.Disk().Read("C:\\in\\f") == content;
    EXPECT_EQ(disk.SameTree("C:\\src", other.Disk(), "C:\\in"), equal);
    return equal;
  };
  write(500'000, LENGTH);
  write(0, 400'000);
  EXPECT_FALSE(same());
  write(399'999, 500'000);
  EXPECT_TRUE(same());
  const uint8_t wrong = static_cast<uint8_t>(content[123'456] ^ 1);
  file->WriteAt(123'456, {&wrong, 1});
  EXPECT_FALSE(same());
  write(123'456, 123'457);
  EXPECT_TRUE(same());
}

TEST_F(DiskTest, RandomWritesGiveWhatASimpleModelGives) {
  Random random(11);
  disk.WriteSynthetic("C:\\pattern", 300'000, 5);
  const Bytes pattern = disk.Read("C:\\pattern").value();
  FileContent content;
  Bytes model;
  const Patterns known = {4, 5};
  for (int step = 0; step < 500; ++step) {
    const size_t offset = random.Below(200'000), count = random.Below(step % 3 == 0 ? 90'000 : 20);
    Bytes bytes(pattern.begin() + static_cast<std::ptrdiff_t>(offset),
                pattern.begin() + static_cast<std::ptrdiff_t>(offset + count));
    if (step % 4 == 1) std::fill(bytes.begin(), bytes.end(), static_cast<uint8_t>(step));
    content.WriteAt(offset, bytes, known);
    if (count > 0) model.resize(std::max(model.size(), offset + count));
    std::copy(bytes.begin(), bytes.end(), model.begin() + static_cast<std::ptrdiff_t>(offset));
    if (step % 50 != 0) continue;
    Bytes read(model.size() + 10);
    ASSERT_EQ(content.ReadAt(0, read), model.size());
    read.resize(model.size());
    ASSERT_EQ(read, model) << "after step " << step;
  }
}

TEST_F(DiskTest, TheShellTellsWhatTheTestSet) {
  Shell& shell = machine.Seam().shell;
  EXPECT_EQ(shell.DriveTypeOf("C:\\in"), DriveType::Fixed);
  EXPECT_EQ(shell.DriveTypeOf("D:\\in"), DriveType::NoRoot);
  disk.SetDriveType(DriveType::Remote);
  EXPECT_EQ(shell.DriveTypeOf("C:\\in"), DriveType::Remote);
  machine.Shell().failingQueryLookups = 2;
  EXPECT_FALSE(shell.HasExtendedFreeSpaceQuery());
  EXPECT_FALSE(shell.HasExtendedFreeSpaceQuery());
  EXPECT_TRUE(shell.HasExtendedFreeSpaceQuery());
  disk.SetFreeBytes(10'000);
  EXPECT_EQ(shell.QueryFreeClusters("C:\\")->freeClusters, 2u);
  machine.Shell().folders[25] = std::nullopt;
  EXPECT_TRUE(shell.LookUpFolder(25).known);
  EXPECT_FALSE(shell.LookUpFolder(26).known);
  machine.Shell().logonValues[{"key", "name"}] = "value";
  EXPECT_EQ(shell.ReadLogonValue("key", "name"), "value");
  EXPECT_EQ(shell.ReadLogonValue("key", "other"), std::nullopt);
}

}  // namespace
}  // namespace quorl::sim
