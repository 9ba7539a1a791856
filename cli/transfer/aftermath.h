#pragma once

#include <optional>

#include "cli/options/options.h"
#include "cli/show/reporter.h"
#include "cli/staging/staging.h"
#include "cli/transfer/delivery.h"
#include "cli/transfer/follow_up.h"

namespace quorl::cli {

/// What is done with a transfer that is in its place: the file that the sender suggests is opened, the program of
/// --then is run, as far as the options ask for it.
class Aftermath {
 public:
  /// Throws a Failure for a program that cannot be run.
  Aftermath(const ReceiveOptions& receive, Reporter& reporter);

  void Begin(const ReceiveResult& result, const Staging& staging);
  /// Called often: starts what waits, and tells how programs ended.
  void Poll();

  bool IsBusy() const { return followUp && followUp->IsBusy(); }
  bool HasFailed() const { return followUpFailed; }  ///< The program of --then, once at least.

 private:
  void OpenSuggestion(const ReceiveResult& result, const Staging& staging);
  void RunThen(const ReceiveResult& result, const Staging& staging);

  const ReceiveOptions& receive;
  Reporter& reporter;
  std::optional<FollowUp> followUp;
  FollowUp opener{FileOpener(), FollowUp::Check::WhenRun};
  bool followUpFailed = false;
};

}  // namespace quorl::cli
