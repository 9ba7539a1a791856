#pragma once

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "files/file_lists.h"
#include "protocol/datagrams.h"
#include "sender/announcements.h"
#include "sender/master_flow.h"
#include "sender/order_queue.h"
#include "sender/repair.h"
#include "sender/send_state.h"
#include "sender/sender_context.h"

namespace quorl {

/// What a transfer carries, and how. Fixed for the whole transfer.
struct TransferPlan {
  std::shared_ptr<const FileLists> lists{};
  BlockCount blocks{};
  std::string autoOpenName{};
  uint32_t targetFolder = 0;
  std::string targetPath{};
  uint32_t rate = 0;  ///< kbit/s, or 0.
};

/// One transfer, from its announcement to its end: the threads that carry it, the state of its repair, its stop flags.
/// Nothing of it is shared with a later transfer, so that a thread that is slow to end can disturb none. Every thread
/// holds the transfer alive while it runs.
class Transfer : public std::enable_shared_from_this<Transfer> {
 public:
  Transfer(std::shared_ptr<SenderContext> context, TransferPlan plan);

  // ---- the host's thread ----

  /// Announces the transfer and starts its threads. Takes 60 to 90 ms.
  void Start();
  /// Tells the receivers that the transfer is over and ends every thread.
  void Stop();
  /// Ends the transfer's threads and waits for them, without telling anybody.
  void Abandon();
  /// Closes all sockets and wakes whoever is in a long pause.
  void Close();

  // ---- ReplyThread, which the session starts ----

  /// Takes over a thread that works for this transfer. False when there is none.
  bool Adopt(std::shared_ptr<Thread> thread);
  /// Ends ReplyThread at once, also out of a receive; null when the machine could not make it.
  Event* ReplyStop() const { return replyStop.get(); }

  /// Whether nothing from the receivers is to be read any more.
  bool IsOver() const { return ended || stopRequested; }
  /// Decides about a datagram; to be called with the context's mutex held, and followed by CarryOutOrders without it.
  /// False: the calling thread ends.
  bool TakeReply(const FromReceiver& reply, Endpoint from);
  void CarryOutOrders() { orders.CarryOut(); }

  // ---- whoever carries the transfer out ----

  SenderContext& Context() { return *context; }
  const TransferPlan& Plan() const { return plan; }
  bool IsStopRequested() const { return stopRequested; }
  bool HasEnded() const { return ended; }

  /// False when the pause was cut short, since the transfer is being stopped or the sender torn down.
  bool PauseUntil(Moment moment);
  /// Has the transfer ended with `code`, after what has been decided before.
  void OrderEnd(uint32_t code);
  /// Ends it now; for who carries out orders.
  void EndTransfer(uint32_t code);
  void SendStop();
  void CloseSockets();
  /// A block or a heartbeat could not be sent: the host is told, and there is no going on.
  void FailSend(const char* debugLine);

  void NoteBlock(uint32_t file, bool resent);
  void NoteShrunkFile(uint32_t file);

  /// To be called with the context's mutex held.
  SendState State() const;

 private:
  void StartThread(const char* name, void (Transfer::*run)(), const char* failure);
  bool Announce();

  void SendThread();
  void SendFinish();
  /// Gives the receivers time to answer the end of the stream. False as for PauseUntil.
  bool WaitForAnswers();
  /// Names the first master and starts the watchdog.
  void HandOver();
  void MasterWatchThread();
  void ReportThread();

  bool Pause(Duration pause) { return PauseUntil(context->machine.clock.Now() + pause); }
  void Wake();
  void Advance(SendPhase from, SendPhase to) { phase.compare_exchange_strong(from, to); }
  bool TakeParsed(const FromReceiver& reply, Endpoint from, Orders& decided);
  ReceiverReport ReportOn(int32_t row) const;

  const std::shared_ptr<SenderContext> context;
  const TransferPlan plan;
  const std::shared_ptr<Event> wake;  ///< Set for good: long pauses end.
  const std::shared_ptr<Event> replyStop;
  const std::shared_ptr<Event> answered;  ///< Every receiver has answered the end of the stream, or `wake` is set.

  std::atomic<bool> ended = false;
  std::atomic<bool> stopRequested = false;
  std::atomic<bool> announced = false;  ///< Receivers may know of the transfer.
  std::atomic<SendPhase> phase = SendPhase::Ready;

  // Guarded by the context's mutex.
  std::unique_ptr<MasterFlow> flow;
  OrderQueue orders;
  std::vector<std::shared_ptr<Thread>> threads;
  std::set<uint32_t> shrunkFiles;
  uint32_t firstShrunkFile = 0;

  Repair repair;  ///< Used by whoever carries out orders.

  std::atomic<uint32_t> currentFile = 0;
  std::atomic<uint64_t> blocksSent = 0;
  std::atomic<uint64_t> blocksResent = 0;
};

}  // namespace quorl
