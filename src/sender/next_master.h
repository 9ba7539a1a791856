#pragma once

#include <cstdint>

#include "sender/receiver_table.h"

namespace quorl {

/// How far the choice of masters has come.
struct PassState {
  bool secondPass = false;    ///< The first pass has run past its end.
  bool turnsPending = false;  ///< Some receiver has been marked for the second pass.
};

/// The receiver that becomes master after row `current` (-1: from the start); the table's count for none. May enter
/// the second pass.
int32_t NextMaster(const ReceiverTable& table, PassState& pass, int32_t current);

}  // namespace quorl
