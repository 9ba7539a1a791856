#include "sender/receiver_table.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"

namespace quorl {
namespace {

constexpr uint32_t RECEIVER = Ipv4(10, 0, 0, 1);

TEST(ReceiverTable, AReceiverIsKnownByItsAddressAndKeepsItsFirstPort) {
  ReceiverTable table;
  for (const uint16_t port : {500, 600}) EXPECT_TRUE(table.AddClient({RECEIVER, port}));
  EXPECT_EQ(table.Count(), 1);
  EXPECT_EQ(table[0].addr.port, 500);
}

TEST(ReceiverTable, MoreThanThirtyPercentMissingIsTooMuch) {
  struct Case {
    uint32_t missing, total;
    uint32_t status;
  };
  const Case cases[] = {
      {0, 100, 0},
      {30, 100, 0},
      {31, 100, 1},
      {1, 3, 1},
      {7, 0, 0},
      // The greatest counts: the comparison is exact, and nothing wraps.
      {1288490188, 4294967295, 0},
      {1288490189, 4294967295, 1},
      {4294967295, 4294967295, 1},
  };
  for (const Case& c : cases) {
    ReceiverTable table;
    table.AddClient({RECEIVER, 500});
    table.TakeAnswer(RECEIVER, c.missing, c.total);
    EXPECT_EQ(table[0].status, c.status) << c.missing << " of " << c.total;
    EXPECT_EQ(table[0].noTurn, c.missing == 0 || c.status == 1);
    EXPECT_TRUE(table.AllAnswered());
    table.Forget();
    EXPECT_TRUE(table[0].IsCandidate() && !table.AllAnswered());
  }
}

}  // namespace
}  // namespace quorl
