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
#include "sender/receiver_table.h"

namespace quorl {

/// What all threads of one initialised sender share.
class SenderContext {
 public:
  SenderContext(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile)
      : machine(machine), hostWindow(hostWindow), profile(profile), sockets(this->machine, room, counters) {}

  const Machine machine;
  const QuorlWindow hostWindow;
  const Profile profile;
  Counters counters;
  SenderSockets sockets;

  /// Every receiver so far runs on a platform that takes the fast pacing. Never set again once cleared.
  std::atomic<bool> fastPacing = true;

  /// Guards the table, the transfers' flow control with its orders, and what is said to be guarded by it elsewhere.
  /// Never held across a send, a receive, a sleep or a wait.
  std::mutex mutex;
  ReceiverTable table;

  void Debug(std::string_view line) const { machine.debug.Write(line); }
  void Post(uint32_t message, uintptr_t wParam, intptr_t lParam) const;
  void PostFileName(const std::string& name) const;

  /// Sends to the data group `times` times with a sleep after each, whatever its result. False when every send failed.
  bool SendRepeatedly(std::span<const uint8_t> datagram, int times, Duration pause);
};

/// Announcements go out this often and this far apart, since nothing repairs a lost one.
inline constexpr int ANNOUNCEMENT_COPIES = 3;
inline constexpr Duration ANNOUNCEMENT_PAUSE = std::chrono::milliseconds(10);

}  // namespace quorl
