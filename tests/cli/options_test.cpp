#include "cli/options.h"

#include <gtest/gtest.h>

#include "cli/units.h"

namespace quorl::cli {
namespace {

Invocation Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "quorl");
  return ParseCommandLine(static_cast<int>(words.size()), words.data());
}

TEST(Options, SendTakesEverythingThatItOffers) {
  Invocation parsed =
      Parse({"send",     "a",        "b/c",         "--group",        "239.1.2.3", "--port", "4000", "--interface",
             "eth7",     "--rate",   "1.5G",        "--wait-for",     "4",         "--wait", "9",    "--no-subdirs",
             "--target", "/srv/in/", "--open-name", "docs/start.html"});
  ASSERT_EQ(parsed.command, Command::Send) << parsed.text;
  EXPECT_EQ(parsed.send.paths, (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(FormatAddress(parsed.send.network.group), "239.1.2.3");
  EXPECT_EQ(parsed.send.network.port, 4000u);
  EXPECT_EQ(parsed.send.network.interface, "eth7");
  EXPECT_EQ(parsed.send.rate, 1500000u);
  EXPECT_EQ(parsed.send.waitFor, 4u);
  EXPECT_EQ(parsed.send.wait, std::chrono::seconds(9));
  EXPECT_FALSE(parsed.send.subdirectories);
  EXPECT_EQ(parsed.send.target, "C:\\srv\\in");
  EXPECT_EQ(parsed.send.openName, "\\docs\\start.html");
}

TEST(Options, WhatIsNotGivenHasTheDocumentedDefault) {
  Invocation send = Parse({"send", "a"});
  EXPECT_EQ(send.send.rate, 100000u);
  EXPECT_EQ(send.send.wait.count(), 0) << "without --wait-for the room is asked once";
  EXPECT_TRUE(send.send.subdirectories);
  EXPECT_EQ(Parse({"send", "a", "--wait-for", "2"}).send.wait, std::chrono::seconds(30));
  Invocation receive = Parse({"receive"});
  ASSERT_EQ(receive.command, Command::Receive);
  EXPECT_EQ(receive.receive.directory, ".");
  EXPECT_EQ(receive.receive.timeout.count(), 0);
  EXPECT_EQ(Parse({"receive", "in", "--timeout", "7"}).receive.timeout, std::chrono::seconds(7));
}

TEST(Options, WrongUseEndsWithTwoAndNamesTheFault) {
  const std::vector<std::pair<std::vector<const char*>, const char*>> wrong = {
      {{}, "subcommand"},
      {{"send"}, "PATH"},
      {{"send", "a", "--rate", "fast"}, "fast"},
      {{"send", "a", "--rate", "0"}, "--rate"},
      {{"send", "a", "--group", "10.0.0.1"}, "10.0.0.1"},
      {{"send", "a", "--port", "65534"}, "--port"},
      {{"send", "a", "--wait-for", "201"}, "--wait-for"},
      {{"send", "a", "--target", "in"}, "--target"},
      {{"send", "a", "--frobnicate"}, "--frobnicate"},
      {{"receive", "a", "b"}, "b"},
  };
  for (const auto& [words, named] : wrong) {
    Invocation parsed = Parse(words);
    EXPECT_EQ(parsed.command, Command::None) << named;
    EXPECT_EQ(parsed.exitCode, 2) << named;
    EXPECT_NE(parsed.text.find(named), std::string::npos) << parsed.text;
  }
}

TEST(Options, HelpAndVersionAreNoErrors) {
  EXPECT_EQ(Parse({"--version"}).exitCode, 0);
  EXPECT_EQ(Parse({"--version"}).text.rfind("quorl 1.", 0), 0u);
  EXPECT_EQ(Parse({"send", "--help"}).exitCode, 0);
  EXPECT_NE(Parse({"send", "--help"}).text.find("--wait-for"), std::string::npos);
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
  EXPECT_EQ(FormatLinkRate(1500000), "1.5 Gbit/s");
  EXPECT_EQ(FormatDuration(std::chrono::milliseconds(4120)), "4.1 s");
  EXPECT_EQ(FormatDuration(std::chrono::milliseconds(59960)), "1 min 0 s");
  EXPECT_EQ(FormatDuration(std::chrono::seconds(7390)), "2 h 3 min");
}

}  // namespace
}  // namespace quorl::cli
