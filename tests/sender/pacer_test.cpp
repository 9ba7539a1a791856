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

TEST(RatePacer, DatagramsAreAsFarApartAsTheyTakeOnTheWireAndNeverCloser) {
  // 4796 bytes are four fragments: 4804 bytes of payload and 58 bytes around each, 5036 bytes, 40288 bits.
  ASSERT_EQ(BytesOnWire(4796), 5036U);
  Pacer rounded(30'000);  // 1342933.3 ns
  EXPECT_EQ(Departures(rounded, std::vector(2, false), 0ns)[1], 1s + 1'342'934ns);
  Pacer exact(100'000);
  const auto left = Departures(exact, std::vector(1001, false), 150us);
  EXPECT_EQ(left.back() - 150us - left.front(), 1000 * 402'880ns);
}

TEST(RatePacer, WhoComesLateCatchesUpAtMost2MsWorth) {
  Pacer pacer(100'000);
  Departures(pacer, {false}, 0ns);
  // A second late: four of 0.4 ms fit into 2 ms and leave at once, the fifth waits for its place.
  const auto late = Departures(pacer, std::vector(6, false), 0ns, 2s);
  EXPECT_EQ(late[3], 2s);
  EXPECT_GT(late[4], 2s);
  EXPECT_EQ(late[5] - late[4], 402'880ns);
}

}  // namespace
}  // namespace quorl
