#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "cli/show/reporter.h"
#include "cli/staging/staging.h"
#include "cli/talk/messages.h"

namespace quorl::cli {

/// A transfer that arrives, as it is told to people: how much it is, once that is known, and what of it fails.
class Announcement {
 public:
  Announcement(Reporter& reporter, const Staging& staging) : reporter(reporter), staging(staging) {}

  /// The next one, of which the sender has said this.
  void Begin(const std::optional<About>& transfer);

  void SayOnceKnown(const QuorlReceiveState& state);
  void Say(const QuorlReceiveState& state);
  bool IsSaid() const { return said; }

  /// Of contents in all; 0: not known yet.
  uint64_t Bytes(const QuorlReceiveState& state);

  void NoteFailedFile(uint32_t status);
  void SayFailedFiles() const;

 private:
  using Clock = std::chrono::steady_clock;

  bool IsKnown(const QuorlReceiveState& state);
  void LookForSizes(const QuorlReceiveState& state);

  Reporter& reporter;
  const Staging& staging;
  std::optional<About> about;
  uint64_t bytes = 0;
  bool said = false;
  std::map<uint32_t, uint64_t> failedFiles;  ///< How many, by status.
  Clock::time_point started;
};

}  // namespace quorl::cli
