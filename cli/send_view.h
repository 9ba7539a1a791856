#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "cli/host_names.h"
#include "cli/progress.h"
#include "cli/reporter.h"

namespace quorl::cli {

/// How far a transfer is, as it is asked from the library.
struct SendMoment {
  RateMeter::Clock::time_point now;
  QuorlSendState state{};
  std::span<const QuorlReceiverState> rows;
  std::string file;          ///< The one that travels now.
  uint64_t filesBefore = 0;  ///< It.
};

/// Makes the progress of a sender visible; remembers what it needs for rates.
class SendView {
 public:
  /// `before`: files that travel before those that are counted.
  SendView(uint64_t bytes, uint64_t files, uint64_t before, const HostNames& names)
      : bytes(bytes), files(files), before(before), names(names) {}

  ProgressView Show(const SendMoment& moment, size_t width);

 private:
  ProgressView ShowSending(const SendMoment& moment, size_t width);
  ProgressView ShowRepairing(const SendMoment& moment, size_t width);
  uint64_t LeftOf(const QuorlReceiverState& master, uint64_t resent);

  const uint64_t bytes;
  const uint64_t files;
  const uint64_t before;
  const HostNames& names;
  RateMeter sending;
  RateMeter repairing;
  uint32_t master = 0;              ///< Whose turn it is.
  uint64_t resentBeforeMaster = 0;  ///< By the repair, when its turn began.
};

/// How many rows have that QUORL_RECEIVER_ state.
uint64_t CountRows(std::span<const QuorlReceiverState> rows, uint32_t state);

/// How a receiver's part ended, in words: "complete, 12 blocks repaired".
std::string RowInWords(const QuorlReceiverState& row);
Fact RowFact(const QuorlReceiverState& row, const HostNames& names);

/// How long the blocks take at a rate in kbit/s, framing included; 0: the fixed pacing at its best.
std::chrono::milliseconds StreamTime(uint64_t blocks, uint32_t rate);

}  // namespace quorl::cli
