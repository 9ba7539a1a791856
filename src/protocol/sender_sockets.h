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

  /// Idempotent. Ends whoever sends or receives at this moment; later sends fail.
  void Close();

  /// The sender that Open has found active on the group; 0 for none.
  uint32_t OtherSender() const { return otherSender; }

  bool SendToGroup(std::span<const uint8_t> datagram, const SendWait& wait) {
    return SendCounted(sendSocket, counters, datagram, room.group, wait);
  }
  bool SendToGroup(std::span<const std::span<const uint8_t>> datagrams, const SendWait& wait) {
    return SendCounted(sendSocket, counters, datagrams, room.group, wait);
  }
  bool SendTo(Endpoint receiver, std::span<const uint8_t> datagram, const SendWait& wait) {
    return SendCounted(sendSocket, counters, datagram, receiver, wait);
  }
  bool SendReport(std::span<const uint8_t> datagram, const SendWait& wait) {
    return SendCounted(reportSocket, counters, datagram, REPORT_GROUP, wait);
  }
  /// From the port that receivers write to, which their firewalls expect an answer from.
  bool Reply(Endpoint receiver, std::span<const uint8_t> datagram) {
    return SendCounted(replySocket, counters, datagram, receiver, {Duration::zero(), nullptr});
  }
  Received ReceiveReply(std::span<uint8_t> buffer, Event* interrupt) {
    return ReceiveCounted(replySocket, counters, buffer, FOREVER, interrupt);
  }

 private:
  enum class Probe { Free, Busy, Failed };

  bool OpenSendAndReply();
  Probe LookForAnotherSender();
  Probe ListenOnGroup(DatagramSocket& probe, Event& interrupt);
  bool OpenReport();

  const Machine& machine;
  const RoomAddress room;
  Counters& counters;
  std::atomic<uint32_t> otherSender = 0;
  std::atomic<bool> holdsNetwork = false;  // the socket library is to be given back
  std::shared_ptr<DatagramSocket> sendSocket;
  std::shared_ptr<DatagramSocket> replySocket;
  std::shared_ptr<DatagramSocket> reportSocket;
};

}  // namespace quorl
