#include "files/names.h"

#include <string>
#include <vector>

#include "tests/files/one_machine.h"

namespace quorl {
namespace {

using Components = std::vector<std::string>;

constexpr uint32_t REFUSED = 1001;
constexpr uint32_t TOO_LONG = 1007;

class NamesTest : public OneMachineTest {};

TEST_F(NamesTest, PassesThroughWideTextOnlyFromTheOlderFamilyToNt) {
  const NameField field = NameField::From("\\a");
  shell.throughWideText = [](const std::string& text) { return "wide " + text; };
  EXPECT_EQ(ConvertName(machine, field, false), "wide \\a");
  shell.ntPlatform = false;
  EXPECT_EQ(ConvertName(machine, field, false), "\\a");
  EXPECT_EQ(ConvertName(machine, field, true), "\\a");
}

struct MapCase {
  std::string target, name;
  uint32_t status;
  std::string base;
  Components components;
};

void ExpectMapped(const MappedPath& mapped, const MapCase& c) {
  SCOPED_TRACE("\"" + c.target + "\" + \"" + c.name + "\"");
  EXPECT_EQ(mapped.status, c.status);
  if (mapped.status != 0) return;
  EXPECT_EQ(mapped.path.base, c.base);
  EXPECT_EQ(mapped.path.name.Components(), c.components);
}

TEST(MapFilePath, AppendsTheNameAndRemovesIllegalCharactersFromBoth) {
  const MapCase cases[] = {
      {"D:\\in", "\\a\\b\\c.txt", 0, "D:\\in", {"a", "b", "c.txt"}},
      {"D:\\in", "\\x\\we?rd*.txt", 0, "D:\\in", {"x", "werd.txt"}},
      {"D:\\in", "\\<?a:b\"|*/>", 0, "D:\\in", {"a:b\"|"}},
      {"D:/inbox", "\\a", 0, "D:inbox", {"a"}},
      {"", "\\a.txt", 0, "", {"a.txt"}},
      {"D:", "\\a.txt", 0, "D:", {"a.txt"}},
      {"D:\\in\\", "a.txt", 0, "D:\\in\\", {"a.txt"}},
      {"D:\\in", "\\\\a\\\\b", 0, "D:\\in", {"a", "b"}},
      {"D:\\in", "\\...\\.a", 0, "D:\\in", {"...", ".a"}},
  };
  for (const MapCase& c : cases) ExpectMapped(MapFilePath(c.target, c.name), c);
}

TEST(MapFilePath, RefusesWhatLeadsOutsideOrNamesNoFile) {
  const std::string names[] = {
      "\\..\\x", "\\a\\..\\..\\x", "\\a\\..", "\\.", "\\.?.\\x", "\\a\\.*.", "\\.?\\x", "sibling.txt",           "?x",
      "..\\x",   "D:\\x",          "",        "\\",  "\\?",      "\\a\\",    "\\a\\?",  std::string("\\a\0b", 4)};
  for (const std::string& name : names) ExpectMapped(MapFilePath("D:\\in", name), {"D:\\in", name, REFUSED, "", {}});
  ExpectMapped(MapFilePath("", "D:\\x"), {"", "D:\\x", REFUSED, "", {}});
}

TEST(MapFilePath, Counts260BytesAfterRemoval) {
  const std::string name = "\\" + std::string(254, 'x');
  ExpectMapped(MapFilePath("D:\\in", name), {"D:\\in", name, 0, "D:\\in", {std::string(254, 'x')}});
  ExpectMapped(MapFilePath("D:\\in", name + "x"), {"D:\\in", name + "x", TOO_LONG, "", {}});
  ExpectMapped(MapFilePath("D:/\\in", name + "???"), {"D:/\\in", name, 0, "D:\\in", {std::string(254, 'x')}});
  ExpectMapped(MapFilePath("D:\\in", "\\..\\" + name), {"D:\\in", "\\..\\" + name, TOO_LONG, "", {}});
}

TEST(MapDirectoryPath, RemovesNothingAndRefusesWhatLeadsOutside) {
  const std::string longest = "\\" + std::string(254, '?');
  const MapCase cases[] = {
      {"D:\\in", "\\photos\\e?pty", 0, "D:\\in", {"photos", "e?pty"}},
      {"D:/in", "\\a\\", 0, "D:/in", {"a"}},
      {"D:\\in", "", 0, "D:\\in", {}},
      {"D:\\in", "\\", 0, "D:\\in", {}},
      {"D:\\in", longest, 0, "D:\\in", {longest.substr(1)}},
      {"D:\\in", longest + "?", TOO_LONG, "", {}},
      {"D:\\in", "\\a/../../x", REFUSED, "", {}},
      {"D:\\in", "\\..", REFUSED, "", {}},
      {"D:\\in", "sibling", REFUSED, "", {}},
  };
  for (const MapCase& c : cases) ExpectMapped(MapDirectoryPath(c.target, c.name), c);
}

TEST_F(NamesTest, MakesTheDirectoriesAboveAFileBeforeRemovalAndNoneWhenRefused) {
  Make({"C:\\in\\"});
  const std::string names[] = {"\\d?r\\s\\f.txt", "\\f.txt", "\\..\\x\\f.txt", "sibling\\f.txt",
                               "\\" + std::string(260, 'x') + "\\f.txt"};
  for (const std::string& name : names) CreateParentDirChain(machine, "C:\\in", name);
  EXPECT_EQ(disk.List("C:\\"), (Texts{"in", "in\\d?r", "in\\d?r\\s"}));
}

}  // namespace
}  // namespace quorl
