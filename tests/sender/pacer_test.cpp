#include "sender/pacer.h"

#include <gtest/gtest.h>

#include <vector>

#include "protocol/wire_size.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

/// Sends one datagram for each entry of `fast`, each `work` after it may leave; the moments at which they left.
std::vector<Moment> Departures(Pacer& pacer, const std::vector<bool>& fast, Duration work, Moment now = 1s) {
  std::vector<Moment> left;
  for (const bool fastPacing : fast) {
    if (const auto next = pacer.NextSend(fastPacing)) now = std::max(now, *next);
    now += work;
    pacer.Sent(now, 4796);
    left.push_back(now);
  }
  return left;
}

TEST(FixedPacer, SlowPausesBeforeEveryDatagramButTheFirst) {
  Pacer pacer(0);
  EXPECT_EQ(Departures(pacer, std::vector(4, false), 0ms), (std::vector<Moment>{1s, 1025ms, 1050ms, 1075ms}));
}

TEST(FixedPacer, FastPausesBeforeThe3rdThe5thAndSoOn) {
  Pacer pacer(0);
  EXPECT_EQ(Departures(pacer, std::vector(6, true), 0ms),
            (std::vector<Moment>{1s, 1s, 1010ms, 1010ms, 1020ms, 1020ms}));
}

TEST(FixedPacer, APauseBeginsWhenTheDatagramBeforeHasLeft) {
  Pacer pacer(0);
  EXPECT_EQ(Departures(pacer, std::vector(5, true), 3ms),
            (std::vector<Moment>{1003ms, 1006ms, 1019ms, 1022ms, 1035ms}));
}

TEST(FixedPacer, TheSlowPaceHoldsFromTheNextDatagramOn) {
  Pacer pacer(0);
  EXPECT_EQ(Departures(pacer, {true, true, true, false, false}, 0ms),
            (std::vector<Moment>{1s, 1s, 1010ms, 1035ms, 1060ms}));
}

TEST(RatePacer, DatagramsAreAsFarApartAsTheyTakeOnTheWireAndNeverCloser) {
  // 4796 bytes are four fragments: 4804 bytes of payload and 58 bytes around each, 5036 bytes, 40288 bits.
  ASSERT_EQ(BytesOnWire(4796), 5036U);
  Pacer exact(100'000);
  EXPECT_EQ(Departures(exact, std::vector(4, false), 0ns),
            (std::vector<Moment>{1s, 1s + 402'880ns, 1s + 805'760ns, 1s + 1'208'640ns}));
  Pacer rounded(30'000);  // 1342933.3 ns
  EXPECT_EQ(Departures(rounded, std::vector(2, false), 0ns)[1], 1s + 1'342'934ns);
  Pacer slow(1);
  EXPECT_EQ(Departures(slow, std::vector(2, false), 0ns)[1], 1s + 40'288ms);
}

TEST(RatePacer, WhoComesLateCatchesUpAtMost2MsWorth) {
  Pacer pacer(100'000);
  Departures(pacer, {false}, 0ns);
  // A second late: four of 0.4 ms fit into 2 ms and leave at once, the fifth waits for its place.
  const auto late = Departures(pacer, std::vector(6, false), 0ns, 2s);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(late[i], 2s) << i;
  EXPECT_GT(late[4], 2s);
  EXPECT_EQ(late[5] - late[4], 402'880ns);
}

TEST(RatePacer, OneDatagramAtATimeWhen2MsCarryLessThanOne) {
  Pacer pacer(10'000);  // 4028800 ns each
  Departures(pacer, {false}, 0ns);
  EXPECT_EQ(Departures(pacer, std::vector(3, false), 0ns, 2s),
            (std::vector<Moment>{2s, 2s + 4'028'800ns, 2s + 8'057'600ns}));
}

TEST(RatePacer, AShortDelayIsMadeUpAndTheRateHeldOverAll) {
  Pacer pacer(100'000);
  const auto left = Departures(pacer, std::vector(1001, false), 150us);
  EXPECT_EQ(left.back() - 150us - left.front(), 1000 * 402'880ns);
}

}  // namespace
}  // namespace quorl
