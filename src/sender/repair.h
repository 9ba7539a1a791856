#pragma once

#include "protocol/datagrams.h"
#include "sender/block_source.h"
#include "sender/orders.h"
#include "sender/pacer.h"
#include "sender/transfer_parts.h"

namespace quorl {

/// Carries out what the flow control has ordered. Used by one thread at a time.
class Repair {
 public:
  explicit Repair(const TransferParts& parts);

  void CarryOut(const Order& order);

  /// Whether the disk has kept the thread that is at it for as long as `limit`. Any thread.
  bool IsStuckFor(Duration limit) const { return resendFile.IsStuckFor(limit); }

 private:
  void Do(const SendMasterOrder& order);
  void Do(const SendReleaseOrder& order);
  void Do(const ResendOrder& order);
  void Do(const EndOrder& order);
  void Do(const ClientErrorOrder& order);
  void Do(const CloseResendFileOrder& order);

  bool OpenResendFile(uint32_t number);
  void FailToName(uint32_t state);
  void FailToResend();
  bool HoldToRate();

  const TransferParts parts;
  BlockDatagram datagram{CMD_RESEND};
  BlockSource resendFile;       ///< Stays open while successive requests name the same file.
  uint32_t lastResentFile = 0;  ///< The number of that file.
  Pacer pacer;
};

}  // namespace quorl
