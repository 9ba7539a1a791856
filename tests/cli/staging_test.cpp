// Staging directories on a real disk, and the moves out of them.
#include "cli/staging/staging.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "cli/outcome/exits.h"
#include "cli/staging/move.h"
#include "cli/transfer/suggestion.h"
#include "temp_tree.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

using Tree = std::map<std::string, std::string>;

class StagingTest : public TempTreeTest {
 protected:
  StagingTest() {
    fs::create_directories(root / "in");
    fs::create_directories(root / "from");
  }

  /// Names and contents beneath `name`; directories end in a slash, links are shown as what they lead to.
  Tree Look(const std::string& name) const {
    Tree tree;
    for (const auto& entry : fs::recursive_directory_iterator(root / name)) {
      const std::string path = entry.path().lexically_relative(root / name).generic_string();
      if (entry.is_symlink()) {
        tree[path] = "-> " + fs::read_symlink(entry.path()).string();
      } else if (entry.is_regular_file()) {
        tree[path] = ReadText(entry.path());
      } else {
        tree[path + (entry.is_directory() ? "/" : "!")];
      }
    }
    return tree;
  }

  MoveReport Move(const MoveRules& rules) const {
    const Directory from = Directory::Open((root / "from").string());
    return MoveTree(from, Directory::Open((root / "in").string()), ListTree(from), rules);
  }

  static std::set<std::string> Names(const std::vector<MoveReport::Refused>& refused) {
    std::set<std::string> names;
    for (const auto& one : refused) names.insert(one.name);
    return names;
  }

  static bool Nothing(const std::string&) { return true; }
};

#ifndef _WIN32
TEST_F(StagingTest, ALinkIsMadeOnlyWhereItsWayIsTheOneThatWasDelivered) {
  for (const char* name : {"from/d/f", "from/e/f"}) Write(name, "new");
  fs::create_directories(root / "outside");
  fs::create_directory_symlink(root / "outside", root / "in/e");
  Write("in/taken", "old");
  const Directory from = Directory::Open((root / "from").string());
  StagedTree tree = ListTree(from);
  tree.links = {
      {"to d", "d/f", {"d"}, "d/f", ""}, {"to e", "e/f", {"e"}, "e/f", ""}, {"by e", "e/../d/f", {"e"}, "d/f", ""},
      {"d/at e", "../e", {}, "e", ""},   {"taken", "d", {}, "d", ""},       {"past taken", "taken", {}, "taken", ""}};
  const MoveReport report = MoveTree(from, Directory::Open((root / "in").string()), tree, {Existing::Overwrite});
  EXPECT_EQ(Names(report.refused), (std::set<std::string>{"e/f", "to e", "by e", "d/at e"}));
  const Tree expected{{"d/", ""},         {"d/f", "new"},    {"e", "-> " + (root / "outside").string()},
                      {"to d", "-> d/f"}, {"taken", "-> d"}, {"past taken", "-> taken"}};
  EXPECT_EQ(Look("in"), expected);
  EXPECT_TRUE(fs::is_empty(root / "outside"));
}
#endif

TEST_F(StagingTest, EachPolicyTreatsATakenNameInItsWay) {
  const Tree before{{"d/", ""}, {"d/a.txt", "old"}, {"d/a (1).txt", "older"}};
  const Tree renamed{{"d/", ""},        {"d/a.txt", "old"}, {"d/a (1).txt", "older"}, {"d/a (2).txt", "new"},
                     {"d/b", "second"}, {"empty/", ""}};
  const Tree overwritten{{"d/", ""}, {"d/a.txt", "new"}, {"d/a (1).txt", "older"}, {"d/b", "second"}, {"empty/", ""}};
  const Tree skipped{{"d/", ""}, {"d/a.txt", "old"}, {"d/a (1).txt", "older"}, {"d/b", "second"}, {"empty/", ""}};
  const std::tuple<Existing, bool, Tree, size_t, size_t, size_t> cases[] = {
      {Existing::Rename, true, renamed, 2, 0, 0},        {Existing::Rename, false, renamed, 2, 0, 0},
      {Existing::Overwrite, true, overwritten, 2, 0, 0}, {Existing::Skip, true, skipped, 1, 1, 0},
      {Existing::Skip, false, skipped, 1, 1, 0},         {Existing::Fail, true, before, 0, 0, 1},
  };
  for (const auto& [existing, inOneStep, tree, moved, skippedCount, taken] : cases) {
    SCOPED_TRACE(static_cast<int>(existing) * 2 + (inOneStep ? 1 : 0));
    fs::remove_all(root / "in");
    fs::remove_all(root / "from");
    for (const auto& [name, text] : before)
      if (!text.empty()) Write("in/" + name, text);
    Write("from/d/a.txt", "new");
    Write("from/d/b", "second");
    Write("from/d/same", "alike");
    Write("in/d/same", "alike");
    fs::create_directories(root / "from/empty");
    const MoveReport report = Move({existing, true, inOneStep});
    Tree expected = tree;
    expected["d/same"] = "alike";
    EXPECT_EQ(Look("in"), expected);
    EXPECT_EQ(Look("from").contains("d/b"), moved == 0) << "a file has one name";
    EXPECT_EQ(std::tuple(report.moved.size(), report.skipped.size(), report.taken.size()),
              std::tuple(moved, skippedCount, taken));
    EXPECT_TRUE(report.refused.empty() && report.synced);
  }
}

TEST_F(StagingTest, AReceiverThatWaitsLeavesNoTraceAndOneThatReceivesLeavesNothingElse) {
  std::string path;
  Staging staging((root / "in").string());
  staging.Prepare([&](const std::string& prepared) {
    path = prepared;
    return fs::is_directory(prepared);
  });
  EXPECT_EQ(Look("in"), Tree{});
  staging.Begin();
  Write(path + "/a/b", "first");
  staging.Prepare(Nothing);
  EXPECT_EQ(ListTree(staging.Open()).files.size(), 1u);
  // Another transfer is announced before the first is over.
  staging.Begin();
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(ListTree(staging.Open()).files.empty());
  Write("in/stays", "");
  EXPECT_TRUE(staging.Discard());
  EXPECT_EQ(Look("in").size(), 1u);
  EXPECT_THROW(staging.Prepare([](const std::string&) { return false; }), Failure);
}

TEST_F(StagingTest, OnlyWhoIsAloneRemovesWhatKilledReceiversLeft) {
  const char* stale = "in/.quorl-00000000000000aa";
  const char* others[] = {"in/.quorl-00000000000000AB/x", "in/.quorl-1/x", "in/quorl-00000000000000aa/x",
                          "in/.quorl-manifest/x"};
  Write(std::string(stale) + "/tree/x", "stale");
  LinkToRoot(fs::path(stale) / "out");
  for (const char* name : others) Write(name, "kept");
  Write("in/.quorl-00000000000000bb", "a file");
  {
    Staging first((root / "in").string());
    EXPECT_EQ(first.StaleRemoved(), 1u);
    EXPECT_FALSE(fs::exists(root / stale));
    EXPECT_EQ(Look("in").size(), 2 * std::size(others) + 1);
    Write(std::string(stale) + "/x", "alive, for all that is known");
    EXPECT_EQ(Staging((root / "in").string()).StaleRemoved(), 0u);
  }
  EXPECT_EQ(Staging((root / "in").string()).StaleRemoved(), 1u);
}

TEST_F(StagingTest, ADirectoryThatCannotBeUsedIsRefusedAtOnce) {
  Write("in/file", "x");
  for (const char* name : {"in/none", "in/file"}) EXPECT_THROW(Staging((root / name).string()), Failure) << name;
}

#ifndef _WIN32  // Directories that go although they are open, links of a test's own making, a FIFO, modes.
TEST_F(StagingTest, ADirectoryThatIsRemovedWhileItIsReceivedIntoIsNoticed) {
  Staging removed((root / "from").string());
  fs::remove(root / "from");
  EXPECT_THROW(removed.Prepare(Nothing), Failure);
  removed.Begin();
  EXPECT_FALSE(removed.Open());
}

TEST_F(StagingTest, NothingIsReachedThroughALinkAndOnlyFilesAreReplaced) {
  Write("outside/kept", "kept");
  fs::create_symlink(root / "outside", root / "in/link");
  fs::create_symlink(root / "outside/kept", root / "in/file link");
  Write("in/file", "kept");
  fs::create_directories(root / "in/directory");
  ASSERT_EQ(mkfifo((root / "in/fifo").c_str(), 0600), 0);
  for (const char* name : {"link/kept", "link/sub/new", "file link", "file/below", "directory", "fifo", "good"})
    Write(fs::path("from") / name, "new");
  fs::create_directories(root / "from/link/empty");
  Write("from/.quorl-0123456789abcdef/x", "new");
  Write("from/.QUORL-manifest", "new");

  const MoveReport report = Move({Existing::Overwrite, false, true});
  EXPECT_EQ(Names(report.refused),
            (std::set<std::string>{"link/kept", "link/sub/new", "link/empty", "file/below", "directory", "fifo",
                                   ".quorl-0123456789abcdef/x", ".QUORL-manifest"}));
  EXPECT_EQ(Look("outside"), (Tree{{"kept", "kept"}}));
  EXPECT_EQ(Look("in"), (Tree{{"link", "-> " + (root / "outside").string()},
                              {"file", "kept"},
                              {"file link", "new"},
                              {"directory/", ""},
                              {"fifo!", ""},
                              {"good", "new"}}));
}

TEST_F(StagingTest, OnlyAPlainFileThatIsNoProgramIsOpened) {
  for (const char* name : {"in/page.html", "in/run me", "in/app.DESKTOP", "in/x.sh"}) Write(name, "x");
  fs::permissions(root / "in/run me", fs::perms::owner_all);
  fs::create_symlink("page.html", root / "in/link.html");
  fs::create_hard_link(root / "in/x.sh", root / "in/other.html");
  const Directory target = Directory::Open((root / "in").string());
  EXPECT_EQ(WhyNotOpened(target, "page.html"), "");
  for (const char* name : {"run me", "app.DESKTOP", "x.sh", "link.html", "other.html", "none", ".", "../in/page.html",
                           "/etc/hostname", ""}) {
    EXPECT_NE(WhyNotOpened(target, name), "") << name;
  }
}
#endif

}  // namespace
}  // namespace quorl::cli
