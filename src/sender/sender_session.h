#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "sender/expected_receivers.h"
#include "sender/sender_context.h"
#include "sender/transfer.h"

namespace quorl {

/// What one InitServer has set up: the sockets, the table of receivers, the threads that hear them, and the latest
/// transfer. Its threads hold it alive while they run.
class SenderSession : public std::enable_shared_from_this<SenderSession> {
 public:
  SenderSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile,
                uint32_t capabilities);

  /// Opens the sockets. False when that failed or another sender uses the group.
  bool Open();
  /// Starts to hear the receivers and asks who listens; takes about 0.8 s, in the robust profile only until all of
  /// `expected` have answered. On failure everything is closed.
  bool Collect(ExpectedReceivers expected);
  /// Stops an earlier transfer and starts a new one.
  void StartTransfer(TransferPlan plan);
  /// Another rate for the transfer that is under way.
  void ChangeRate(uint32_t kilobitsPerSecond);
  void StopTransfer() { Latest()->Stop(); }
  /// Closes the sockets and wakes every thread. Idempotent.
  void Close();

  /// False when nobody could be told.
  bool SendWord(std::span<const uint8_t> text);
  std::optional<Correspondence::Received> TakeLetter();

  uint32_t FillErrInfo(uint32_t* errInfoBuffer);
  uint32_t FillReceivers(uint32_t* addresses, uint32_t capacity);
  SendState State();
  std::vector<NamedCount> ListCounters() const { return context->counters.List(Role::Sender); }

 private:
  std::shared_ptr<Transfer> Latest();
  bool Ask();
  bool WaitForLastAnswers();
  bool WaitForAnswers(Duration pause);
  void NoteAnswer();
  bool StartReplyThread(const std::shared_ptr<Transfer>& current);
  void HearReceivers(Transfer& current);
  void HearLetters(Transfer& current);
  bool Handle(Transfer& current, std::span<const uint8_t> datagram, Endpoint from);
  bool TakeLetter(Transfer& current, const FromReceiver& reply, Endpoint from);

  const std::shared_ptr<SenderContext> context;

  // Guarded by the context's mutex.
  std::shared_ptr<Transfer> transfer;  ///< Never null, before the first StartSend an empty one.
  bool closed = false;
  ExpectedReceivers expected;
  std::shared_ptr<Event> allAreIn;  ///< Null when nobody in particular is expected.
};

}  // namespace quorl
