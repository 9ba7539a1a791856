#include "sender/receiver_table.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"

namespace quorl {
namespace {

constexpr Endpoint Receiver(uint8_t number, uint16_t port = 27001) {
  return {Ipv4(10, 0, 0, number), port};
}

TEST(ReceiverTable, AReceiverIsKnownByItsAddressKeepsItsFirstPortAndIsNeverPushedOut) {
  ReceiverTable table;
  for (int i = 0; i < ReceiverTable::CAPACITY; ++i)
    EXPECT_TRUE(table.AddClient(Receiver(static_cast<uint8_t>(i), 500)));
  EXPECT_TRUE(table.AddClient(Receiver(1, 600)));
  EXPECT_FALSE(table.AddClient(Receiver(200)));
  EXPECT_EQ(table.Count(), ReceiverTable::CAPACITY);
  EXPECT_EQ(table[1].addr, Receiver(1, 500));
  EXPECT_EQ(table.Find(Ipv4(10, 0, 0, 200)), nullptr);
}

TEST(ReceiverTable, MoreThanThirtyPercentMissingIsTooMuch) {
  struct Case {
    uint32_t missing, total;
    bool noTurn;
    uint32_t status;
  };
  const Case cases[] = {
      {0, 100, true, 0},
      {30, 100, false, 0},
      {31, 100, true, 1},
      {1, 3, true, 1},
      {7, 0, false, 0},
      // The greatest counts: the comparison is exact, and nothing wraps.
      {1288490188, 4294967295, false, 0},
      {1288490189, 4294967295, true, 1},
      {4294967295, 4294967295, true, 1},
  };
  for (const Case& c : cases) {
    ReceiverTable table;
    table.AddClient(Receiver(1));
    table.TakeAnswer(Ipv4(10, 0, 0, 1), c.missing, c.total);
    EXPECT_EQ(table[0].noTurn, c.noTurn) << c.missing << " of " << c.total;
    EXPECT_EQ(table[0].status, c.status) << c.missing << " of " << c.total;
    EXPECT_TRUE(table.AllAnswered());
    table.BeginTransfer();
    EXPECT_TRUE(table[0].IsCandidate() && !table.AllAnswered());
  }
}

}  // namespace
}  // namespace quorl
