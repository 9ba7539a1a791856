// What a received name and target become.
#include <string>
#include <vector>

#include "files/names.h"
#include "files/target_dir.h"
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

constexpr uint32_t DOCUMENTS = 5;
constexpr uint32_t COMMON_DESKTOP = 25;

class TargetDirTest : public OneMachineTest {
 protected:
  void LogonValue(const std::string& name, const std::string& value) {
    shell.logonValues[{"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon", name}] = value;
  }

  void LoggedOn(const std::string& user, const std::string& domain) {
    LogonValue("DefaultUserName", user);
    LogonValue("DefaultDomainName", domain);
  }

  /// Where the documents folder `path` leads in a process of `account`.
  std::string Fixed(const std::string& account, const std::string& path) {
    shell.account = account;
    shell.folders[DOCUMENTS] = path;
    return ResolveTargetDir(machine, DOCUMENTS, "C:\\ignored", "C:\\previous");
  }
};

TEST_F(TargetDirTest, AnUnknownFolderKeepsThePreviousTargetAFolderWithoutPathEmptiesIt) {
  EXPECT_EQ(ResolveTargetDir(machine, DOCUMENTS, "C:\\ignored", "C:\\previous"), "C:\\previous");
  shell.folders[DOCUMENTS] = std::nullopt;
  shell.folders[COMMON_DESKTOP] = "C:\\All Users";
  EXPECT_EQ(ResolveTargetDir(machine, DOCUMENTS, "C:\\ignored", "C:\\previous"), "");
}

TEST_F(TargetDirTest, TheLoggedOnUserReplacesTheFirstProfileNameThatOccurs) {
  LoggedOn("mary", "pc1");  // Computer names have no case.
  EXPECT_EQ(Fixed("LocalService", "C:\\D\\LocalService\\Desktop"), "C:\\D\\mary\\Desktop");
  EXPECT_EQ(Fixed("svc", "C:\\NetworkService\\svc"), "C:\\mary\\svc");
  EXPECT_EQ(Fixed("svc", "C:\\NetworkService\\LocalService"), "C:\\NetworkService\\mary");
  EXPECT_EQ(Fixed("svc", "C:\\Default User\\LocalService"), "C:\\mary\\LocalService");
  EXPECT_EQ(Fixed("joe", "C:\\joe.WINNT\\joe.WINXP\\joe"), "C:\\joe.WINNT\\mary\\joe");
  EXPECT_EQ(Fixed("joe", "C:\\joe.WINNT\\joe"), "C:\\mary\\joe");
  EXPECT_EQ(Fixed("mary", "C:\\mary.WINXP\\x"), "C:\\mary\\x");
  EXPECT_EQ(Fixed("e", "C:\\Users\\e\\Desktop"), "C:\\Usmaryrs\\mary\\Dmarysktop");
  EXPECT_EQ(Fixed("mar", "C:\\mar\\mar"), "C:\\mary\\mary") << "what was put in is not replaced again";
  EXPECT_EQ(Fixed("JOE", "C:\\joe"), "C:\\joe");
}

TEST_F(TargetDirTest, ADomainLogonHasTheDomainInItsProfileName) {
  LoggedOn("mary", "CORP");
  EXPECT_EQ(Fixed("LocalService", "C:\\D\\LocalService"), "C:\\D\\mary.CORP");
  LogonValue("AltDefaultUserName", "ann");
  LogonValue("AltDefaultDomainName", "LAB");
  EXPECT_EQ(Fixed("joe", "C:\\joe"), "C:\\ann.LAB");
  LogonValue("AltDefaultUserName", std::string(261, 'x'));
  EXPECT_EQ(Fixed("joe", "C:\\joe"), "C:\\mary.LAB") << "longer than any name";
  LogonValue("AltDefaultUserName", "");
  EXPECT_EQ(Fixed("joe", "C:\\joe"), "C:\\.LAB") << "an empty value counts as read";
  LogonValue("AltDefaultDomainName", "PC1");
  EXPECT_EQ(Fixed("joe", "C:\\joe"), "C:\\joe");
}

}  // namespace
}  // namespace quorl
