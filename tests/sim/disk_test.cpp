// A disk that shows wrong bytes, or loses none when it should, would hide what it is there to find.
#include "sim/machine/disk.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/world/world.h"

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
