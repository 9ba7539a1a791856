// The master's flow control. After the stream one receiver at a time, the master, asks for the blocks it lacks, one
// request at a time; every request is served by multicast, so that all others that lack the block get it too.
//
// Two sets of rules exist, one a profile. Both are decisions only: no thread, socket, clock or lock. Two threads drive
// them, the one that hears the receivers and the one that watches the master's progress; the caller makes sure that
// one decision is made at a time and that its orders are carried out in the order decided.
#pragma once

#include <cstdint>
#include <memory>

#include "protocol/profile.h"
#include "sender/orders.h"
#include "sender/receiver_table.h"

namespace quorl {

/// What the watchdog's thread does next.
enum class WatchNext {
  PauseInCycle,  ///< Pause, then go on within the cycle, whatever has happened to the transfer meanwhile.
  Pause,         ///< Pause; then the next cycle, if the transfer is not over.
  AtOnce,        ///< The next cycle at once, if the transfer is not over.
  End,           ///< No further cycle.
};

class MasterFlow {
 public:
  virtual ~MasterFlow() = default;

  // In this order in every transfer. Before the first one the receivers may be heard already.

  virtual void BeginTransfer(uint32_t fileCount) = 0;
  virtual void BlocksCounted(uint32_t totalBlocks) = 0;
  /// Every block is out; from now on receivers answer what they lack.
  virtual void StreamSent() = 0;

  // Each appends to `orders`. False: the transfer is over for the calling thread.

  /// The repair begins: names the first master. False: no watchdog is needed.
  virtual bool HandOver(Orders& orders) = 0;
  virtual bool TakeAck(const Ack& ack, Endpoint from, Orders& orders) = 0;
  virtual bool TakeFinish(uint16_t status, Endpoint from, Orders& orders) = 0;
  virtual bool TakeAnswer(uint32_t missing, Endpoint from, Orders& orders) = 0;

  /// To be called after every datagram that carries the magic, unless its decision was false.
  virtual void DatagramHandled() = 0;

  /// One step of the watchdog, about every 500 ms.
  virtual WatchNext Watch(Orders& orders) = 0;

  /// Whether the master has not been heard for a while.
  virtual bool IsMasterSilent() const { return false; }

  /// Row of the current master; nothing when there is none.
  virtual std::optional<int32_t> CurrentMaster() const = 0;
};

/// `table` outlives the result.
std::unique_ptr<MasterFlow> MakeMasterFlow(Profile profile, ReceiverTable& table);

}  // namespace quorl
