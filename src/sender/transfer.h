#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "protocol/datagrams.h"
#include "sender/coded_stream.h"
#include "sender/data_stream.h"
#include "sender/order_queue.h"
#include "sender/progress.h"
#include "sender/repair.h"
#include "sender/send_state.h"
#include "sender/sender_context.h"
#include "sender/transfer_end.h"
#include "sender/transfer_plan.h"

namespace quorl {

/// One transfer, from its announcement to its end: its threads, and what each of them does when. Nothing of it is
/// shared with a later transfer, so that a thread that is slow to end can disturb none. Every thread holds the transfer
/// alive while it runs.
class Transfer : public std::enable_shared_from_this<Transfer> {
 public:
  Transfer(std::shared_ptr<SenderContext> context, TransferPlan plan);

  // ---- the host's threads ----

  /// Takes the place of `earlier`, whose threads decide nothing any more from then on. To be called with the context's
  /// mutex held.
  void Supersede(Transfer& earlier);
  /// Announces the transfer and starts its threads. Takes 60 to 90 ms.
  void Start();
  /// Tells the receivers that the transfer is over and ends every thread. Takes 60 ms, at worst three seconds.
  void Stop();
  /// Ends the transfer's threads and waits for them, without telling anybody.
  void Abandon();
  /// Closes all sockets and wakes whoever is in a long pause.
  void Close();

  // ---- ReplyThread, which the session starts ----

  /// Takes over a thread that works for this transfer. False when there is none.
  bool Adopt(std::shared_ptr<Thread> thread);
  /// False when the machine could not make what its threads need.
  bool IsReady() const { return end.IsReady(); }
  /// Set when ReplyThread is to end at once, also out of a receive.
  Event* ReplyStop() const { return end.ReplyStop(); }

  /// Whether nothing from the receivers is to be read any more.
  bool IsOver() const { return end.IsOver(); }
  /// Decides about a datagram; to be called with the context's mutex held, and followed by CarryOutOrders without it.
  /// False: the calling thread ends.
  bool TakeReply(const FromReceiver& reply, Endpoint from);
  void CarryOutOrders() { orders.CarryOut(); }
  /// No request will come any more.
  void ReplyThreadEnds();

  /// For a receiver that takes no part in it. To be called with the context's mutex held.
  UnderWay Describe() const;
  /// Announced, and not over.
  bool IsUnderWay() const { return announced && !end.IsOver(); }

  /// To be called with the context's mutex held.
  SendState State() const;

 private:
  void StartThread(const char* name, void (Transfer::*run)(), const char* failure);
  /// False when the transfer is over before it has begun.
  bool Announce();
  bool FailToAnnounce(const char* debugLine);
  bool FailToCount();

  void SendThread();
  bool RunStream();
  bool PrepareSymbols();
  bool SendFinish();
  /// Gives the receivers time to answer the end of the stream. False when the transfer is being stopped meanwhile.
  bool WaitForAnswers();
  /// Names the first master and starts the watchdog.
  void HandOver();
  void MasterWatchThread();
  void ReportThread();

  bool IsRobust() const { return context->profile == Profile::Robust; }
  bool TakeParsed(const FromReceiver& reply, Endpoint from, Orders& decided);
  ReceiverReport ReportOn(int32_t row) const;

  const std::shared_ptr<SenderContext> context;
  const TransferPlan plan;
  Progress progress;
  TransferEnd end;
  std::atomic<bool> announced = false;  ///< Receivers may know of the transfer.

  DataStream stream;  ///< Used by SendThread.
  CodedStream coded;  ///< The same; instead of it where all receivers know symbols.
  Repair repair;      ///< Used by whoever carries out orders.

  // Guarded by the context's mutex.
  OrderQueue orders;
  std::vector<std::shared_ptr<Thread>> threads;
};

}  // namespace quorl
