#include "files/file_lists.h"

#include "tests/files/one_machine.h"

namespace quorl {
namespace {

constexpr bool FIRST_LEVEL = false;
constexpr bool ANY_DEPTH = true;

class FileListsTest : public OneMachineTest {
 protected:
  int32_t Build(Texts selected, int32_t parentPathLength, bool subDirTrans) {
    lists = {std::move(selected), {}, {}};
    return BuildFileList(machine, {parentPathLength, subDirTrans}, lists);
  }

  Texts Names() const {
    Texts names;
    for (const FileEntry& entry : lists.ArraySendFile) names.push_back(entry.relativeName);
    return names;
  }

  FileLists lists;
};

TEST_F(FileListsTest, FollowsTheSelectionAndWalksASubdirectoryWhereItIsMet) {
  Make({"C:\\p\\one.txt", "C:\\p\\d\\a.txt", "C:\\p\\d\\s\\m.txt", "C:\\p\\d\\s\\u\\", "C:\\p\\d\\t\\n.txt",
        "C:\\p\\d\\z.txt"});

  EXPECT_EQ(Build({"C:\\p\\d", "C:\\p\\one.txt"}, 4, ANY_DEPTH), 5);
  EXPECT_EQ(Names(), (Texts{"\\d\\a.txt", "\\d\\s\\m.txt", "\\d\\t\\n.txt", "\\d\\z.txt", "\\one.txt"}));
  EXPECT_EQ(lists.ArraySendFile[1].fullPath, "C:\\p\\d\\s\\m.txt");
  EXPECT_EQ(lists.ArrayEmptyDir, (Texts{"\\d\\s\\u", "\\d\\t"}));

  EXPECT_EQ(Build({"C:\\p\\one.txt", "C:\\p\\d"}, 4, FIRST_LEVEL), 3);
  EXPECT_EQ(Names(), (Texts{"\\one.txt", "\\d\\a.txt", "\\d\\z.txt"}));
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

}  // namespace
}  // namespace quorl
