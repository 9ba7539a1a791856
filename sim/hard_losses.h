#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/time.h"
#include "protocol/profile.h"

namespace quorl::sim {

/// The losses that repetition within a datagram's own copies cannot cure.
enum class HardLoss {
  None,
  EveryFinish,  ///< Every CMD_FINISH of the sender, at the first of two receivers.
  EveryTask,    ///< Every CMD_TASK, at the first of two receivers.
  EveryAnswer,  ///< Every CMD_ANSWER of both receivers, of which the first lacks nothing.
};

std::string ToText(HardLoss loss);

/// What becomes of a receiver.
struct HardLossEnd {
  bool whole = false;           ///< It has every byte.
  bool toldComplete = false;    ///< Its host was told that it is complete.
  uint32_t hostStatus = 0;      ///< The last other status that its host was told.
  uint32_t statusAtSender = 0;  ///< What the sender reports for it; 0 for nothing.
};

struct HardLossRun {
  std::vector<HardLossEnd> receivers;
  uint32_t senderStatus = 0;  ///< The last status that the sender's host was told.
  Duration took{};            ///< Until the sender was through.
  uint64_t resends = 0;       ///< Repair datagrams.
};

/// Sends 60 blocks in three files to two receivers; the first also misses one block, the second another.
HardLossRun RunHardLoss(HardLoss loss, Profile profile);

/// Every hard loss in both profiles, as a table.
std::string HardLossTable();

}  // namespace quorl::sim
