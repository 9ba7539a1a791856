#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "protocol/datagrams.h"
#include "receiver/receiver_session.h"
#include "receiver/request_timer.h"
#include "receiver/sequence_position.h"

namespace quorl {

/// One run of the receive loop: reads every datagram of the data socket and acts on the sender's commands. Lives on
/// ReceiveThread and is used by it alone. It never waits for the disk, except, for a moment, before it says that
/// nothing is missing.
class ReceiveLoop {
 public:
  explicit ReceiveLoop(ReceiverSession& session) : session(session) {}

  /// Returns when the transfer is over, when a failure leaves nothing to do, or on teardown.
  void Run();

 private:
  enum class Next { Continue, End };

  Next ReceiveOne();
  Received Receive();
  Next Dispatch(const FromSender& message);

  // One handler a command (receive_loop.cpp: the transfer, receive_repair.cpp: the repair).
  Next Handle(Reject reason);
  Next Drop(Count why);
  Next Handle(const Collect&);
  Next Handle(const Master& master);
  Next Handle(const Release& release);
  Next Handle(const Task& task);
  Next Handle(const Resend& resend);
  Next Handle(const Finish&);
  Next Handle(const Stop&);
  Next Handle(const EmptyDir& emptyDir);
  Next Handle(const Data& data);
  Next Handle(const ServerOs& serverOs);
  Next Handle(const AutoOpenName& autoOpenName);

  bool IsCopyOfAccepted(const Task& task) const;
  std::string TargetDirFor(const Task& task);
  bool BelongsToTransfer(const BlockHead& head);
  bool HasRoomFor(std::span<const uint8_t> bytes);
  bool NamesAnnouncedFile(const BlockHead& head) const;
  bool StaysUntouched() const;
  void Queue(const BlockHead& head, std::span<const uint8_t> bytes, bool firstSending);
  std::string Convert(const NameField& field) const;

  Next SendAnswer();
  void ProcessLost(const BlockHead& head);
  bool TakeResent(const Resend& resend);
  bool LacksNothing();
  bool EnterUnstored();
  void RequestNext();
  void ClientSendAck();
  Next EndFinished();
  Next RefuseMastership();

  ReceiverSession& session;
  std::array<uint8_t, MAX_EMPTY_DIR_DATAGRAM> buffer{};
  SequencePosition position;
  TransferPtr transfer = session.CurrentTransfer();
  std::optional<Moment> acceptedAt;  // of the announcement whose copies change nothing; none after a stop
  bool firstAnnouncement = true;
  bool takesPart = true;
  size_t emptyDirs = 0;  // asked for since the announcement
  uint32_t isMaster = 0;
  LostBlock wanted{1, 0};  // what the next CMD_ACK names
  RequestTimer requestTimer;
};

}  // namespace quorl
