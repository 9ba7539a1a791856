#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/manifest/verify.h"
#include "cli/options/options.h"
#include "cli/outcome/delivery.h"
#include "cli/staging/move.h"
#include "cli/staging/staging.h"
#include "cli/transfer/pour.h"

namespace quorl::cli {

/// What became of a transfer.
struct ReceiveResult {
  std::optional<Failure> failure;
  bool notMeant = false;     ///< It was for others; nothing else is said here.
  bool interrupted = false;  ///< `progress` ended the work; nothing was moved.
  RoundEnd end;
  uint64_t files = 0;       ///< In the transfer, without the manifest.
  bool verified = false;    ///< By a manifest, every file.
  Seal seal = Seal::Plain;  ///< Of that manifest.
  std::vector<Difference> differences;
  MoveReport moved;
  uint64_t inPlace = 0;    ///< Files that stood in their places before, and were left alone.
  uint64_t filesKept = 0;  ///< Of a broken transfer, in whole or in part,
  uint64_t bytesKept = 0;  ///< and how much of them.
  std::string suggested;   ///< The file that the sender suggests to open, under its final name; empty: none.

  /// What the command ends with.
  Exit Code() const { return failure ? failure->code : Exit::Complete; }
};

struct DeliveryRules {
  MoveRules move;
  const ManifestKey* key = nullptr;
  const Manifest* catalogue = nullptr;  ///< Of what was to come; null: none is known.
  InPlace inPlace;
  ArrivingDigests* arriving = nullptr;  ///< Of what has come; null: all of it is read.
  bool allOrNothing = false;
  bool permissions = true;  ///< Those of the manifest are given to the files.
  Sink* sink = nullptr;     ///< Where one file goes; null: everything goes to its names.
  uint32_t ownAddress = 0;
  DigestProgress progress;  ///< Hears of the bytes read while verifying.
};

/// Takes what lies in staging after a transfer that has ended: checks that it is whole and, by its manifest, right;
/// then moves it to its names. All or nothing, with two exceptions that are said: files that this machine could not
/// store, and files that cannot be moved, are left out. Whatever is left in staging is worthless afterwards.
ReceiveResult Deliver(Staging& staging, const RoundEnd& end, const DeliveryRules& rules);

}  // namespace quorl::cli
