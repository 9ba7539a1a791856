// The rate that finds itself, on links as they are: of some capacity, with a queue in front, and with losses that have
// nothing to do with the rate.
#include "coded/sender/coded_rate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr double SYMBOL_BITS = 1538 * 8;

/// A sender behind a link that others may use as well, and its one receiver.
struct Flow {
  CodedRate rate;
  double credit = 0;
  uint64_t sent = 0, arrived = 0;
  uint32_t round = 0;
};

struct Link {
  double megabits = 0;
  double queueBytes = 0;
  double loss = 0;  ///< Behind the queue.
};

/// What is the case behind the first quarter of the time.
struct Outcome {
  double used = 0;  ///< Of the link.
  double lost = 0;  ///< Of what was sent, in the queue.
  std::vector<double> arrived;
};

Outcome Send(const Link& link, size_t senders, double seconds) {
  std::vector<Flow> flows(senders);
  std::mt19937 random(1);
  std::uniform_real_distribution<double> chance;
  Outcome outcome{.arrived = std::vector<double>(senders)};
  double queue = 0, sent = 0, lost = 0, carried = 0;
  Moment now{1s};
  for (int tick = 0; tick < seconds * 10'000; ++tick, now += 100us) {
    const bool counts = tick >= seconds * 2500;
    const double drained = std::min(queue, link.megabits * 100 / 8);
    queue -= drained;
    if (counts) carried += drained;
    // In the order of chance, as packets of several senders meet.
    std::vector<size_t> turns;
    for (size_t i = 0; i < senders; ++i) {
      Flow& flow = flows[i];
      if (tick < static_cast<int>(i) * 5000) continue;
      for (flow.credit += flow.rate.Rate() / 10.0; flow.credit >= SYMBOL_BITS; flow.credit -= SYMBOL_BITS)
        turns.push_back(i);
    }
    std::shuffle(turns.begin(), turns.end(), random);
    for (const size_t i : turns) {
      ++flows[i].sent;
      if (counts) ++sent;
      const bool fits = queue + SYMBOL_BITS / 8 <= link.queueBytes;
      if (counts && !fits) ++lost;
      if (!fits) continue;
      queue += SYMBOL_BITS / 8;
      if (chance(random) < link.loss) continue;
      ++flows[i].arrived;
      if (counts) ++outcome.arrived[i];
    }
    for (size_t i = 0; i < senders; ++i) {
      Flow& flow = flows[i];
      if (tick % 100 != 0) continue;
      flow.rate.Polled(++flow.round, true, flow.sent, now);
      flow.rate.Take(1, flow.round, static_cast<uint32_t>(flow.arrived), now);
    }
  }
  outcome.used = carried * 8 / (link.megabits * 1e6 * seconds * 0.75);
  outcome.lost = lost / sent;
  return outcome;
}

TEST(CodedRate, FillsALinkWithoutLosingMuchInItsQueue) {
  const Outcome usual = Send({100, 64 << 10, 0}, 1, 6);
  EXPECT_GT(usual.used, 0.92);
  EXPECT_LT(usual.lost, 0.01);
  for (const double megabits : {20, 100, 1000}) {
    for (const double loss : {0.01, 0.05, 0.2}) {
      const Outcome outcome = Send({megabits, 64 << 10, loss}, 1, 6);
      EXPECT_GT(outcome.used, 0.7) << megabits << " Mbit/s, " << loss;
      EXPECT_LT(outcome.lost, 0.15) << megabits << " Mbit/s, " << loss;
    }
  }
}

TEST(CodedRate, SharesALinkWithAnother) {
  for (const double megabits : {50, 100, 1000}) {
    const Outcome outcome = Send({megabits, 64 << 10, 0}, 2, 20);
    const auto [less, more] = std::minmax(outcome.arrived[0], outcome.arrived[1]);
    EXPECT_LT(more, 2 * less) << megabits << " Mbit/s";
    EXPECT_GT(outcome.used, 0.9) << megabits << " Mbit/s";
    EXPECT_LT(outcome.lost, 0.05) << megabits << " Mbit/s";
  }
}

}  // namespace
}  // namespace quorl
