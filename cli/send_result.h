#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/host_names.h"
#include "cli/reporter.h"
#include "cli/transfer.h"

namespace quorl::cli {

/// What was sent, for the last lines.
struct SentAmount {
  uint64_t bytes = 0;
  uint64_t files = 0;
  uint64_t blocks = 0;
  uint32_t rate = 0;  ///< kbit/s.
};

/// How everybody fared, over a transfer and its repetitions.
class SendResult {
 public:
  void Begin() { started = std::chrono::steady_clock::now(); }

  /// `only`: whom it was meant for; empty: everyone. Who listened besides does not count.
  void Add(const TransferEnd& end, const std::vector<uint32_t>& only);

  /// Something that was chosen did not travel.
  void NoteLeftOut() { leftOut = true; }

  bool WasStopped() const { return last.signal != 0; }

  /// Who is not complete.
  std::vector<uint32_t> Failed() const;
  const std::vector<QuorlReceiverState>& Rows() const { return rows; }

  void Tell(Reporter& reporter, const HostNames& names, const SentAmount& amount) const;
  int ExitCode() const;

  /// The lines that Tell shows.
  std::string Text(const Reporter& reporter, const HostNames& names, const SentAmount& amount,
                   std::chrono::nanoseconds elapsed) const;

 private:
  std::string CompleteText(const HostNames& names, uint64_t blocks) const;
  std::string Advice(const SentAmount& amount) const;
  void TellFacts(Reporter& reporter, const HostNames& names, const SentAmount& amount,
                 std::chrono::nanoseconds elapsed) const;

  std::chrono::steady_clock::time_point started;
  TransferEnd last;
  std::vector<QuorlReceiverState> rows;
  bool leftOut = false;
};

}  // namespace quorl::cli
