#include "sender/receiver_table.h"

#include <gtest/gtest.h>

#include "protocol/endpoints.h"

namespace quorl {
namespace {

constexpr Endpoint Receiver(uint8_t number, uint16_t port = 27001) {
  return {Ipv4(10, 0, 0, number), port};
}

TEST(ReceiverTable, AReceiverIsKnownByItsAddressAndKeepsItsFirstPort) {
  ReceiverTable table;
  table.AddClient(Receiver(1, 500));
  table.AddClient(Receiver(2));
  table.AddClient(Receiver(1, 600));
  ASSERT_EQ(table.Count(), 2);
  EXPECT_EQ(table[0].addr, Receiver(1, 500));
  EXPECT_EQ(table.FindClient(Ipv4(10, 0, 0, 2)), 1);
  EXPECT_EQ(table.FindClient(Ipv4(10, 0, 0, 3)), 2);
}

TEST(ReceiverTable, A201stReceiverIsCountedOnly) {
  ReceiverTable table;
  for (int i = 0; i < ReceiverTable::CAPACITY; ++i) table.AddClient(Receiver(static_cast<uint8_t>(i)));
  EXPECT_EQ(table.Refused(), 0U);
  table.AddClient(Receiver(200));
  table.AddClient(Receiver(0));
  EXPECT_EQ(table.Count(), ReceiverTable::CAPACITY);
  EXPECT_EQ(table.Refused(), 1U);
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
      {3, 10, false, 0},
      {1, 3, true, 1},
      {0, 0, true, 0},
      {7, 0, false, 0},
      {1, 4, false, 0},
      {2, 4, true, 1},
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
    EXPECT_EQ(table[0].missing, c.missing);
  }
}

TEST(ReceiverTable, ATransferBeginsWithCleanRows) {
  ReceiverTable table;
  table.AddClient(Receiver(1));
  table.AddClient(Receiver(2));
  table.TakeAnswer(Ipv4(10, 0, 0, 9), 0, 10);
  EXPECT_FALSE(table.AllAnswered());
  table.TakeAnswer(Ipv4(10, 0, 0, 1), 9, 10);
  table.TakeAnswer(Ipv4(10, 0, 0, 2), 0, 10);
  EXPECT_TRUE(table.AllAnswered());
  table.BeginTransfer();
  ASSERT_EQ(table.Count(), 2);
  for (int32_t i = 0; i < 2; ++i) EXPECT_TRUE(table[i].IsCandidate() && !table[i].HasAnswered());
}

}  // namespace
}  // namespace quorl
