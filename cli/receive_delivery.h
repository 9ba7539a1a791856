#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/manifest_verify.h"
#include "cli/options.h"
#include "cli/outcome.h"
#include "cli/receive_round.h"
#include "cli/staging.h"
#include "cli/staging_move.h"

namespace quorl::cli {

/// What became of a transfer.
struct ReceiveResult {
  /// 0; or, with a reason in `failure`, what the command ends with.
  Exit code = Exit::Complete;
  Failure failure;
  bool notMeant = false;     ///< It was for others; nothing else is said here.
  bool interrupted = false;  ///< `progress` ended the work; nothing was moved.
  RoundEnd end;
  uint64_t files = 0;       ///< In the transfer, without the manifest.
  bool verified = false;    ///< By a manifest, every file.
  Seal seal = Seal::Plain;  ///< Of that manifest.
  std::vector<Verification::Difference> differences;
  MoveReport moved;
  std::string suggested;  ///< The file that the sender suggests to open, under its final name; empty: none.
};

struct DeliveryRules {
  MoveRules move;
  const ManifestKey* key = nullptr;
  uint32_t ownAddress = 0;
  DigestProgress progress;  ///< Hears of the bytes read while verifying.
};

/// Takes what lies in staging after a transfer that has ended: checks that it is whole and, by its manifest, right;
/// then moves it to its names. All or nothing, with two exceptions that are said: files that this machine could not
/// store, and files that cannot be moved, are left out. Whatever is left in staging is worthless afterwards.
ReceiveResult Deliver(const Staging& staging, const RoundEnd& end, const DeliveryRules& rules);

}  // namespace quorl::cli
