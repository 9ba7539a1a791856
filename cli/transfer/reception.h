#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/options/options.h"
#include "cli/outcome/delivery.h"
#include "cli/room/venue.h"
#include "cli/show/reporter.h"
#include "cli/show/views.h"
#include "cli/staging/staging.h"
#include "cli/talk/messages.h"
#include "cli/transfer/announcement.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/intake_report.h"

namespace quorl::cli {

/// Waits for one transfer and receives it into a staging directory. The receiver is closed when Run returns.
class Reception {
 public:
  /// `tick` is called a few times a second, and so is `hasMoved` before a transfer: whether to listen somewhere else.
  Reception(const ReceiveOptions& options, Reporter& reporter, Inbox& inbox, const Venue& venue, Staging& staging,
            std::function<void()> tick, std::function<bool()> hasMoved);
  ~Reception();
  Reception(const Reception&) = delete;
  Reception& operator=(const Reception&) = delete;

  /// Begins to listen. False when the sockets cannot be opened.
  bool Open();
  /// Where the next transfer goes, anew: the choice of `staging` has changed.
  void UseNextStaging();

  /// `agreed`: the catalogue of this sender that this receiver has answered; 0: none.
  RoundEnd Run(uint8_t agreed);

  /// What its sender has said of the transfer that arrives now; null while none does, or it is none of ours.
  const About* Arriving() const { return announced && about ? &*about : nullptr; }

  /// Tells the sender what became of it, or that this receiver is at it, waits until it has heard that, and closes the
  /// receiver. Returns the signal that ended the wait.
  int Conclude(const Letter& letter);

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<RoundEnd> Step(const InboxEvent& event);
  static uint64_t FragmentsRefused();
  static uint64_t Overflows();
  RoomOnDisk LookAtDisk(const QuorlReceiveState& state);
  RoundEnd Ended(RoundEnd end);
  std::optional<RoundEnd> Begin();
  void TakeWords();
  void SayOtherTransfer(const QuorlReceiveState& state);

  const ReceiveOptions& options;
  Reporter& reporter;
  Inbox& inbox;
  const Venue& venue;
  Staging& staging;
  Announcement announcement;
  std::function<void()> tick;
  std::function<bool()> hasMoved;
  ReceiveView view;
  bool announced = false;
  uint32_t announcements = 0;
  uint64_t fragmentsBefore = 0;  ///< Refused by this machine before the transfer.
  IntakeReport intake;
  bool otherSaid = false;
  std::vector<std::string> changed;
  std::optional<Clock::time_point> over;
  std::optional<About> next;   ///< What the sender has said of the transfer to come,
  std::optional<About> about;  ///< and of this one.
  std::map<uint32_t, Digest> digests;
  uint8_t agreed = 0;
  Clock::time_point waitingSince;
  Clock::time_point started;
};

}  // namespace quorl::cli
