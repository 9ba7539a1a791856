#pragma once

#include <memory>
#include <span>

#include "platform/machine.h"
#include "protocol/counted_socket.h"
#include "protocol/endpoints.h"

namespace quorl {

/// The receiver's sockets, and how they are set up: one for everything from the sender and for the replies, one that
/// hears the sender's heartbeat, and one for what hosts say to each other.
///
/// After Open, any thread may send, one thread receives on each socket, and any thread may close.
class ReceiverSockets {
 public:
  enum class SetUp {
    Ready,
    Released,  ///< Failed before anything was bound; nothing is left open.
    TearDown,  ///< Failed later; the receiver is to be torn down as a whole.
  };

  static constexpr size_t DATA_BUFFER = 1 << 20;

  /// `dataBuffer`: bytes that the system is asked to hold for the data socket; it may grant less.
  ReceiverSockets(const Machine& machine, const RoomAddress& room, Counters& counters, size_t dataBuffer = DATA_BUFFER)
      : machine(machine), room(room), counters(counters), dataBuffer(dataBuffer) {}

  SetUp Open();

  bool LeaveDataGroup() { return dataSocket && dataSocket->LeaveGroup(room.group.address, room.localInterface); }

  /// Idempotent. Ends a running receive; later sends fail.
  void CloseData();
  void CloseReport();
  void CloseMail();

  /// The socket that acceptances and letters leave from.
  bool OpenMail();

  bool SendToSender(uint32_t senderAddress, std::span<const uint8_t> datagram) {
    return SendCounted(dataSocket, counters, datagram, {senderAddress, room.ReplyPort()});
  }
  Received ReceiveData(DatagramBatch& batch, Duration limit, Event* interrupt) {
    return ReceiveCounted(dataSocket, counters, batch, limit, interrupt);
  }
  bool SendMail(uint32_t senderAddress, std::span<const uint8_t> datagram) {
    return SendCounted(mailSocket, counters, datagram, {senderAddress, room.ReplyPort()});
  }
  Received ReceiveMail(std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
    return ReceiveCounted(mailSocket, counters, buffer, limit, interrupt);
  }
  /// Never waits.
  Received ReceiveReport(std::span<uint8_t> buffer) {
    return ReceiveCounted(reportSocket, counters, buffer, Duration::zero(), nullptr);
  }

 private:
  bool OpenData();
  bool JoinDataGroup();
  bool OpenReport();

  const Machine& machine;
  const RoomAddress room;
  Counters& counters;
  const size_t dataBuffer;
  std::shared_ptr<DatagramSocket> dataSocket;
  std::shared_ptr<DatagramSocket> reportSocket;
  std::shared_ptr<DatagramSocket> mailSocket;
};

}  // namespace quorl
