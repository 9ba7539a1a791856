// What a host selects, and the lists that are made of it.
#include <tuple>

#include "files/file_lists.h"
#include "files/selection.h"
#include "tests/files/one_machine.h"

namespace quorl {
namespace {

class SelectionTest : public OneMachineTest {
 protected:
  SelectionTest() { Make({"C:\\d\\a.txt", "C:\\d\\b.txt", "C:\\d\\s\\"}); }

  Selection selection{machine};
};

TEST_F(SelectionTest, RefusesAPathWithItsResultAndItsMessage) {
  const std::tuple<std::string, int32_t, std::string> cases[] = {
      {"C:\\" + std::string(258, 'x'), 2, "\nQuorl-----File Name Lenght > Max_path in CStringArray!\n"},
      {"C:", 3, "\nQuorl-----File Name Lenght < 3 in CStringArray!\n"},
      {"\\\\server\\share", 4, "\nQuorl-----driver error\n"},
      {"data\\file?", 4, "\nQuorl-----driver error\n"},  // The colon is looked for first.
      {"C:\\a?b.txt", 5, "\nQuorl-----File Name has illegal char!\n"},
      {"C:\\dir\\x:y", 5, "\nQuorl-----File Name has illegal char!\n"},
  };
  for (const auto& [path, result, message] : cases) {
    SCOPED_TRACE(path);
    ASSERT_EQ(selection.SetSelectFiles({"C:\\d\\a.txt"}, "\\kept", false), 1);
    EXPECT_EQ(selection.SetSelectFiles({"C:\\d\\b.txt", path, "C:\\d\\a.txt"}, "\\ignored", false), result);
    EXPECT_EQ(TakeDebug(), message);
    EXPECT_EQ(selection.Lists()->ArrayFileName, Texts{"C:\\d\\b.txt"});
    EXPECT_TRUE(selection.Lists()->ArraySendFile.empty() && selection.Lists()->ArrayEmptyDir.empty());
    EXPECT_EQ(selection.AutoOpenName(), "\\kept");
  }
}

TEST_F(SelectionTest, AcceptsPathsAtTheLimitsAndDoesNotExamineTheFirstThreeBytes) {
  for (const std::string& path : {"C:\\" + std::string(257, 'x'), std::string("C:\\"), std::string("*:?")}) {
    EXPECT_EQ(selection.SetSelectFiles({path}, "", false), 1) << path;
  }
  for (const char illegal : std::string("/*?><\"|:")) {
    EXPECT_EQ(selection.SetSelectFiles({std::string("C:\\x") + illegal}, "", false), 5) << illegal;
  }
}

TEST_F(SelectionTest, TheLastBackslashOfTheLastPathCutsAllNames) {
  Make({"C:\\data\\photos\\a.jpg"});
  const auto nameWithLastPath = [this](const std::string& last) {
    EXPECT_EQ(selection.SetSelectFiles({"C:\\data\\photos", last}, "", false), 1);
    return selection.Lists()->ArraySendFile.at(0).relativeName;
  };
  EXPECT_EQ(nameWithLastPath("C:\\data\\other"), "\\photos\\a.jpg");
  EXPECT_EQ(nameWithLastPath("D:\\x\\y\\b.txt"), "a\\photos\\a.jpg");
  EXPECT_EQ(nameWithLastPath("C:gone"), "C:\\data\\photos\\a.jpg");
}

TEST_F(SelectionTest, ALeftOutNameGivesSevenAndShowsUntilTheNextSelection) {
  Make({"C:\\bad\\a?b.txt", "C:\\bad\\good.txt"});
  const Texts good = {"C:\\d\\a.txt"}, bad = {"C:\\bad"};
  ASSERT_EQ(selection.SetSelectFiles(good, "\\kept", false), 1);
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
  EXPECT_EQ(selection.SetSelectFiles(bad, "\\ignored", false), 7);
  EXPECT_EQ(TakeDebug(), "");
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 1u);
  EXPECT_EQ(selection.AutoOpenName(), "\\kept");
  EXPECT_EQ(selection.Lists()->ArraySendFile, (std::vector<FileEntry>{{"C:\\bad\\good.txt", "\\bad\\good.txt"}}));

  EXPECT_EQ(selection.SetSelectFiles(good, "\\new", false), 1);
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
  selection.SetSelectFiles(bad, "", false);
  EXPECT_EQ(selection.AutoOpenName(), "\\new") << "only a reset clears it";
  selection.Reset();
  EXPECT_EQ(selection.AutoOpenName(), "");
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
}

constexpr bool FIRST_LEVEL = false;
constexpr bool ANY_DEPTH = true;

class FileListsTest : public OneMachineTest {
 protected:
  int32_t Build(Texts selected, int32_t parentPathLength, bool subDirTrans, bool sorted = false) {
    lists = {std::move(selected), {}, {}};
    Texts told;
    bool toldOfObstacle = false;
    const int32_t result =
        BuildFileList(machine, {parentPathLength, subDirTrans, sorted}, lists, [&](const Surveyed& found) {
          if (found.kind == Surveyed::Kind::File) told.push_back(found.name);
          if (found.kind == Surveyed::Kind::LeftOut) toldOfObstacle = true;
        });
    EXPECT_EQ(told, Names()) << "what is told is what is listed";
    EXPECT_EQ(toldOfObstacle, result == -1);
    return result;
  }

  Texts Names() const {
    Texts names;
    for (const FileEntry& entry : lists.ArraySendFile) names.push_back(entry.relativeName);
    return names;
  }

  FileLists lists;
};

TEST_F(FileListsTest, FollowsTheSelectionAndWalksASubdirectoryWhereItIsMet) {
  // The disk names what is in a directory in the order in which it was made.
  Make({"C:\\p\\one.txt", "C:\\p\\d\\z.txt", "C:\\p\\d\\t\\n.txt", "C:\\p\\d\\s\\m.txt", "C:\\p\\d\\s\\u\\",
        "C:\\p\\d\\a.txt"});

  EXPECT_EQ(Build({"C:\\p\\d", "C:\\p\\one.txt"}, 4, ANY_DEPTH), 5);
  EXPECT_EQ(Names(), (Texts{"\\d\\z.txt", "\\d\\t\\n.txt", "\\d\\s\\m.txt", "\\d\\a.txt", "\\one.txt"}));
  EXPECT_EQ(lists.ArraySendFile[2].fullPath, "C:\\p\\d\\s\\m.txt");
  EXPECT_EQ(lists.ArrayEmptyDir, (Texts{"\\d\\t", "\\d\\s\\u"}));

  EXPECT_EQ(Build({"C:\\p\\one.txt", "C:\\p\\d"}, 4, ANY_DEPTH, true), 5);
  EXPECT_EQ(Names(), (Texts{"\\one.txt", "\\d\\a.txt", "\\d\\s\\m.txt", "\\d\\t\\n.txt", "\\d\\z.txt"}));

  EXPECT_EQ(Build({"C:\\p\\d"}, 4, FIRST_LEVEL), 2);
  EXPECT_EQ(Names(), (Texts{"\\d\\z.txt", "\\d\\a.txt"}));
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{});

  // Files alone leave a directory "empty", and a file selected twice travels twice.
  EXPECT_EQ(Build({"C:\\p\\d\\t", "C:\\p\\d\\t\\n.txt"}, 6, FIRST_LEVEL), 2);
  EXPECT_EQ(Names(), (Texts{"\\t\\n.txt", "\\n.txt"}));
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{"\\t"});
}

TEST_F(FileListsTest, ExaminesNamesOnTheFirstLevelOnly) {
  for (const char illegal : std::string("*?><\"|:")) {
    SCOPED_TRACE(illegal);
    const std::string name = std::string("x") + illegal;
    disk.Remove("C:\\d");
    Make({"C:\\d\\" + name, "C:\\d\\s\\" + name});
    EXPECT_EQ(Build({"C:\\d"}, 2, FIRST_LEVEL), -1);
    EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
    EXPECT_EQ(Names(), Texts{"\\d\\s\\" + name});
    EXPECT_EQ(Build({"C:\\d\\s"}, 2, FIRST_LEVEL), -1);
    EXPECT_EQ(Build({"C:\\d\\" + name}, 4, FIRST_LEVEL), 1) << "its first three bytes are not examined";
    EXPECT_EQ(Build({"C:\\d\\s\\" + name}, 2, FIRST_LEVEL), 1);
  }
  Make({"C:\\e\\xy?z"});
  EXPECT_EQ(Build({"C:\\e\\xy?z"}, 4, FIRST_LEVEL), -1);
}

TEST_F(FileListsTest, ASelectedFifoIsToldOfAndSkipped) {
  Make({"C:\\p\\d\\a.txt"});
  disk.MakeFifo("C:\\p\\fifo");
  EXPECT_EQ(Build({"C:\\p\\fifo", "C:\\p\\d\\a.txt", "C:\\p\\none"}, 4, FIRST_LEVEL), -1);
  EXPECT_EQ(Names(), Texts{"\\a.txt"});
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{"\\none"});
  EXPECT_EQ(TakeDebug(), "\nQuorl-----Neither a file nor a directory: C:\\p\\fifo\n");
}

TEST_F(FileListsTest, ANameWithABackslashNeverTravels) {
  Make({"C:\\d\\s\\ok.txt"});
  disk.OpenToWrite("C:\\d\\s", {"a\\b.txt"}, WhenMissing::Create);
  disk.MakeDirectories("C:\\d\\s", {"x\\y"});
  Make({"C:\\d\\s\\x\\y\\inside.txt"});
  EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
  EXPECT_EQ(Names(), (Texts{"\\d\\s\\ok.txt", "\\d\\s\\x\\y\\inside.txt"}));
  EXPECT_EQ(Build({"C:\\d\\s"}, 4, FIRST_LEVEL), -1) << "a file on the first level";
}

TEST_F(FileListsTest, AFileWithTooManyBlocksIsLeftOutAnUnreadableOneIsNot) {
  constexpr uint64_t TOO_LONG = uint64_t{UINT32_MAX} * 4254;
  disk.WriteSynthetic("C:\\d\\larger", TOO_LONG, 1);
  disk.WriteSynthetic("C:\\d\\largest", TOO_LONG - 1, 1);
  Make({"C:\\d\\locked"});
  disk.RefuseName([](const std::string& name) { return name == "locked"; });
  EXPECT_EQ(Build({"C:\\d"}, 2, FIRST_LEVEL), -1);
  EXPECT_EQ(Names(), (Texts{"\\d\\largest", "\\d\\locked"}));
}

TEST_F(FileListsTest, WalksDeepTreesAsFarAsTheirNamesFitADatagram) {
  std::string folder = "C:\\d";
  for (int level = 0; level < 255; ++level) folder += "\\s";
  Make({folder + "\\bottom", folder + "\\s\\s\\s\\s\\too deep"});
  EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
  EXPECT_EQ(lists.ArraySendFile, (std::vector<FileEntry>{{folder + "\\bottom", folder.substr(2) + "\\bottom"}}));
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{});
}

TEST_F(FileListsTest, ASurveyNamesEveryObstacle) {
  using Kind = Surveyed::Kind;
  const std::string longName(255, 'x');
  const std::string longest(260, 'y');
  Make({"C:\\p\\d\\a?b", "C:\\p\\d\\s\\c?d", "C:\\p\\d\\s\\locked", "C:\\p\\d\\t<\\", "C:\\p\\d\\" + longName,
        "C:\\p\\d\\" + longest + "\\" + longest + "\\"});
  disk.Write("C:\\p\\d\\s\\full", std::string(4254, 'x'));
  disk.RefuseName([](const std::string& name) { return name == "locked"; });
  Make({"C:\\p\\d\\s\\v\\unwanted\\in", "C:\\p\\d\\s\\v\\x.o"});
  std::vector<std::tuple<std::string, Kind, Obstacle>> told;
  uint64_t bytes = 0;
  uint64_t blocks = 0;
  const Texts paths = {"C:\\p\\no?", "C:\\p\\d", "C:\\p\\gone"};
  const PathFilter filter = [](const std::string& path, bool isDirectory) {
    return isDirectory ? path.ends_with("\\unwanted") : path.ends_with(".o");
  };
  SurveySelection(machine, paths, RulesFor(paths, ANY_DEPTH, true, filter), [&](const Surveyed& found) {
    told.emplace_back(found.leaf, found.kind, found.obstacle);
    bytes += found.length;
    blocks += found.blocks;
  });
  EXPECT_EQ(told, (decltype(told){{"C:\\p\\no?", Kind::LeftOut, Obstacle::PathRefused},
                                  {"d", Kind::Directory, Obstacle::None},
                                  {"a?b", Kind::LeftOut, Obstacle::IllegalChar},
                                  {"s", Kind::Directory, Obstacle::None},
                                  {"c?d", Kind::File, Obstacle::DeletedChar},
                                  {"full", Kind::File, Obstacle::None},
                                  {"locked", Kind::File, Obstacle::Unreadable},
                                  {"v", Kind::Directory, Obstacle::None},
                                  {"unwanted", Kind::LeftOut, Obstacle::Filtered},
                                  {"x.o", Kind::LeftOut, Obstacle::Filtered},
                                  {"t<", Kind::Directory, Obstacle::DeletedChar},
                                  {longName, Kind::File, Obstacle::None},
                                  {longest, Kind::Directory, Obstacle::TooLong},
                                  {longest, Kind::LeftOut, Obstacle::NameTooLong},
                                  {"gone", Kind::Directory, Obstacle::Unreadable}}));
  EXPECT_EQ(bytes, 4254u);
  EXPECT_EQ(blocks, 5u);
}

}  // namespace
}  // namespace quorl
