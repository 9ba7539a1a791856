// How a sender's transfers end, decided on plain values.
#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "cli/outcome/exits.h"

namespace quorl::cli {

/// How one transfer ended on the sender's side.
struct SendEnd {
  uint32_t status = 0;  ///< What the library ended it with.
  int signal = 0;       ///< That stopped it; 0: none.
  std::vector<QuorlReceiverState> rows;
  QuorlSendState state{};
  std::chrono::nanoseconds streaming{};     ///< Until every block had travelled once.
  std::map<uint32_t, std::string> reasons;  ///< Of receivers that failed, in their own words or ours.
  bool filesChanged = false;                ///< Files of the selection, while they were sent.
};

/// Other reasons for an exit code.
struct Shortfall {
  bool absent = false;   ///< A receiver that was meant has never been there.
  bool shrunk = false;   ///< A file that travelled did not travel whole.
  bool leftOut = false;  ///< Something that was selected did not travel.
};

/// `status`: what the library ended a transfer with, 0 for the normal end.
Exit SenderExit(uint32_t status, std::span<const QuorlReceiverState> receivers, const Shortfall& shortfall);

/// How everybody fared, over a transfer and its repetitions.
class SendTally {
 public:
  /// `only`: whom it was meant for; empty: everyone. Who listened besides does not count.
  void Add(const SendEnd& end, const std::vector<uint32_t>& only);

  /// These were meant, by address or name, and have never been there.
  void NoteAbsent(std::vector<std::string> whom) { absent = std::move(whom); }
  const std::vector<std::string>& Absent() const { return absent; }

  /// Something that was chosen did not travel.
  void NoteLeftOut() { leftOut = true; }

  bool HasLeftOut() const { return leftOut; }
  bool WasStopped() const { return last.signal != 0; }
  const SendEnd& Last() const { return last; }
  const std::vector<QuorlReceiverState>& Rows() const { return rows; }

  /// Why that receiver failed; empty: its status says it.
  std::string ReasonOf(uint32_t address) const;

  /// The receivers that are not complete.
  std::vector<uint32_t> Failed() const;
  int ExitCode() const;

 private:
  SendEnd last;
  std::vector<QuorlReceiverState> rows;
  std::vector<std::string> absent;
  std::map<uint32_t, std::string> reasons;
  bool leftOut = false;
};

}  // namespace quorl::cli
