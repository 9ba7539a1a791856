// What the command reads from disks: selections, and the demo's comparison.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cli/commands/demo_tree.h"
#include "cli/outcome/exits.h"
#include "cli/transfer/send_plan.h"
#include "temp_tree.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

class Trees : public TempTreeTest {
 protected:
  std::string Make(const std::string& name, size_t size = 10) const {
    Write(name, std::string(size, 'x'));
    return (root / name).native();
  }

  static Exit Refusal(const std::vector<std::string>& paths) {
    try {
      if (!PlanSending(paths, {}).unfit.empty()) return Exit::LocalFiles;
    } catch (const Failure& failure) {
      return failure.code;
    }
    return Exit::Complete;
  }
};

TEST_F(Trees, EveryParentGetsADriveOfItsOwn) {
  std::string first = Make("one/a.txt");
  std::string second = Make("two/deeper/b.txt", 4254);
  SendPlan plan = PlanSending({first, second, Make("one/c.txt"), first}, {});
  EXPECT_EQ(plan.paths, (std::vector<std::string>{"D:\\a.txt", "E:\\b.txt", "D:\\c.txt"}));
  ASSERT_EQ(plan.files.size(), 3u);
  EXPECT_EQ(plan.PathOf(plan.files[1]), second);
  EXPECT_EQ(plan.blocks, 4u) << "a full block is followed by an empty one";
}

TEST_F(Trees, ADirectoryIsCountedAsItWillTravel) {
  for (const char* name : {"a.txt", "sub/b.txt", "sub/c?d.txt", "what?.txt", "sub/back\\slash", "bare/barer.txt"})
    Make(std::string("tree/") + name);
  fs::create_directories(root / "tree/bare/barer");
  fs::create_directory_symlink(root / "tree/sub", root / "tree/link");
  fs::create_symlink("a.txt", root / "tree/alias");
  fs::create_symlink("nowhere", root / "tree/broken");
  SendPlan all = PlanSending({(root / "tree/").native()}, {});
  EXPECT_EQ(all.paths, std::vector<std::string>{"D:\\tree"});
  EXPECT_EQ(all.files.size(), 5u) << "a.txt, alias, bare/barer.txt, sub/b.txt, sub/c?d.txt";
  EXPECT_EQ(all.leftOut.size(), 4u) << "what?.txt, sub/back\\slash, link, broken";
  EXPECT_EQ(all.lost, 2u) << "links are told, but nothing that was chosen is missing";
  EXPECT_EQ(all.renamed.size(), 1u);
  EXPECT_EQ(all.emptyDirectories, std::vector<std::string>{"tree/bare/barer"});
  EXPECT_EQ(PlanSending({(root / "tree").native()}, {.subdirectories = false, .exclude = {}}).files.size(), 2u);
  fs::create_directory_symlink(root / "tree", root / "way");
  for (const char* text : {"tree/.", "tree/sub/..", "way", "way/"}) {
    EXPECT_EQ(PlanSending({(root / text).native()}, {}).paths, all.paths) << text;
  }
}

TEST_F(Trees, WhatCannotBeSentIsRefused) {
  std::string good = Make("one/a.txt");
  Make("deep/sub?dir/a.txt");
  Make("long/" + std::string(200, 'x') + "/" + std::string(60, 'y'));
  for (const std::string& path :
       {(root / "missing").native(), Make("one/wh?t"), Make(".quorl-manifest"), Make("one/back\\slash"),
        std::string("/dev/null"), (root / "deep").native(), (root / "long").native()}) {
    EXPECT_EQ(Refusal({good, path}), Exit::LocalFiles) << path;
  }
  EXPECT_EQ(Refusal({"/"}), Exit::Usage);
  EXPECT_EQ(Refusal({good, Make("two/a.txt")}), Exit::Usage) << "both would arrive as a.txt";
  std::vector<std::string> scattered;
  for (int i = 0; i < 24; ++i) scattered.push_back(Make("many/" + std::to_string(i) + "/f" + std::to_string(i)));
  EXPECT_EQ(Refusal(scattered), Exit::Usage) << "more parents than drive letters";
  scattered.pop_back();
  EXPECT_EQ(Refusal(scattered), Exit::Complete);
}

TEST(Exclusions, PatternsAreForNamesOrForPaths) {
  const Exclusion exclusion({"*.o", "cache/", "doc/**/*.tmp", "/tree/x?", "/tree/p[!a]q", "[!a-c]z", "\\*", "[["});
  const std::vector<std::pair<const char*, bool>> names = {
      {"tree/a.o", true}, {"a.o/x", false},           {"tree/a.obj", false},   {"tree/cache/", true},
      {"cache", false},   {"tree/doc/b/c.tmp", true}, {"doc/a/b/c.tmp", true}, {"adoc/b/c.tmp", false},
      {"tree/xy", true},  {"tree/x", false},          {"sub/tree/xy", false},  {"tree/x\xc3\xa4", true},
      {"tree/dz", true},  {"tree/bz", false},         {"tree/*", true},        {"tree/**", false},
      {"tree/[[", true},  {"tree/p/q", false}};
  for (const auto& [name, excluded] : names) {
    const bool isDirectory = std::string_view(name).ends_with('/');
    const std::string plain(name, std::string_view(name).size() - (isDirectory ? 1 : 0));
    EXPECT_EQ(exclusion.Excludes(plain, isDirectory), excluded) << name;
  }
}

TEST_F(Trees, TheDemoSeesEveryKindOfDifference) {
  MakeDemoTree(root / "left/tree");
  fs::copy(root / "left", root / "right", fs::copy_options::recursive);
  EXPECT_TRUE(CompareTrees(root / "left", root / "right").empty());
  fs::remove(root / "right/tree/one byte");
  fs::remove(root / "right/tree/nothing in here/nor here");
  Make("right/tree/added");
  std::fstream(root / "right/tree/big.bin", std::ios::in | std::ios::out).seekp(5'999'999).put('!');
  fs::resize_file(root / "right/tree/thirty blocks", 30 * 4254 - 1);
  EXPECT_EQ(CompareTrees(root / "left", root / "right").size(), 5u);
}

}  // namespace
}  // namespace quorl::cli
