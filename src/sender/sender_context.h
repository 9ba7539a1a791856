#pragma once

#include <quorl/quorl.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "platform/machine.h"
#include "protocol/counters.h"
#include "protocol/endpoints.h"
#include "protocol/profile.h"
#include "protocol/sender_sockets.h"
#include "sender/correspondence.h"
#include "sender/master_flow.h"
#include "sender/receiver_table.h"

namespace quorl {

/// What all threads of one initialised sender share.
class SenderContext {
 public:
  SenderContext(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile,
                uint32_t capabilities = 0)
      : machine(machine),
        hostWindow(hostWindow),
        profile(profile),
        sockets(this->machine, room, counters),
        table(profile == Profile::Robust && (capabilities & KNOWS_SYMBOLS) != 0 ? size_t{QUORL_MOST_RECEIVERS}
                                                                                : size_t{QUORL_RECEIVERS}),
        correspondence(static_cast<uint32_t>(machine.clock.Now().count()),
                       profile == Profile::Robust ? capabilities : 0) {
    BeginTransfer(0);
  }

  const Machine machine;
  const QuorlWindow hostWindow;
  const Profile profile;
  Counters counters;
  SenderSockets sockets;

  /// Every receiver so far runs on a platform that takes the fast pacing. Never set again once cleared.
  std::atomic<bool> fastPacing = true;

  std::atomic<uint32_t> rate = 0;  ///< Of the latest transfer, kbit/s, as far as the host has changed it since.

  std::atomic<uint32_t> shownFile = 0;  ///< The one whose name the host was told last; 0 for none.

  /// Guards the table, the flow control with the transfers' orders, and what is said to be guarded by it elsewhere.
  /// Never held across a send, a receive, a sleep or a wait.
  std::mutex mutex;
  ReceiverTable table;
  std::unique_ptr<MasterFlow> flow;
  Correspondence correspondence;

  /// The robust profile begins each transfer anew. The classic one remembers from one to the next who is master, what
  /// was asked for last, and what has become of the receivers. To be called with the mutex held.
  void BeginTransfer(uint32_t fileCount);

  void Debug(std::string_view line) const { machine.debug.Write(line); }
  void Post(uint32_t message, uintptr_t wParam, intptr_t lParam) const;
  /// Tells the host the name of the file to which the next block belongs; in the robust profile when it is another one.
  void PostFileName(uint32_t file, const std::string& name);

  /// Sends to the data group `times` times with a sleep after each, in the robust profile between two, whatever its
  /// result. False when every send failed.
  bool SendRepeatedly(std::span<const uint8_t> datagram, int times, Duration pause, const SendWait& wait);
};

/// Announcements go out this often and this far apart, since nothing repairs a lost one.
inline constexpr int ANNOUNCEMENT_COPIES = 3;
inline constexpr Duration ANNOUNCEMENT_PAUSE = std::chrono::milliseconds(10);

}  // namespace quorl
