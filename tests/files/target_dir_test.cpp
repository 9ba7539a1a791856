#include "files/target_dir.h"

#include "tests/files/one_machine.h"

namespace quorl {
namespace {

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
