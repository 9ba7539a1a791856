// What the command shows and what it ends with.
#include <gtest/gtest.h>

#include <sstream>

#include "cli/commands/findings.h"
#include "cli/outcome/exits.h"
#include "cli/room/venue.h"
#include "cli/show/escape.h"
#include "cli/show/fact.h"
#include "cli/show/progress.h"
#include "cli/show/received.h"
#include "cli/show/sent.h"
#include "cli/show/views.h"
#include "cli/system/network.h"

namespace quorl::cli {
namespace {

TEST(Escape, LetsNothingThroughThatSteersATerminalOrIsNoUtf8) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Größe 写真 😀", "Größe 写真 😀"},
      {"a\x1b[31m\n\r\t\x7f", "a\\x1b[31m\\x0a\\x0d\\x09\\x7f"},
      {"\xc2\x9b", "\\xc2\\x9b"},                   // a control character of 8 bits, in UTF-8
      {"\xe2\x80\xae", "\\xe2\\x80\\xae"},          // right-to-left override
      {"\xe2\x80\x8b", "\\xe2\\x80\\x8b"},          // without width
      {"\xef\xbb\xbf", "\\xef\\xbb\\xbf"},          // byte order mark
      {"\xe2\x80\x90", "\xe2\x80\x90"},             // a hyphen is next to the marks, and harmless
      {"\xc3\xa4\xc3", "ä\\xc3"},                   // cut short
      {"\xc0\xaf", "\\xc0\\xaf"},                   // overlong
      {"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},          // overlong
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // a surrogate
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}  // beyond the last character
  };
  for (const auto& [name, shown] : cases) EXPECT_EQ(Escape(name), shown);
}

TEST(Facts, BecomeJsonThatAnyBytesLeaveIntact) {
  EXPECT_EQ(JsonString("a \"b\" \\ ä 😀"), "\"a \\\"b\\\" \\\\ ä 😀\"");
  EXPECT_EQ(JsonString("\x1b[31m\n\x7f\xe2\x80\xae"), "\"\\u001b[31m\\u000a\\u007f\\u202e\"");
  EXPECT_EQ(JsonString("\xf3\xa0\xbf\xbf"), "\"\\udb43\\udfff\"") << "an invisible tag, beyond the first plane";
  Fact fact("file");
  fact.Add("name", "a\xff").Add("blocks", uint64_t{18446744073709551615u}).Add("whole", false);
  fact.Add("list", std::vector<std::string>{"x", "y"}).Add("rows", std::vector<Fact>{Fact("row")});
  EXPECT_EQ(fact.Fields(),
            "\"type\":\"file\",\"name\":\"a\\ufffd\",\"name_hex\":\"61ff\",\"blocks\":18446744073709551615,"
            "\"whole\":false,\"list\":[\"x\",\"y\"],\"rows\":[{\"type\":\"row\"}]");
}

constexpr uint32_t Ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  return a | b << 8 | c << 16 | d << 24;
}

TEST(Interfaces, TheWantedOneComesFirstThenTheRouteThenWhatCanMulticast) {
  const std::vector<Interface> all = {{"lo", Ip(127, 0, 0, 1), false, true},
                                      {"tun0", Ip(10, 8, 0, 2), false, false},
                                      {"eth0", Ip(192, 168, 1, 10), true, false},
                                      {"wlan0", Ip(192, 168, 1, 77), true, false}};
  EXPECT_EQ(ChooseInterface("wlan0", all, Ip(192, 168, 1, 10)).address, Ip(192, 168, 1, 77));
  EXPECT_EQ(ChooseInterface("192.168.1.77", all, 0).name, "wlan0");
  EXPECT_EQ(ChooseInterface("127.0.0.4", all, 0).address, Ip(127, 0, 0, 4));
  InterfaceChoice routed = ChooseInterface("", all, Ip(192, 168, 1, 77));
  EXPECT_EQ(routed.name, "wlan0");
  EXPECT_EQ(routed.others, std::vector<std::string>{"eth0 192.168.1.10"});
  EXPECT_EQ(ChooseInterface("", all, 0).name, "eth0");
  EXPECT_EQ(ChooseInterface("", std::span(all).first(2), Ip(127, 0, 0, 1)).address, 0u) << "loopback has to be named";
  EXPECT_THROW(ChooseInterface("192.168.1.11", all, 0), Failure);
}

TEST(Findings, EachFaultOfAMachineIsSeen) {
  const Device sound{.name = "eth0", .multicast = true, .mtu = 1500};
  Device device = sound;
  EXPECT_EQ(JudgeDevice(device, 1).severity, Severity::Fine);
  device.carrier = false;
  EXPECT_EQ(JudgeDevice(device, 1).severity, Severity::Fault);
  device.multicast = false;
  EXPECT_EQ(JudgeDevice(device, 1).severity, Severity::Fault);
  EXPECT_EQ(JudgeMtu(sound).text, "MTU 1500: each block travels in 4 fragments");
  EXPECT_EQ(JudgeMtu({.name = "wg0", .mtu = 1280}).severity, Severity::Hint);
  EXPECT_EQ(JudgeBuffers(212992, false).next, std::vector<std::string>{"sysctl -w net.core.rmem_max=1048576"});
  EXPECT_EQ(JudgeRoute({.address = 1, .name = "eth0"}, 2, 3).severity, Severity::Hint);
  EXPECT_EQ(JudgeOverflows(7).severity, Severity::Hint);
  EXPECT_EQ(JudgeReassembly(sound, Reassembly{4 << 20, 30, 0}).severity, Severity::Hint);
  EXPECT_EQ(JudgeReassembly(sound, Reassembly{64 << 20, 2, 0}).severity, Severity::Fine);
  EXPECT_NE(JudgeReassembly(sound, Reassembly{64 << 20, 2, 1234}).text.find("1 234 fragments"), std::string::npos);
  EXPECT_EQ(JudgeListeners({"eth0", "lo"}, {.address = 1, .name = "eth0"}).severity, Severity::Hint);
  EXPECT_EQ(JudgeFirewall(std::nullopt, 27001).severity, Severity::Hint);
}

QuorlReceiverState Row(uint32_t address, uint32_t state, uint32_t missing = 0) {
  return {sizeof(QuorlReceiverState), Ip(10, 0, 0, address), state, state == QUORL_RECEIVER_FAILED ? 112u : 0u,
          missing};
}

TEST(Results, NoNameOfAnyListIsShownRaw) {
  const std::string name = "\x1b[2J";
  ReceiveResult result;
  result.moved.moved = {{name, name + " (1)"}};
  result.moved.skipped = result.moved.taken = result.end.changed = {name, name};
  result.moved.refused = {{name, "one"}, {name, "other"}};
  result.differences = {{name, "same"}, {name, "same"}, {name, "same"}};
  SendTally tally;
  tally.Add({.rows = {Row(1, QUORL_RECEIVER_FAILED)}, .reasons = {{Ip(10, 0, 0, 1), name}}}, {});
  testing::internal::CaptureStdout();
  Reporter reporter({}, "");
  TellResult(reporter, result);
  TellSent(reporter, HostNames(), tally, {}, std::chrono::seconds(1));
  const std::string shown = testing::internal::GetCapturedStdout();
  EXPECT_EQ(shown.find('\x1b'), std::string::npos) << shown;
  size_t names = 0;
  for (size_t at = 0; (at = shown.find("\\x1b[2J", at)) != std::string::npos; ++at) ++names;
  EXPECT_EQ(names, 2u + 3 * 2 + 2 + 2 + 1) << shown;
}

TEST(Progress, TheRateIsThatOfTheLastSecondsAndAHundredPerCentIsTheEnd) {
  EXPECT_EQ(Percent(999'999'999, 1'000'000'000), 99u);
  RateMeter meter;
  RateMeter::Clock::time_point start{};
  for (int second = 0; second <= 16; ++second)
    meter.Add(start + std::chrono::seconds(second), std::min(second, 10) * uint64_t{1000});
  EXPECT_DOUBLE_EQ(meter.PerSecond().value(), 0) << "a stall shows after five seconds";
  EXPECT_EQ(meter.TimeFor(1000), std::nullopt);
}

TEST(Progress, LinesFitTheirWidthAndLosePartsFromTheRight) {
  const std::vector<std::string> parts = {"58 %", "1.07 of 1.84 GB", "25.0 MB/s", "31 s left"};
  EXPECT_EQ(BarLine("Sending", 0.588, parts, 60), "Sending    ███████████░░░░░░░░░   58 %   1.07 of 1.84 GB");
  for (size_t width = 1; width < 120; ++width) EXPECT_LT(Columns(BarLine("Sending", 1, parts, width)), width);
  for (const auto& [text, columns] : {std::pair{"Привет", 6u}, {"写真", 4u}, {"u\u0308", 1u}, {"😀…█", 4u}})
    EXPECT_EQ(Columns(text), columns) << text;
  EXPECT_EQ(ShownName("\\images\\render\\scene_0000000_final.exr", 24), "images/rend…00_final.exr");
  for (size_t columns = 0; columns < 30; ++columns) {
    std::string shown = ShownName("a\xff/ü写真写真b\n真/😀😀😀 end.jpg", columns);
    EXPECT_LE(Columns(shown), columns);
    EXPECT_TRUE(IsUtf8(shown));
  }
}

TEST(Progress, AListOfReceiversFitsItsWidthAndItsLines) {
  const auto list = [](size_t count, size_t width, size_t lines) {
    return InColumns(std::vector<std::string>(count, "192.168.1.31"), width, lines, " (l: list)");
  };
  EXPECT_EQ(list(24, 100, 1),
            "  192.168.1.31    192.168.1.31    192.168.1.31    192.168.1.31    ... 20 more (l: list)");
  EXPECT_EQ(list(2, 20, 1), "  ... 2 more (l: list)");
  for (size_t count = 1; count < 30; ++count) {
    for (size_t width = 24; width < 120; ++width) {
      std::istringstream lines(list(count, width, 2));
      size_t used = 0;
      for (std::string line; std::getline(lines, line); ++used) EXPECT_LE(Columns(line), width) << count;
      EXPECT_LE(used, 2u);
    }
  }
}

TEST(Progress, TheRepairCountsDownAndSaysForWhom) {
  HostNames names;
  const Contents contents;
  SendView view(contents, 1, names, {});
  const std::vector<QuorlReceiverState> rows = {Row(1, QUORL_RECEIVER_COMPLETE), Row(2, QUORL_RECEIVER_MASTER, 300),
                                                Row(3, QUORL_RECEIVER_WAITING, 100)};
  SendMoment moment{.rows = rows};
  moment.state.phase = QUORL_PHASE_REPAIRING;
  view.Show(moment, 100);
  moment.state.blocksResent = 100;
  moment.now += std::chrono::seconds(1);
  const ProgressView shown = view.Show(moment, 100);
  EXPECT_TRUE(shown.lines.at(0).ends_with("   3 receivers: 1 complete, 1 waiting, 1 in repair"));
  EXPECT_EQ(shown.lines.at(1), "           10.0.0.2: 200 of 300 blocks left   3 s left");
}

TEST(Progress, RatesAndSizesAreOfContentsFromTheFirstLineOn) {
  HostNames names;
  Contents contents;
  for (int i = 0; i < 3000; ++i) contents.Add(100, 1);
  contents.Add(4254 * 1000, 1001);
  SendView sending(contents, 1, names, {});
  SendMoment moment{.now = RateMeter::Clock::time_point(std::chrono::seconds(10))};
  moment.state.phase = QUORL_PHASE_STREAMING;
  moment.state.blocksTotal = 4011;
  moment.state.blocksSent = 3010;
  EXPECT_EQ(sending.Show(moment, 100).plain, "75 %  0.30 of 4.55 MB  30.0 kB/s  2 min 22 s left")
      << "the manifest has ten";

  ReceiveView receiving;
  QuorlReceiveState state{.blocksExpected = 4011, .blocksStored = 3010, .blocksMissing = 1001};
  state.phase = QUORL_PHASE_STREAMING;
  state.bytesStored = 300'000;
  EXPECT_EQ(receiving.Show(moment.now, state, 0, 100).plain, " 75 %  300 kB  30.0 kB/s  4 s left");
}

}  // namespace
}  // namespace quorl::cli
