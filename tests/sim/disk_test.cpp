// A disk that shows wrong bytes, or loses none when it should, would hide what it is there to find.
#include "sim/disk.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

RelativePath Name(std::string_view text) {
  return RelativePath::FromText(text).value();
}

struct DiskTest : testing::Test {
  std::unique_ptr<OutputFile> Open(const char* name) {
    return files.OpenOutput("C:\\", Name(name), WhenMissing::Create).file;
  }

  World world{3};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  SimDisk& disk = machine.Disk();
  Files& files = machine.Seam().files;
};

TEST_F(DiskTest, TreesAreTheSameOnlyWithTheSameNamesAndEveryByte) {
  constexpr uint64_t LENGTH = 1'000'003;
  disk.WriteSynthetic("C:\\src\\f", LENGTH, 9);
  const Bytes content = disk.Read("C:\\src\\f").value();
  SimDisk& other = world.AddMachine("pc2", Ipv4(10, 0, 0, 2)).Disk();
  other.Write("C:\\in\\f", content);
  EXPECT_TRUE(disk.SameTree("C:\\src", other, "C:\\in"));
  Bytes wrong = content;
  wrong[123'456] ^= 1;
  other.Write("C:\\in\\f", wrong);
  EXPECT_FALSE(disk.SameTree("C:\\src", other, "C:\\in"));
  other.Write("C:\\in\\f", content);
  other.MakeDirectory("C:\\in\\empty");
  EXPECT_FALSE(disk.SameTree("C:\\src", other, "C:\\in"));
}

TEST_F(DiskTest, RandomWritesGiveWhatASimpleModelGives) {
  Random random(11);
  disk.WriteSynthetic("C:\\pattern", 300'000, 5);
  const Bytes pattern = disk.Read("C:\\pattern").value();
  FileContent content;
  Bytes model;
  for (int step = 0; step < 500; ++step) {
    const size_t offset = random.Below(200'000), count = random.Below(step % 3 == 0 ? 90'000 : 20);
    const auto begin = pattern.begin() + static_cast<std::ptrdiff_t>(offset);
    Bytes bytes(begin, begin + static_cast<std::ptrdiff_t>(count));
    if (step % 4 == 1) std::fill(bytes.begin(), bytes.end(), static_cast<uint8_t>(step));
    content.WriteAt(offset, bytes, {4, 5});
    if (count > 0) model.resize(std::max(model.size(), offset + count));
    std::copy(bytes.begin(), bytes.end(), model.begin() + static_cast<std::ptrdiff_t>(offset));
    if (step % 50 != 0) continue;
    Bytes read(model.size());
    ASSERT_EQ(content.ReadAt(0, read), model.size());
    ASSERT_EQ(read, model) << "after step " << step;
  }
}

TEST_F(DiskTest, ItCanBeFullSlowOrFussyAndItsCallsFail) {
  disk.SetFreeBytes(10);
  auto file = Open("f");
  EXPECT_EQ(file->WriteAt(0, Bytes(8)), WriteOutcome::Done);
  EXPECT_EQ(file->WriteAt(8, Bytes(3)), WriteOutcome::DiskFull);
  EXPECT_EQ(file->WriteAt(0, Bytes(8)), WriteOutcome::Done) << "what is there can be written again";
  disk.SetWriteTime(30ms);
  machine.Call([&] { EXPECT_EQ(file->WriteAt(8, Bytes(2)), WriteOutcome::Done); });
  EXPECT_EQ(world.Now(), 30ms);
  machine.FailCall("files.write", 2);
  machine.Call([&] {
    for (const auto outcome : {WriteOutcome::Done, WriteOutcome::Failed, WriteOutcome::Done})
      EXPECT_EQ(file->WriteAt(0, Bytes(1)), outcome);
  });
  machine.FailCall(Seam::Files, 1);
  EXPECT_EQ(file->Close(), WriteOutcome::Failed);
  disk.RefuseName([](const std::string& name) { return name == "g"; });
  EXPECT_EQ(Open("g"), nullptr);
}

TEST_F(DiskTest, APowerCutLosesSomeOfWhatTheMachineWroteAndNothingElse) {
  const Bytes former(5000, 1), latter(5000, 2);
  std::map<std::string, int> fates;
  for (int i = 0; i < 200; ++i) {
    disk.Write("C:\\old", former);
    for (const char* name : {"old", "new"}) Open(name)->WriteAt(0, latter);
    disk.LoseUnsynced(world.Chance());
    for (const char* name : {"old", "new"}) {
      const auto left = disk.Read(std::string("C:\\") + name);
      const bool isWhole = left == latter, isFormer = left == (name[0] == 'o' ? std::optional(former) : std::nullopt);
      ++fates[std::string(name) + (isWhole ? " kept" : isFormer ? " lost" : " mixed")];
    }
    const auto left = disk.Tree("C:");
    disk.LoseUnsynced(world.Chance());
    EXPECT_EQ(disk.Tree("C:"), left) << "what has outlasted it is durable";
    disk.Remove("C:\\new");
  }
  EXPECT_EQ(fates.size(), 6u);
  for (const auto& [fate, count] : fates) EXPECT_GT(count, 20) << fate;
}

}  // namespace
}  // namespace quorl::sim
