#pragma once

#include <memory>
#include <vector>

#include "sender/sender_context.h"
#include "sender/transfer.h"

namespace quorl {

/// What one InitServer has set up: the sockets, the table of receivers, the threads that hear them, and the latest
/// transfer. Its threads hold it alive while they run.
class SenderSession : public std::enable_shared_from_this<SenderSession> {
 public:
  SenderSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile);

  /// Opens the sockets. False when that failed or another sender uses the group.
  bool Open();
  /// Starts to hear the receivers and asks who listens; takes about 0.8 s. On failure everything is closed.
  bool Collect();
  /// Stops an earlier transfer and starts a new one. `plan` has no total yet; it is counted here.
  void StartTransfer(TransferPlan plan);
  void StopTransfer() { Latest()->Stop(); }
  /// Closes the sockets and wakes every thread. Idempotent.
  void Close() { Latest()->Close(); }

  uint32_t FillErrInfo(uint32_t* errInfoBuffer);
  uint32_t FillReceivers(uint32_t* addresses, uint32_t capacity);
  SendState State();
  std::vector<NamedCount> ListCounters() const { return context->counters.List(Role::Sender); }

 private:
  std::shared_ptr<Transfer> Latest();
  void Install(std::shared_ptr<Transfer> next);
  bool StartReplyThread(const std::shared_ptr<Transfer>& current);
  void ReplyThread(Transfer& current);
  bool Handle(Transfer& current, std::span<const uint8_t> datagram, Endpoint from);

  const std::shared_ptr<SenderContext> context;

  std::shared_ptr<Transfer>
      transfer;  ///< Never null, before the first StartSend an empty one. Under the context's mutex.
};

}  // namespace quorl
