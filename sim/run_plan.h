#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/time.h"
#include "protocol/profile.h"
#include "sim/link.h"

namespace quorl::sim {

enum class FaultKind {
  ReceiverCrashes,  ///< With a duration: it is started again after it.
  ReceiverFreezes,  ///< For the duration.
  ReceiverStarts,   ///< It was not there at the start.
  LinkHangs,        ///< To and from a receiver, for the duration.
  Partition,        ///< The receivers from this one on are cut off, for the duration.
  DiskFull,         ///< For the duration; the amount is what still fits.
  DiskSlow,         ///< From now on; the amount is microseconds a write.
  FileCallFails,    ///< The n-th of a receiver's file calls from now on.
  NameRefused,      ///< From now on the machine can make no file that is called like the n-th one.
  WindowDestroyed,  ///< The receiver's host window.
  SenderFreezes,    ///< For the duration.
  SenderCrashes,
  SenderStops,     ///< The host calls StopSend.
  SourceVanishes,  ///< The n-th file of the sender.
};

struct PlannedFault {
  FaultKind kind;
  Duration at{};  ///< Since the transfer was started.
  size_t receiver = 0;
  Duration duration{};  ///< 0: for good.
  uint64_t amount = 0;
};

/// What one run of the campaign does. Follows from its number, and from the number of receivers where that is given.
struct RunPlan {
  uint64_t number = 0;
  Profile senderProfile = Profile::Classic;
  Profile receiverProfile = Profile::Classic;
  size_t receivers = 1;
  std::vector<uint64_t> fileSizes;
  size_t emptyDirectories = 0;
  bool hasOldFiles = false;  ///< Receivers hold files of the same names and lengths with other content.
  uint32_t rate = 0;         ///< kbit/s; 0 the fixed pacing.
  LinkOptions common;
  std::optional<LinkOptions> toOne;  ///< Of the way to the first receiver, where it differs.
  std::optional<LinkOptions> toSender;
  std::vector<int64_t> clockDrifts;  ///< Of the receivers in order, in millionths.
  std::vector<PlannedFault> faults;  ///< In the order of time.
  bool hasAttacker = false;
  bool attackerForgesSources = false;  ///< It also sends under the addresses of others.
  Duration attackBegins{};             ///< Since the transfer was started.
  Duration faultsEnd{};                ///< Phase two begins, since the transfer was started.
};

RunPlan DrawPlan(uint64_t number, std::optional<size_t> receivers);

/// Everything that was drawn, for people.
std::string ToText(const RunPlan& plan);

}  // namespace quorl::sim
