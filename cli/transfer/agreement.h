#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "cli/manifest/send_manifest.h"
#include "cli/outcome/common_holdings.h"
#include "cli/show/contents.h"
#include "cli/show/reporter.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/send_plan.h"

namespace quorl::cli {

/// What a transfer has to carry after the receivers have said what they have.
struct Agreed {
  int signal = 0;      ///< That ended it.
  uint8_t rounds = 0;  ///< Catalogues that were sent.
  std::vector<QuorlBlocks> skipped;
  uint64_t skippedBlocks = 0;
  Contents contents;  ///< That are streamed.
  std::vector<bool> isStreamed;
};

/// Shows the receivers of a room the catalogue, and hears what they have of it. What they want to compare is read and
/// shown once more, with digests.
class Agreement {
 public:
  Agreement(const SendPlan& plan, SendManifest& manifest, Inbox& inbox, Reporter& reporter)
      : plan(plan), manifest(manifest), inbox(inbox), reporter(reporter) {}

  /// `only`: whom the transfer is for; empty: all. Throws a Failure when a file cannot be read.
  Agreed Reach(const std::vector<uint32_t>& only);

  /// When nothing is asked and everything is streamed.
  static Agreed Everything(const SendPlan& plan);

 private:
  using Clock = std::chrono::steady_clock;

  struct Answer {
    Holdings holdings;
    bool isWhole = false;
    Clock::time_point heardAt;
  };

  bool Show(uint8_t round, const std::vector<uint32_t>& only);
  bool Hear(uint8_t round);
  void Take(uint8_t round, uint32_t address, const Letter& letter);
  Agreed Conclude() const;
  std::vector<Holdings::Range> Spared(const Holdings& common, size_t file) const;

  const SendPlan& plan;
  SendManifest& manifest;
  Inbox& inbox;
  Reporter& reporter;
  std::map<uint32_t, Answer> answers;
  int signal = 0;
};

}  // namespace quorl::cli
