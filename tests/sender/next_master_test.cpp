#include "sender/next_master.h"

#include <gtest/gtest.h>

#include <string>

#include "protocol/endpoints.h"

namespace quorl {
namespace {

/// One letter a row: "." may lack something, "n" needs no turn, "f" has a status, "m" is marked for the second pass.
ReceiverTable TableOf(const std::string& rows) {
  ReceiverTable table;
  for (const char row : rows) {
    const int32_t index = table.Count();
    table.AddClient({Ipv4(10, 0, 0, static_cast<uint8_t>(index)), 27001});
    table[index].noTurn = row == 'n';
    table[index].needsTurn = row == 'm';
    table[index].status = row == 'f' || row == 'm' ? 1460 : 0;
  }
  return table;
}

struct Case {
  const char* rows;
  int32_t current;
  PassState before;
  int32_t next;
  bool secondPass;
};

void Check(std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    PassState pass = c.before;
    const ReceiverTable table = TableOf(c.rows);
    EXPECT_EQ(NextMaster(table, pass, c.current), c.next) << '"' << c.rows << "\" after " << c.current;
    EXPECT_EQ(pass.secondPass, c.secondPass) << '"' << c.rows << "\" after " << c.current;
    EXPECT_EQ(pass.turnsPending, c.before.turnsPending);
  }
}

constexpr PassState FIRST{false, false}, FIRST_PENDING{false, true}, SECOND{true, true};

TEST(NextMaster, TheFirstPassGoesDownTheTable) {
  Check({
      {"...", -1, FIRST, 0, false},
      {"...", 0, FIRST, 1, false},
      {"nf.", -1, FIRST, 2, false},
      {"n.m.", 1, FIRST_PENDING, 3, false},
  });
}

TEST(NextMaster, TheFirstPassEndsWithoutASecondWhenNobodyIsMarked) {
  Check({
      {"", -1, FIRST, 0, true},
      {"n", -1, FIRST, 1, true},
      {".nn", 0, FIRST, 3, true},
      {"..", 1, FIRST, 2, true},
      {"..", 2, FIRST, 2, true},
  });
}

TEST(NextMaster, TheSecondPassNamesTheMarkedOnes) {
  Check({
      {"mnmn", 2, FIRST_PENDING, 0, true},  // Row 2 is marked too, so row 0 counts.
      {"nmm", 0, FIRST_PENDING, 1, true},
      {"nmm", -1, SECOND, 1, true},
      {"nmm", 1, SECOND, 2, true},
      {"nmm", 2, SECOND, 3, true},
      {"mnn", -1, SECOND, 0, true},
  });
}

TEST(NextMaster, FromRow0OnTheSecondPassLeavesRow0OutUnlessAHigherOneIsMarked) {
  Check({
      {"mnn", 1, FIRST_PENDING, 3, true},
      {"mnn", 0, SECOND, 3, true},
      {"mnm", 0, SECOND, 0, true},  // Row 0 is named again while it is master.
      {"m", -1, FIRST_PENDING, 1, true},
  });
}

TEST(NextMaster, AfterTheLastRowTheSecondPassIsEnteredEvenWithNothingPending) {
  Check({
      {"nm", 1, FIRST, 1, true},
      {"mm", 1, FIRST, 0, true},
  });
}

}  // namespace
}  // namespace quorl
