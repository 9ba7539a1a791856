#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "cli/outcome/send_tally.h"
#include "cli/room/host_names.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// What was sent, for the last lines.
struct SentAmount {
  uint64_t bytes = 0;
  uint64_t streamed = 0;  ///< Of them, the last time.
  uint64_t files = 0;
  uint64_t blocks = 0;
  uint32_t rate = 0;  ///< kbit/s.
};

/// Tells which receivers have everything, which have not and why, and what the transfer took.
void TellSent(Reporter& reporter, const HostNames& names, const SendTally& tally, const SentAmount& amount,
              std::chrono::nanoseconds elapsed);

/// Whether somebody has missed so much that less in a second would be faster in all.
bool IsTooFast(std::span<const QuorlReceiverState> rows, uint64_t blocks);

/// How many rows have that QUORL_RECEIVER_ state.
uint64_t CountRows(std::span<const QuorlReceiverState> rows, uint32_t state);

/// How a receiver's part ended, in words: "complete, 12 blocks repaired".
std::string RowInWords(const QuorlReceiverState& row);
Fact RowFact(const QuorlReceiverState& row, const HostNames& names);

}  // namespace quorl::cli
