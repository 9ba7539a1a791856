#include "cli/options.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "cli/option_table.h"
#include "cli/outcome.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

Invocation Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "quorl");
  return ParseCommandLine(static_cast<int>(words.size()), words.data());
}

/// What is said to wrong use, in one text.
std::string Refusal(const std::vector<const char*>& words) {
  try {
    Parse(words);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, Exit::Usage);
    std::string text = failure.what + ": " + failure.why;
    for (const std::string& hint : failure.next) text += "\n" + hint;
    return text;
  }
  return "";
}

TEST(Options, SendTakesEverythingThatItOffers) {
  Options options = Parse({"send",        "a",
                           "b/c",         "--group",
                           "239.1.2.3",   "-p",
                           "4000",        "--interface",
                           "eth7",        "--rate",
                           "1.5G",        "--wait-for",
                           "4",           "--wait",
                           "9m",          "--no-subdirs",
                           "--target",    "/srv/in/",
                           "--open-name", "docs/start.html",
                           "--only",      "10.0.0.1,10.0.0.2,10.0.0.1",
                           "-vv"})
                        .options;
  ASSERT_EQ(options.command, Command::Send);
  EXPECT_EQ(options.send.paths, (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(FormatAddress(options.network.group), "239.1.2.3");
  EXPECT_EQ(options.network.port, 4000u);
  EXPECT_EQ(options.network.interface, "eth7");
  EXPECT_EQ(options.send.rate, 1500000u);
  EXPECT_EQ(options.send.waitFor, 4u);
  EXPECT_EQ(options.send.wait, std::chrono::minutes(9));
  EXPECT_FALSE(options.send.subdirectories);
  EXPECT_EQ(options.send.target, "C:\\srv\\in");
  EXPECT_EQ(options.send.openName, "\\docs\\start.html");
  EXPECT_EQ(options.send.only.size(), 2u);
  EXPECT_EQ(options.output.verbosity, 2u);
}

TEST(Options, ReceiveTakesItsDirectoryInEitherWay) {
  EXPECT_EQ(Parse({"receive"}).options.receive.directory, "");
  EXPECT_EQ(Parse({"receive", "in"}).options.receive.directory, "in");
  EXPECT_EQ(Parse({"receive", "--to", "in"}).options.receive.directory, "in");
  EXPECT_NE(Refusal({"receive", "a", "--to", "b"}), "");
  Options options = Parse({"receive", "--existing", "fail", "--from", "10.0.0.9", "--keep", "--sync"}).options;
  EXPECT_EQ(options.receive.existing, Existing::Fail);
  EXPECT_EQ(FormatAddress(options.receive.from), "10.0.0.9");
  EXPECT_TRUE(options.receive.keep && options.receive.sync && !options.receive.open);
}

TEST(Options, TheEnvironmentStandsInForWhatIsNotGiven) {
  setenv("QUORL_WAIT_FOR", "7", 1);
  setenv("QUORL_JSON", "1", 1);
  setenv("QUORL_TO", "elsewhere", 1);
  EXPECT_EQ(Parse({"send", "a"}).options.send.waitFor, 7u);
  EXPECT_TRUE(Parse({"send", "a"}).options.output.json);
  EXPECT_EQ(Parse({"send", "a", "-n", "2"}).options.send.waitFor, 2u);
  EXPECT_EQ(Parse({"receive", "here"}).options.receive.directory, "here");
  EXPECT_EQ(Parse({"receive"}).options.receive.directory, "elsewhere");
  setenv("QUORL_WAIT_FOR", "many", 1);
  setenv("QUORL_JSON", "0", 1);
  EXPECT_NE(Refusal({"send", "a"}).find("many"), std::string::npos);
  unsetenv("QUORL_WAIT_FOR");
  EXPECT_FALSE(Parse({"send", "a"}).options.output.json);
  unsetenv("QUORL_JSON");
  unsetenv("QUORL_TO");
}

TEST(Options, WrongUseNamesTheFaultAndWhatIsNear) {
  const std::vector<std::pair<std::vector<const char*>, const char*>> wrong = {
      {{}, "quorl receive"},
      {{"sned", "x"}, "Did you mean send?"},
      {{"send"}, "quorl send images/ --yes"},
      {{"send", "a", "--rat", "5M"}, "Did you mean --rate?"},
      {{"send", "a", "--frobnicate"}, "--frobnicate"},
      {{"send", "a", "--rate", "fast"}, "fast"},
      {{"send", "a", "--rate"}, "--rate"},
      {{"send", "a", "--group", "10.0.0.1"}, "10.0.0.1"},
      {{"send", "a", "--port", "65534"}, "65534"},
      {{"send", "a", "--wait-for", "201"}, "201"},
      {{"send", "a", "--wait", "9 d"}, "9 d"},
      {{"send", "a", "--wait", "169h"}, "169h"},
      {{"send", "a", "--only", "10.0.0.1,x"}, "\"x\""},
      {{"send", "a", "--only", "@/nowhere"}, "/nowhere"},
      {{"send", "a", "--target", "in"}, "--target"},
      {{"send", "a", "--color", "red\x1b"}, "red\\x1b"},
      {{"receive", "--existing", "maybe"}, "rename, overwrite, skip, fail"},
      {{"receive", "--timeout", "0"}, "--timeout"},
      {{"receive", "a", "b"}, "more than one"},
      {{"list", "a"}, "\"a\""},
  };
  for (const auto& [words, named] : wrong) {
    EXPECT_NE(Refusal(words).find(named), std::string::npos) << named << " is not in: " << Refusal(words);
  }
}

TEST(Options, HelpShowsEveryRowOfTheTable) {
  for (const CommandRow& command : CommandRows()) {
    std::string help = Parse({command.name, "--help"}).text;
    for (const OptionRow& row : OptionRows()) {
      bool belongs = (row.commands & static_cast<unsigned>(command.command)) != 0;
      std::string name = std::string(" ") + row.name + (*row.argument != 0 ? " " : "") + row.argument;
      size_t found = std::min(help.find(name + " "), help.find(name + "\n"));
      EXPECT_EQ(found != std::string::npos, belongs) << command.name << name;
    }
  }
  EXPECT_EQ(Parse({"--version"}).text.rfind("quorl 1.", 0), 0u);
}

TEST(Options, TargetsAreDrivePaths) {
  EXPECT_EQ(TargetFromText("/"), "C:\\");
  EXPECT_EQ(TargetFromText("D:\\in"), "D:\\in");
  EXPECT_EQ(TargetFromText("/a\\b"), "") << "a backslash in a local name would arrive as a directory";
  EXPECT_EQ(TargetFromText("/" + std::string(516, 'x')).size(), 519u);
  EXPECT_EQ(TargetFromText("/" + std::string(517, 'x')), "") << "519 bytes are what fits";
}

TEST(Units, RatesAreBitsASecond) {
  EXPECT_EQ(ParseRate("200M"), 200000u);
  EXPECT_EQ(ParseRate("1.5g"), 1500000u);
  EXPECT_EQ(ParseRate("64k"), 64u);
  EXPECT_EQ(ParseRate("2000"), 2u);
  EXPECT_EQ(ParseRate("compatible"), 0u);
  for (const char* wrong : {"", "M", "-5M", "5MB", "999", "1e300", "nan", "5000000G", " 5M"}) {
    EXPECT_EQ(ParseRate(wrong), std::nullopt) << wrong;
  }
}

TEST(Units, SizesAndTimesReadAsPeopleWriteThem) {
  EXPECT_EQ(FormatBytes(999), "999 B");
  EXPECT_EQ(FormatBytes(1000), "1.00 kB");
  EXPECT_EQ(FormatBytes(999'999), "1.00 MB") << "not 1000 kB";
  EXPECT_EQ(FormatBytes(1'840'000'000), "1.84 GB");
  EXPECT_EQ(FormatBytes(25'000'000), "25.0 MB");
  EXPECT_EQ(FormatPart(81'000'000, 1'840'000'000), "0.08 of 1.84 GB");
  EXPECT_EQ(Count(1'234'567, "block"), "1 234 567 blocks");
  EXPECT_EQ(FormatLinkRate(1500000), "1.5 Gbit/s");
  EXPECT_EQ(FormatDuration(std::chrono::milliseconds(4120)), "4.1 s");
  EXPECT_EQ(FormatDuration(std::chrono::milliseconds(59960)), "1 min 0 s");
  EXPECT_EQ(FormatDuration(std::chrono::seconds(7390)), "2 h 3 min");
}

}  // namespace
}  // namespace quorl::cli
