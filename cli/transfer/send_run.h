#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "cli/manifest/stream_digests.h"
#include "cli/outcome/send_tally.h"
#include "cli/room/host_names.h"
#include "cli/show/contents.h"
#include "cli/show/reporter.h"
#include "cli/show/views.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/rate_control.h"
#include "cli/transfer/source_watch.h"
#include "cli/transfer/verdicts.h"

namespace quorl::cli {

/// What is to be sent, and to whom.
struct SendJob {
  const SourceWatch& watch;
  const std::vector<uint32_t>& only;  ///< Whom it is for; empty: all.
  const Contents& contents;           ///< That are streamed.
  uint64_t before = 0;                ///< Files that travel before those.
  uint64_t skipped = 0;               ///< Blocks that are not streamed.
  StreamDigests* digests = nullptr;   ///< Null when the manifest has travelled first.
  RateControl* rate = nullptr;        ///< Null when the rate is fixed.
};

/// Follows a transfer from its start to its end, and shows how far it is.
class SendRun {
 public:
  SendRun(Inbox& inbox, Reporter& reporter, const HostNames& names, const SendJob& job)
      : inbox(inbox),
        reporter(reporter),
        names(names),
        job(job),
        view(job.contents, job.before, names, Clock::now()),
        verdicts(inbox, reporter, names) {}

  /// Starts what has been selected, and waits until everybody has said what became of it. Throws a Failure when it
  /// cannot even be announced.
  SendEnd Run();

 private:
  using Clock = std::chrono::steady_clock;

  void Follow();
  bool Take(const InboxEvent& event);
  void TakeLastStatus();
  void Stop(int signal);
  void NotePhase();
  void NoteChanges();
  void NoteSilence(const std::vector<QuorlReceiverState>& rows);
  void SayDigests();
  void KeepRate();
  QuorlSendState State() const;
  std::vector<QuorlReceiverState> Rows() const;
  void SayReceiverError(const InboxEvent& event);
  void SayFile(const std::string& name);
  void ShowProgress();

  Inbox& inbox;
  Reporter& reporter;
  const HostNames& names;
  const SendJob job;
  std::set<uint32_t> present;     ///< When it began.
  std::set<std::string> changed;  ///< Files that have been named.
  std::set<uint32_t> silent;      ///< Receivers that have been.
  SendView view;
  Verdicts verdicts;
  SendEnd end;
  Clock::time_point started;
  bool announced = false;
  uint32_t phase = QUORL_PHASE_IDLE;
  uint32_t master = 0;
  uint32_t rateNow = 0;
  Clock::time_point digestsSaid;
};

}  // namespace quorl::cli
