#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/manifest/send_manifest.h"
#include "cli/options/options.h"
#include "cli/outcome/send_tally.h"
#include "cli/room/listeners.h"
#include "cli/room/venue.h"
#include "cli/show/reporter.h"
#include "cli/transfer/agreement.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/rate_control.h"
#include "cli/transfer/send_plan.h"
#include "cli/transfer/source_watch.h"

namespace quorl::cli {

/// One selection sent once, and again to those that failed: what has to travel is agreed on with the receivers, the
/// library gets its orders, and the run is followed to its end.
class Attempts {
 public:
  struct Where {
    Listeners& listeners;
    const Venue& venue;
    Inbox& inbox;
    Reporter& reporter;
  };
  /// `look` looks through the selection once more. Throws a Failure when the key cannot be read.
  Attempts(const SendPlan& plan, const SendOptions& send, const std::string& keyFile, const Where& where,
           std::function<SendPlan()> look);

  /// Whether everything is read before the first block leaves, for the sake of those who take the manifest first.
  bool ReadsFirst() const;
  /// Reads it. The signal that ended it, or 0.
  int ReadAll();

  /// Sends to `only`, empty: to all. Throws a Failure.
  void Run(const std::vector<uint32_t>& only, SendTally& tally);

  /// The next time at half the rate, but for one that adapts itself.
  void SlowDown();

  uint64_t Streamed() const { return streamed; }  ///< Bytes of contents, the last time.
  /// kbit/s, of the last time; 0 when it has been found while sending, or is the fixed pacing.
  uint32_t FixedRate() const { return libraryFindsRate || rateControl ? 0 : rate; }

 private:
  bool IsWorthAgreeing() const;
  void RequireLinksTaken(const std::vector<uint32_t>& only);
  void CheckSelection();
  void SetRate();
  std::string RateText() const;
  void SayWhoTakesNoSymbols();
  void SayStart(const Agreed& agreed, const std::vector<uint32_t>& only);
  /// The manifest travels first or last. False when something of the selection has a name that cannot travel.
  bool Select(const std::vector<uint32_t>& only, bool manifestLast);

  const SendPlan& plan;
  const SendOptions& send;
  Listeners& listeners;
  const Venue& venue;
  Inbox& inbox;
  Reporter& reporter;
  std::function<SendPlan()> look;
  std::optional<SendManifest> manifest;
  std::shared_ptr<const Exclusion> exclusion;  ///< In force since the selection was looked through once more.
  SourceWatch watch{plan};
  uint64_t streamed = 0;
  uint32_t rate = send.rate;
  bool saidWhoTakesNoSymbols = false;
  bool libraryFindsRate = false;
  std::optional<RateControl> rateControl;  ///< It goes on from one time to the next.
};

}  // namespace quorl::cli
