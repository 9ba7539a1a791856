#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/time.h"
#include "protocol/profile.h"
#include "sim/network/link.h"

namespace quorl::sim {

enum class FaultKind {
  Crash,         ///< With a duration: it is started again after it.
  PowerCut,      ///< The same, and what its disk has not made durable is lost.
  Freeze,        ///< For the duration.
  LateStart,     ///< It is started only now.
  LinkHang,      ///< To and from it, for the duration.
  Partition,     ///< The receivers from this one on are cut off, for the duration.
  DiskFull,      ///< For the duration; the amount is what still fits.
  DiskSlow,      ///< From now on; the amount is microseconds a write.
  DiskNarrow,    ///< From now on; the amount is bytes a second.
  CallFails,     ///< The n-th call of the given name from now on.
  NameRefused,   ///< From now on the machine can make no file that is called like the n-th one.
  WindowCloses,  ///< The host's window is destroyed.
  WindowBlocks,  ///< Its procedure does not return, for the duration.
  WildHost,      ///< Calls anything in any order, for the duration.
  HostStops,     ///< The sender's host calls StopSend.
  StartsAgain,   ///< The host begins anew: a receiver with InitClient; the sender with StartSend, after StopSend when
                 ///< the amount is not 0.
  FileVanishes,  ///< The n-th file of the sender.
};

const char* ToText(FaultKind kind);

/// Nothing stands for the sender.
using Whom = std::optional<size_t>;

/// A machine has one at most.
struct PlannedFault {
  FaultKind kind;
  Duration at{};  ///< Since the transfer was started, or was to be.
  Whom whom{};
  Duration duration{};  ///< 0: for good.
  uint64_t amount = 0;
  std::string call{};
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
  std::optional<Uplink::Options> uplink;  ///< Of the sender.
  std::vector<int64_t> clockDrifts;       ///< Of the receivers in order and then the sender, in millionths.
  std::vector<size_t> receiveBuffers;     ///< What they get at most, likewise.
  std::string autoOpenName{};
  std::vector<PlannedFault> faults;  ///< In the order of time.
  bool hasAttacker = false;
  bool attackerForgesSources = false;  ///< It also sends under the addresses of others.
  Duration attackBegins{};             ///< Since the transfer was started.
  Duration faultsEnd{};                ///< Phase two begins, since the transfer was started.
  size_t transfers = 1;                ///< One after the other; the later ones without faults, but with these links.
  bool keepsSession = false;           ///< Of the sender, from one transfer to the next;
  bool keepsListening = false;         ///< and a receiver begins anew only when it has ended.
  bool symbols = false;                ///< Everybody knows symbols,
  std::optional<size_t> blocksOnly{};  ///< but for this receiver.
};

RunPlan DrawPlan(uint64_t number, std::optional<size_t> receivers);

/// Everything that was drawn, for people.
std::string ToText(const RunPlan& plan);

}  // namespace quorl::sim
