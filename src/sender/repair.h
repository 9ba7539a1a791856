#pragma once

#include "sender/block_source.h"
#include "sender/orders.h"
#include "sender/pacer.h"

namespace quorl {

class Transfer;

/// Carries out what the flow control has ordered. Used by one thread at a time.
class Repair {
 public:
  Repair(Transfer& transfer, uint32_t rate) : transfer(transfer), pacer(rate), rate(rate) {}

  void CarryOut(const Order& order);

 private:
  void Do(const SendMasterOrder& order);
  void Do(const SendReleaseOrder& order);
  void Do(const ResendOrder& order);
  void Do(const EndOrder& order);
  void Do(const ClientErrorOrder& order);
  void Do(const CloseResendFileOrder& order);

  bool OpenResendFile(uint32_t number);
  bool HoldToRate();

  Transfer& transfer;
  BlockDatagram datagram{CMD_RESEND};
  BlockSource resendFile;       ///< Stays open while successive requests name the same file.
  uint32_t lastResentFile = 0;  ///< The number of that file.
  Pacer pacer;
  const uint32_t rate;
};

}  // namespace quorl
