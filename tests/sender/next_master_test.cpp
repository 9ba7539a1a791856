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

TEST(NextMaster, GoesDownTheTableThenToTheMarkedOnes) {
  constexpr PassState FIRST{false, false}, FIRST_PENDING{false, true}, SECOND{true, true};
  struct Case {
    const char* rows;
    int32_t current;
    PassState before;
    int32_t next;
    bool secondPass;
  };
  const Case cases[] = {
      {"...", -1, FIRST, 0, false},
      {"nf.", -1, FIRST, 2, false},
      {"n.m.", 1, FIRST_PENDING, 3, false},
      // Nobody is left, and nobody marked.
      {"", -1, FIRST, 0, true},
      {".nn", 0, FIRST, 3, true},
      {"..", 1, FIRST, 2, true},
      {"mnmn", 2, FIRST_PENDING, 0, true},  // Row 2 is marked too, so row 0 counts.
      {"nmm", 0, FIRST_PENDING, 1, true},
      {"nmm", -1, SECOND, 1, true},
      {"nmm", 2, SECOND, 3, true},
      {"mnn", -1, SECOND, 0, true},
      // From row 0 on, row 0 is left out unless a higher one is marked.
      {"mnn", 0, SECOND, 3, true},
      {"mnm", 0, SECOND, 0, true},  // Named again while it is master.
      {"m", -1, FIRST_PENDING, 1, true},
      // After the last row the second pass is entered with nothing pending too.
      {"nm", 1, FIRST, 1, true},
      {"mm", 1, FIRST, 0, true},
  };
  for (const Case& c : cases) {
    PassState pass = c.before;
    EXPECT_EQ(NextMaster(TableOf(c.rows), pass, c.current), c.next) << '"' << c.rows << "\" after " << c.current;
    EXPECT_EQ(pass.secondPass, c.secondPass) << '"' << c.rows << "\" after " << c.current;
  }
}

}  // namespace
}  // namespace quorl
