#pragma once

#include <atomic>
#include <memory>

#include "sender/progress.h"
#include "sender/sender_context.h"

namespace quorl {

/// Whether a transfer is over, and how it is brought to its end. Any thread.
class TransferEnd {
 public:
  TransferEnd(SenderContext& context, Progress& progress);

  /// False when the machine could not make the events; no thread may work for the transfer then.
  bool IsReady() const { return wake && replyStop && answered; }

  bool IsStopRequested() const { return stopRequested; }
  bool HasEnded() const { return ended; }
  bool IsOver() const { return ended || stopRequested; }

  // ---- waiting ----

  /// False when the pause was cut short, since the transfer is being stopped or the sender torn down.
  bool PauseUntil(Moment moment);
  bool Pause(Duration pause) { return PauseUntil(context.machine.clock.Now() + pause); }
  bool IsWoken() const { return wake->IsSet(); }
  /// How long a datagram of the transfer waits for room on its way out. Classic waits for as long as it takes.
  SendWait Patience() const;
  /// Set when ReplyThread is to end at once, also out of a receive.
  Event* ReplyStop() const { return replyStop.get(); }
  /// Set when every receiver has answered the end of the stream, or when long pauses end.
  Event* Answered() const { return answered.get(); }

  // ---- ending ----

  /// Every thread of the transfer is to end, and says nothing more to anybody. False when it has been told before.
  bool RequestStop();
  /// Ends every long pause for good.
  void Wake();
  /// The transfer is over, by a decision; with a code other than 0 the receivers are told to stop.
  void EndTransfer(uint32_t code);
  /// Tells the receivers to stop, and the host that they have been told.
  void SendStop(const SendWait& wait);
  /// The same from outside the transfer: whatever its threads are stuck in, it takes three seconds at most.
  void SendStopWithoutThem();
  /// Ends the transfer in spite of threads that are stuck.
  void GiveUp(uint32_t code);
  /// A datagram could not be sent, and there is no going on.
  void FailSend(const char* debugLine);

 private:
  SenderContext& context;
  Progress& progress;
  const std::shared_ptr<Event> wake;
  const std::shared_ptr<Event> replyStop;
  const std::shared_ptr<Event> answered;
  std::atomic<bool> ended = false;
  std::atomic<bool> stopRequested = false;
};

}  // namespace quorl
