// What the command shows and what it ends with.
#include <gtest/gtest.h>

#include "cli/escape.h"
#include "cli/fact.h"
#include "cli/interfaces.h"
#include "cli/outcome.h"
#include "cli/progress.h"

namespace quorl::cli {
namespace {

TEST(Escape, LetsNothingThroughThatSteersATerminal) {
  EXPECT_EQ(Escape("photo 1.jpg"), "photo 1.jpg");
  EXPECT_EQ(Escape("Größe 写真 😀"), "Größe 写真 😀");
  EXPECT_EQ(Escape("a\x1b[31m\n\r\t\x7f"), "a\\x1b[31m\\x0a\\x0d\\x09\\x7f");
  EXPECT_EQ(Escape("\xc2\x9b"
                   "31m"),
            "\\xc2\\x9b31m")
      << "a control character of 8 bits, in UTF-8";
  EXPECT_EQ(Escape("gpj.\xe2\x80\xae"
                   "exe"),
            "gpj.\\xe2\\x80\\xaeexe")
      << "right-to-left override";
  for (const char* mark :
       {"\xe2\x80\x8b", "\xe2\x80\x8f", "\xe2\x80\xaa", "\xe2\x81\xa6", "\xe2\x81\xa9", "\xef\xbb\xbf"}) {
    EXPECT_EQ(Escape(mark).rfind("\\x", 0), 0u);
  }
  EXPECT_EQ(Escape("\xe2\x80\x90"), "\xe2\x80\x90") << "a hyphen is next to the marks, and harmless";
}

TEST(Escape, ShowsBytesThatAreNoUtf8) {
  EXPECT_EQ(Escape("a\xff"
                   "b"),
            "a\\xffb");
  EXPECT_EQ(Escape("\xc3"), "\\xc3") << "cut short";
  EXPECT_EQ(Escape("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
  EXPECT_EQ(Escape("\xe0\x80\xaf"), "\\xe0\\x80\\xaf") << "overlong";
  EXPECT_EQ(Escape("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
  EXPECT_EQ(Escape("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
  EXPECT_EQ(Escape("\xc3\xa4\xc3"), "ä\\xc3");
}

TEST(Facts, BecomeJsonThatAnyBytesLeaveIntact) {
  EXPECT_EQ(JsonString("a \"b\" \\ ä 😀"), "\"a \\\"b\\\" \\\\ ä 😀\"");
  EXPECT_EQ(JsonString("\x1b[31m\n\x7f"), "\"\\u001b[31m\\u000a\\u007f\"");
  EXPECT_EQ(JsonString("\xe2\x80\xae"), "\"\\u202e\"");
  EXPECT_EQ(JsonString("\xf3\xa0\x81\x81"), "\"\\udb40\\udc41\"") << "an invisible tag, beyond the first plane";
  Fact fact("file");
  fact.Add("path", "a\xff").Add("blocks", uint64_t{18446744073709551615u}).Add("whole", false);
  fact.Add("list", std::vector<std::string>{"x", "y"}).Add("rows", std::vector<Fact>{Fact("row")});
  EXPECT_EQ(fact.Fields(),
            "\"type\":\"file\",\"path\":\"a\\ufffd\",\"path_hex\":\"61ff\",\"blocks\":18446744073709551615,"
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
  for (const char* wrong : {"eth1", "192.168.1.11"}) {
    EXPECT_THROW(ChooseInterface(wrong, all, 0), Failure) << wrong;
  }
}

QuorlReceiverState Row(uint32_t state, uint32_t status) {
  return {Ip(10, 0, 0, 1), state, status, 0};
}

TEST(Outcome, TheSendersExitCodeCountsReceiversAndFiles) {
  const QuorlReceiverState complete = Row(QUORL_RECEIVER_COMPLETE, 0);
  const QuorlReceiverState failed = Row(QUORL_RECEIVER_FAILED, QUORL_STATUS_DISK_FULL);
  const QuorlReceiverState silent = Row(QUORL_RECEIVER_WAITING, 0);
  using Rows = std::vector<QuorlReceiverState>;
  EXPECT_EQ(SenderExit(0, Rows{complete, complete}, false), Exit::Complete);
  EXPECT_EQ(SenderExit(0, Rows{complete, complete}, true), Exit::Partly);
  EXPECT_EQ(SenderExit(0, Rows{complete, failed}, false), Exit::Partly);
  EXPECT_EQ(SenderExit(0, Rows{complete, silent}, false), Exit::Partly) << "who says nothing is not complete";
  EXPECT_EQ(SenderExit(0, Rows{failed, silent}, false), Exit::AllFailed);
  EXPECT_EQ(SenderExit(QUORL_STATUS_TIMED_OUT, Rows{complete, failed}, false), Exit::Partly);
  EXPECT_EQ(SenderExit(QUORL_STATUS_FILE_UNREADABLE, Rows{complete}, false), Exit::LocalFiles);
  EXPECT_EQ(SenderExit(QUORL_STATUS_SEND_FAILED, Rows{complete}, false), Exit::Other);
}

TEST(Outcome, AReceiverIsCompleteOnlyWithEveryBlock) {
  QuorlReceiveState state{};
  state.complete = 1;
  EXPECT_EQ(ReceiverExit(state), Exit::Complete);
  state.blocksMissing = 1;
  EXPECT_EQ(ReceiverExit(state), Exit::PeerLost);
  state.failedFiles = 1;
  EXPECT_EQ(ReceiverExit(state), Exit::Partly);
  state.status = QUORL_STATUS_DISK_FULL;
  EXPECT_EQ(ReceiverExit(state), Exit::NoRoom);
  state.status = QUORL_STATUS_FILE_UNWRITABLE;
  EXPECT_EQ(ReceiverExit(state), Exit::LocalFiles);
  state.status = QUORL_STATUS_SENDER_LOST;
  EXPECT_EQ(ReceiverExit(state), Exit::PeerLost);
}

TEST(Progress, AHundredPerCentOnlyWhenNothingIsLeft) {
  EXPECT_EQ(Percent(0, 1000), 0u);
  EXPECT_EQ(Percent(999, 1000), 99u);
  EXPECT_EQ(Percent(999'999'999, 1'000'000'000), 99u);
  EXPECT_EQ(Percent(1000, 1000), 100u);
}

TEST(Progress, TheRateIsThatOfTheLastSeconds) {
  RateMeter meter;
  RateMeter::Clock::time_point start{};
  EXPECT_EQ(meter.PerSecond(), 0);
  meter.Add(start, 0);
  EXPECT_EQ(meter.PerSecond(), 0);
  for (int second = 1; second <= 10; ++second) meter.Add(start + std::chrono::seconds(second), uint64_t{1000} * second);
  EXPECT_DOUBLE_EQ(meter.PerSecond(), 1000);
  for (int second = 11; second <= 16; ++second) meter.Add(start + std::chrono::seconds(second), 10000);
  EXPECT_DOUBLE_EQ(meter.PerSecond(), 0) << "a stall shows after five seconds";
}

TEST(Progress, LinesFitTheirWidthAndLosePartsFromTheRight) {
  const std::vector<std::string> parts = {" 58 %", "1.07 of 1.84 GB", "25.0 MB/s", "31 s left"};
  EXPECT_EQ(BarLine("Sending", 0.588, parts, 100),
            "Sending    ███████████████████░░░░░░░░░░░░░░    58 %   1.07 of 1.84 GB   25.0 MB/s   31 s left");
  EXPECT_EQ(BarLine("Sending", 0.588, parts, 60), "Sending    ███████████░░░░░░░░░    58 %   1.07 of 1.84 GB");
  for (size_t width = 1; width < 120; ++width) EXPECT_LT(Columns(BarLine("Sending", 1, parts, width)), width);
}

TEST(Progress, NamesAreCutInTheMiddleAndNeverInsideACharacter) {
  EXPECT_EQ(ShownName("\\images\\a\x1b\\x.exr", 40), "images/a\\x1b/x.exr");
  EXPECT_EQ(ShownName("\\images\\render\\scene_0000000_final.exr", 24), "images/rend…00_final.exr");
  EXPECT_EQ(ShownName("写真写真写真写真写真", 10), "写真…写真");
  for (size_t columns = 0; columns < 30; ++columns) {
    std::string shown = ShownName("a\xff/ü写真写真b\n真/😀😀😀 end.jpg", columns);
    EXPECT_LE(Columns(shown), columns);
    EXPECT_TRUE(IsUtf8(shown));
  }
}

}  // namespace
}  // namespace quorl::cli
