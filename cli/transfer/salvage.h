#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <span>

#include "cli/manifest/verify.h"
#include "cli/staging/move.h"
#include "cli/staging/staging.h"

namespace quorl::cli {

/// What a transfer that broke has left behind.
struct Salvaged {
  MoveReport moved;  ///< Whole files that are what was sent, in their places.
  Kept kept;         ///< The rest, for the next sending of the same.
};

/// Writes down now and then how far a transfer is, so that a receiver that is killed can be gone on from.
class Recorder {
 public:
  /// Called often while it arrives.
  void Note(const Staging& staging, const Manifest& catalogue, const InPlace& inPlace);

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point next;
};

/// Saves from staging what is on the disk of the files of `catalogue`, by `stored`. `digests`: as far as they are
/// known, by the numbers of the files in the transfer.
Salvaged Salvage(Staging& staging, const Manifest& catalogue, const InPlace& inPlace,
                 std::span<const QuorlBlocks> stored, const std::map<uint32_t, Digest>& digests,
                 const MoveRules& rules);

}  // namespace quorl::cli
