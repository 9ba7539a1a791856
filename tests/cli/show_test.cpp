// What the command shows and what it ends with.
#include <gtest/gtest.h>

#include "cli/escape.h"
#include "cli/fact.h"
#include "cli/findings.h"
#include "cli/interfaces.h"
#include "cli/outcome.h"
#include "cli/progress.h"
#include "cli/send_view.h"

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
  EXPECT_EQ(JsonString("\xf3\xa0\x81\x81"), "\"\\udb40\\udc41\"") << "an invisible tag, beyond the first plane";
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
  EXPECT_EQ(ChooseInterface("", std::span(all).first(2), 0).address, Ip(127, 0, 0, 1));
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
  EXPECT_EQ(JudgeFirewall(std::nullopt, 27001).severity, Severity::Hint);
}

QuorlReceiverState Row(uint32_t address, uint32_t state, uint32_t missing = 0) {
  return {Ip(10, 0, 0, address), state, state == QUORL_RECEIVER_FAILED ? 112u : 0u, missing};
}

TEST(Outcome, TheExitCodeCountsReceiversAndFiles) {
  const QuorlReceiverState complete = Row(1, QUORL_RECEIVER_COMPLETE);
  const QuorlReceiverState failed = Row(2, QUORL_RECEIVER_FAILED);
  const QuorlReceiverState silent = Row(3, QUORL_RECEIVER_WAITING);
  using Rows = std::vector<QuorlReceiverState>;
  EXPECT_EQ(SenderExit(0, Rows{complete, silent}, false), Exit::Partly) << "who says nothing is not complete";
  EXPECT_EQ(SenderExit(0, Rows{failed, silent}, false), Exit::AllFailed);
  EXPECT_EQ(SenderExit(QUORL_STATUS_FILE_UNREADABLE, Rows{complete}, false), Exit::LocalFiles);
  EXPECT_EQ(SenderExit(QUORL_STATUS_SEND_FAILED, Rows{complete}, false), Exit::Other);
  QuorlReceiveState state{};
  state.complete = 1;
  state.blocksMissing = 1;
  EXPECT_EQ(ReceiverExit(state), Exit::PeerLost) << "complete only with every block";
}

TEST(Progress, TheRateIsThatOfTheLastSecondsAndAHundredPerCentIsTheEnd) {
  EXPECT_EQ(Percent(999'999'999, 1'000'000'000), 99u);
  RateMeter meter;
  RateMeter::Clock::time_point start{};
  for (int second = 0; second <= 16; ++second)
    meter.Add(start + std::chrono::seconds(second), std::min(second, 10) * uint64_t{1000});
  EXPECT_DOUBLE_EQ(meter.PerSecond(), 0) << "a stall shows after five seconds";
  EXPECT_EQ(meter.TimeFor(1000), std::nullopt);
}

TEST(Progress, LinesFitTheirWidthAndLosePartsFromTheRight) {
  const std::vector<std::string> parts = {"58 %", "1.07 of 1.84 GB", "25.0 MB/s", "31 s left"};
  EXPECT_EQ(BarLine("Sending", 0.588, parts, 60), "Sending    ███████████░░░░░░░░░   58 %   1.07 of 1.84 GB");
  for (size_t width = 1; width < 120; ++width) EXPECT_LT(Columns(BarLine("Sending", 1, parts, width)), width);
  EXPECT_EQ(ShownName("\\images\\render\\scene_0000000_final.exr", 24), "images/rend…00_final.exr");
  for (size_t columns = 0; columns < 30; ++columns) {
    std::string shown = ShownName("a\xff/ü写真写真b\n真/😀😀😀 end.jpg", columns);
    EXPECT_LE(Columns(shown), columns);
    EXPECT_TRUE(IsUtf8(shown));
  }
}

TEST(Progress, TheRepairCountsDownAndSaysForWhom) {
  HostNames names;
  SendView view(1'000'000, 3, 1, names);
  std::vector<QuorlReceiverState> rows = {Row(1, QUORL_RECEIVER_COMPLETE), Row(2, QUORL_RECEIVER_MASTER, 300),
                                          Row(3, QUORL_RECEIVER_WAITING, 100)};
  SendMoment moment{.rows = rows};
  moment.state.phase = QUORL_PHASE_REPAIRING;
  moment.state.blocksResent = 50;
  view.Show(moment, 100);
  moment.state.blocksResent = 150;
  moment.now += std::chrono::seconds(1);
  ProgressView shown = view.Show(moment, 100);
  ASSERT_EQ(shown.lines.size(), 2u);
  EXPECT_EQ(shown.lines[0].substr(shown.lines[0].find("   3")), "   3 receivers: 1 complete, 1 waiting, 1 in repair");
  EXPECT_EQ(shown.lines[1], "           10.0.0.2: 200 of 300 blocks left   3 s left");
  EXPECT_EQ(shown.plain, "repairing, 1 of 3 receivers complete, 300 blocks left");
}

}  // namespace
}  // namespace quorl::cli
