// How a transfer stands, for a host that shows or logs it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

enum class SendPhase {
  Idle,        ///< Not initialised.
  Ready,       ///< Receivers are collected; no transfer has been started.
  Announcing,  ///< Receivers are being told what is coming.
  Streaming,   ///< Every block is on its way once.
  Finishing,   ///< Every block has been sent; receivers count what they miss.
  Repairing,   ///< Receivers ask for what they missed.
  Ended,       ///< Over, stopped or failed.
};

enum class ReceiverState {
  Listening,  ///< Has answered the collection; no transfer yet.
  Waiting,    ///< Takes part in the transfer.
  Master,     ///< Asks for its missing blocks.
  Silent,     ///< Is to ask, and is not heard.
  Complete,   ///< Has said that it misses nothing.
  Failed,     ///< Has reported a failure or has been given up: `status` is not 0.
};

struct ReceiverReport {
  uint32_t address = 0;  ///< In network byte order.
  ReceiverState state = ReceiverState::Listening;
  uint32_t status = 0;                    ///< A QUORL_STATUS_ code, as GetErrInfo gives it.
  std::optional<uint32_t> missingBlocks;  ///< As the receiver counted them at the end of the stream.
  uint32_t capabilities = 0;              ///< What it is able to; 0 of one that has not said.
};

struct SendState {
  SendPhase phase = SendPhase::Idle;
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;
  uint64_t blocksSent = 0;      ///< Blocks of the stream.
  uint64_t blocksSkipped = 0;   ///< Blocks that every receiver has, and that the stream leaves out.
  uint64_t blocksResent = 0;    ///< Blocks sent again for a receiver that missed them.
  std::string currentName;      ///< Relative name of the file of the latest block.
  uint32_t shrunkFiles = 0;     ///< Files that were shorter when read than when announced.
  std::string shrunkName;       ///< Relative name of the first of them.
  uint32_t otherSender = 0;     ///< Found active on the group; network byte order; 0 for none.
  uint64_t answersRefused = 0;  ///< Answers to the collection that found the table full.
  std::vector<ReceiverReport> receivers;
};

}  // namespace quorl
