// Every single lost datagram of a small transfer, and every pair of them.
#include "sim/studies/exhaust.h"

#include <gtest/gtest.h>

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

TEST(Exhaust, NoOneOrTwoLossesGiveAWrongCompletionOrNoEnd) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    const std::vector<ExhaustTally> tallies = Exhaust(profile);
    ASSERT_EQ(tallies.size(), 3u);
    for (const ExhaustTally& tally : tallies) {
      EXPECT_GT(tally.runs, 0u);
      EXPECT_EQ(tally.endless, 0u) << ToText(tallies);
      // By the classic rules the first block of all, and a lost answer, leave holes that nobody notices.
      if (profile == Profile::Robust) {
        EXPECT_EQ(tally.wronglyTold, 0u) << ToText(tallies);
      }
      EXPECT_EQ(tally.wronglyStated, 0u) << ToText(tallies);
      EXPECT_LE(tally.longest, 60s) << ToText(tallies);
    }
    EXPECT_GT(tallies[1].runs, 40u);
    EXPECT_GT(tallies[2].runs, 1000u);
    EXPECT_EQ(tallies[0].flawless, 1u);
    if (profile == Profile::Robust) {
      EXPECT_EQ(tallies[1].flawless, tallies[1].runs) << ToText(tallies);
      EXPECT_EQ(tallies[2].flawless, tallies[2].runs) << ToText(tallies);
    }
  }
}

}  // namespace
}  // namespace quorl::sim
