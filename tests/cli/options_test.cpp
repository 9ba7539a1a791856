#include "cli/options/options.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "cli/outcome/exits.h"
#include "cli/show/units.h"

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

TEST(Options, ValuesAreWhatTheCommandWorksWith) {
  SendOptions send = Parse({"send", "a", "--wait", "9m", "--target", "/srv/in/", "--open-name", "docs/start.html",
                            "--only", "10.0.0.1,lab-01,10.0.0.2,10.0.0.1,lab-01", "--rate", "1.5G"})
                         .options.send;
  EXPECT_EQ(send.wait, std::chrono::minutes(9));
  EXPECT_EQ(send.target, "C:\\srv\\in");
  EXPECT_EQ(send.openName, "\\docs\\start.html");
  EXPECT_EQ(send.only.addresses.size(), 2u);
  EXPECT_EQ(send.only.names, std::vector<std::string>{"lab-01"});
  EXPECT_EQ(send.rate, 1500000u);
  EXPECT_EQ(Parse({"send", "a", "-vv"}).options.output.verbosity, 2u);
  EXPECT_EQ(Parse({"receive", "--to", "in"}).options.receive.directory, "in");
}

TEST(Options, TheEnvironmentStandsInForWhatIsNotGiven) {
  setenv("QUORL_WAIT_FOR", "7", 1);
  setenv("QUORL_JSON", "1", 1);
  setenv("QUORL_TO", "elsewhere", 1);
  EXPECT_TRUE(Parse({"send", "a"}).options.output.json);
  EXPECT_EQ(Parse({"send", "a", "-n", "2"}).options.send.waitFor, 2u);
  EXPECT_EQ(Parse({"receive", "here"}).options.receive.directory, "here");
  EXPECT_EQ(Parse({"receive"}).options.receive.directory, "elsewhere");
  setenv("QUORL_WAIT_FOR", "many", 1);
  setenv("QUORL_JSON", "0", 1);
  EXPECT_EQ(Refusal({"send", "a"}).find("QUORL_WAIT_FOR cannot be taken: \"many\""), 0u);
  EXPECT_FALSE(Parse({"receive"}).options.output.json);
  for (const char* name : {"QUORL_WAIT_FOR", "QUORL_JSON", "QUORL_TO"}) unsetenv(name);
}

TEST(Options, WrongUseNamesTheFaultAndWhatIsNear) {
  const std::vector<std::pair<std::vector<const char*>, const char*>> wrong = {
      {{"send", "a", "--rat", "5M"}, "Did you mean --rate?"},
      {{"send", "a", "--frobnicate"}, "--frobnicate"},
      {{"send", "a", "--rate"}, "--rate"},
      {{"send", "a", "--group", "10.0.0.1"}, "10.0.0.1"},
      {{"send", "a", "--port", "65534"}, "65534"},
      {{"send", "a", "--wait-for", "2001"}, "2001"},
      {{"send", "a", "--wait", "9 d"}, "9 d"},
      {{"send", "a", "--wait", "169h"}, "169h"},
      {{"send", "a", "--only", "10.0.0.1,10.0.0.300"}, "\"10.0.0.300\""},
      {{"send", "a", "--only", "@/nowhere"}, "/nowhere"},
      {{"send", "a", "--target", "in"}, "--target"},
      {{"send", "a", "--color", "red\x1b"}, "red\\x1b"},
      {{"receive", "--existing", "maybe"}, "rename, overwrite, skip, fail"},
      {{"receive", "--timeout", "0"}, "--timeout"},
      {{"receive", "a", "b"}, "more than one"},
      {{"receive", "a", "--to", "b"}, "more than one"},
      {{"list", "a"}, "\"a\""},
  };
  for (const auto& [words, named] : wrong) {
    EXPECT_NE(Refusal(words).find(named), std::string::npos) << named << " is not in: " << Refusal(words);
  }
}

TEST(Options, TheLineThatRepeatsATransferIsOneForAShell) {
  EXPECT_EQ(
      AgainText({"send", "a b", "it's", "--only", "10.0.0.1", "-n", "3", "--wait-for=4", "--yes", "--rate", "5M"}),
      "quorl send 'a b' 'it'\\''s' --rate 5M");
  EXPECT_EQ(AgainText({"send", "--rate", "5M", "--", "--yes"}), "quorl send --rate 5M ./--yes");
  EXPECT_EQ(AgainText({"send", "a\x1b'\\"}), "quorl send $'a\\x1b\\'\\\\'") << "nothing that steers a terminal";
}

TEST(Options, TargetsAreDrivePathsOfAtMost519Bytes) {
  const auto target = [](const std::string& text) {
    return Parse({"send", "a", "--target", text.c_str()}).options.send.target;
  };
  EXPECT_EQ(target("/"), "C:\\");
  EXPECT_EQ(target("D:\\in"), "D:\\in");
  EXPECT_EQ(target("/" + std::string(516, 'x')).size(), 519u);
  EXPECT_THROW(target("/" + std::string(517, 'x')), Failure);
  EXPECT_THROW(target("/a\\b"), Failure) << "a backslash in a local name would arrive as a directory";
}

TEST(Units, RatesAreBitsASecond) {
  EXPECT_EQ(ParseRate("200M"), 200000u);
  EXPECT_EQ(ParseRate("64k"), 64u);
  EXPECT_EQ(ParseRate("2000"), 2u);
  EXPECT_EQ(ParseRate("compatible"), 0u);
  EXPECT_EQ(ParseRate("max"), FULL_SPEED);
  for (const char* wrong : {"", "M", "-5M", "5MB", "999", "1e300", "nan", "5000000G", " 5M"}) {
    EXPECT_EQ(ParseRate(wrong), std::nullopt) << wrong;
  }
}

TEST(Units, SizesAndTimesReadAsPeopleWriteThem) {
  EXPECT_EQ(FormatBytes(999), "999 B");
  EXPECT_EQ(FormatBytes(999'999), "1.00 MB") << "not 1000 kB";
  EXPECT_EQ(FormatPart(81'000'000, 1'840'000'000), "0.08 of 1.84 GB");
  EXPECT_EQ(Count(1'234'567, "block"), "1 234 567 blocks");
  EXPECT_EQ(FormatDuration(std::chrono::milliseconds(59960)), "1 min 0 s");
  EXPECT_EQ(FormatDuration(std::chrono::seconds(7390)), "2 h 3 min");
}

}  // namespace
}  // namespace quorl::cli
