#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/datagrams.h"

namespace quorl {

enum class ReceivePhase {
  Idle,       ///< Nothing announced yet.
  Receiving,  ///< Announced; the stream is running.
  Repairing,  ///< The stream is over; missing blocks come again.
  Complete,   ///< Over: every block of every announced file is on the disk, and the host is being told.
  Failed,     ///< Over, or without hope: something is missing and stays so; `firstFailure` says why.
  Stopped,    ///< The sender stopped the transfer.
};

/// Where a receiver stands. Counts are of the latest announced transfer.
struct ReceiveState {
  ReceivePhase phase = ReceivePhase::Idle;
  bool complete = false;        ///< A transfer was announced, and every block of every file of it has been stored.
  uint32_t files = 0;           ///< Files announced.
  uint32_t failedFiles = 0;     ///< Files that could not be opened or written; nothing of them is asked for any more.
  uint64_t blocksExpected = 0;  ///< Blocks announced.
  uint64_t blocksStored = 0;    ///< Blocks written to the disk.
  uint64_t blocksMissing = 0;   ///< Blocks announced and not on the disk; none when it is complete.
  uint64_t bytesStored = 0;     ///< Contents of files written to the disk.
  uint64_t blocksCame = 0;      ///< Robust: of the stream,
  uint64_t blocksLost = 0;      ///< and those that it has jumped over.
  bool isMaster = false;        ///< It is this receiver's turn to ask for what is missing.
  uint32_t firstFailure = 0;    ///< The first QUORL_STATUS_ code other than 0 that the host was told; 0 for none.
  uint32_t senderAddress = 0;   ///< Where the latest datagram came from; network byte order; 0 for nowhere yet.
  uint32_t otherSender = 0;     ///< Heard with a transfer that this receiver takes no part in; 0 for none of late.
  uint32_t senderCapabilities = 0;
  std::optional<UnderWay> underWay;  ///< What that sender has said of it.
  std::string currentName;           ///< The file of the latest block, as its sender named it.
  std::string askedTarget;           ///< The target that the sender names in words; empty: none, or a special folder.
  std::string targetDir;  ///< The directory that everything is placed under, "C:\..."; empty before a transfer.
};

}  // namespace quorl
