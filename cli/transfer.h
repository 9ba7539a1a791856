#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "cli/host_names.h"
#include "cli/inbox.h"
#include "cli/reporter.h"
#include "cli/send_view.h"

namespace quorl::cli {

/// How a transfer ended on the sender's side.
struct TransferEnd {
  uint32_t status = 0;  ///< What the library ended it with.
  int signal = 0;       ///< That stopped it; 0: none.
  std::vector<QuorlReceiverState> rows;
  QuorlSendState state{};
  std::chrono::nanoseconds elapsed{};
  std::chrono::nanoseconds streaming{};  ///< Until every block had travelled once.
};

/// Follows a transfer from its start to its end, and shows how far it is.
class Transfer {
 public:
  /// `before`: files that travel before those that are counted.
  Transfer(Inbox& inbox, Reporter& reporter, const HostNames& names, uint64_t bytes, uint64_t files, uint64_t before)
      : inbox(inbox), reporter(reporter), names(names), view(bytes, files, before, names) {}

  /// Starts what has been selected. Throws a Failure when it cannot even be announced.
  TransferEnd Run();

 private:
  using Clock = std::chrono::steady_clock;

  void Follow();
  bool Take(const Event& event);
  void TakeLastStatus();
  void Stop(int signal);
  void NotePhase();
  void SayReceiverError(const Event& event);
  void SayFile(const std::string& name);
  void ShowProgress();

  Inbox& inbox;
  Reporter& reporter;
  const HostNames& names;
  SendView view;
  TransferEnd end;
  Clock::time_point started;
  bool announced = false;
  uint32_t phase = QUORL_PHASE_IDLE;
  uint32_t master = 0;
};

}  // namespace quorl::cli
