// The sender's side of the library, as the command asks for it.
#pragma once

#include <quorl/host.h>

#include <algorithm>
#include <vector>

namespace quorl::cli {

inline QuorlSendState SendStateNow() {
  QuorlSendState state{.size = sizeof state};
  GetSendState(&state);
  return state;
}

/// One row for each receiver of the room.
inline std::vector<QuorlReceiverState> RowsNow() {
  std::vector<QuorlReceiverState> rows(QUORL_MOST_RECEIVERS, {.size = sizeof(QuorlReceiverState)});
  rows.resize(std::min<size_t>(GetReceiverStates(rows.data(), QUORL_MOST_RECEIVERS), QUORL_MOST_RECEIVERS));
  return rows;
}

/// Whether it is for that receiver; `only`: for whom it is, empty: for all.
inline bool IsFor(uint32_t address, const std::vector<uint32_t>& only) {
  return only.empty() || std::find(only.begin(), only.end(), address) != only.end();
}

}  // namespace quorl::cli
