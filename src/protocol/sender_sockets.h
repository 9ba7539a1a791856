#pragma once

#include <quorl/quorl.h>

#include <atomic>
#include <memory>
#include <span>

#include "platform/machine.h"
#include "protocol/counted_socket.h"
#include "protocol/endpoints.h"

namespace quorl {

/// The sender's sockets, and how they are set up: one to send, one that hears the receivers, one for the heartbeat, and
/// for a moment one that listens whether another sender uses the group.
///
/// After Open, any thread may send, one thread receives, and any thread may close.
class SenderSockets {
 public:
  SenderSockets(const Machine& machine, const RoomAddress& room, Counters& counters)
      : machine(machine), room(room), counters(counters) {}

  /// Opens everything and looks for another sender for 100 ms. On failure everything is closed again, but when another
  /// sender was found, `hostWindow` is told and the send and reply sockets stay open until Close.
  bool Open(QuorlWindow hostWindow);

  /// Idempotent. Ends a running ReceiveReply; later sends fail.
  void Close();

  bool SendToGroup(std::span<const uint8_t> datagram) {
    return SendCounted(sendSocket, counters, datagram, room.group);
  }
  bool SendTo(Endpoint receiver, std::span<const uint8_t> datagram) {
    return SendCounted(sendSocket, counters, datagram, receiver);
  }
  bool SendReport(std::span<const uint8_t> datagram) {
    return SendCounted(reportSocket, counters, datagram, REPORT_GROUP);
  }
  Received ReceiveReply(std::span<uint8_t> buffer, Event* interrupt) {
    return ReceiveCounted(replySocket, counters, buffer, FOREVER, interrupt);
  }

 private:
  enum class Probe { Free, Busy, Failed };

  bool OpenSendAndReply();
  Probe LookForAnotherSender();
  Probe ListenOnGroup(DatagramSocket& probe);
  bool OpenReport();

  const Machine& machine;
  const RoomAddress room;
  Counters& counters;
  std::atomic<bool> holdsNetwork = false;  // the socket library is to be given back
  std::shared_ptr<DatagramSocket> sendSocket;
  std::shared_ptr<DatagramSocket> replySocket;
  std::shared_ptr<DatagramSocket> reportSocket;
};

}  // namespace quorl
