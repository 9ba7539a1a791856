#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/threads.h"
#include "platform/time.h"

namespace quorl {

/// An IPv4 address in network byte order, as inet_addr(3) yields it, and a port in host byte order.
struct Endpoint {
  uint32_t address = 0;
  uint16_t port = 0;

  friend bool operator==(const Endpoint&, const Endpoint&) = default;
};

struct Received {
  enum class Outcome {
    Datagram,
    TimedOut,     ///< Nothing came within the limit, or at once on a non-blocking socket.
    Interrupted,  ///< The interrupt event is set.
    Closed,       ///< The socket has been closed.
    Failed,       ///< The system refused; nothing was read.
  };
  Outcome outcome = Outcome::Failed;
  size_t length = 0;  ///< Bytes in the buffer; a longer datagram is cut to the buffer's size.
  Endpoint from;
  uint32_t droppedBefore = 0;  ///< Datagrams that found the receive buffer full since the one received before this.
};

/// An IPv4 datagram socket. Several threads may send at once; one thread receives; any thread may close it, which ends
/// a running Receive at once. Options return false when the system refuses them.
///
/// A socket that is bound to a local address and has joined a group gets both the group's datagrams for its port and
/// the unicast datagrams for its address, and everything it sends leaves from its own address and port.
class DatagramSocket {
 public:
  virtual ~DatagramSocket() = default;

  virtual bool SetReuseAddress() = 0;
  /// Address 0 is any local address, port 0 any free port.
  virtual bool Bind(Endpoint local) = 0;
  virtual bool SetReceiveBuffer(size_t bytes) = 0;
  /// Through which local interface multicast leaves; 0 lets the system choose.
  virtual bool SetMulticastInterface(uint32_t localInterface) = 0;
  virtual bool SetTimeToLive(uint8_t hops) = 0;
  virtual bool JoinGroup(uint32_t group, uint32_t localInterface) = 0;
  virtual bool LeaveGroup(uint32_t group, uint32_t localInterface) = 0;
  /// Makes Receive return at once when nothing has arrived, whatever its limit.
  virtual bool SetNonBlocking() = 0;

  /// Sends one datagram. False when the system refused it or the socket is closed.
  virtual bool Send(std::span<const uint8_t> datagram, Endpoint to) = 0;

  /// Waits at most `limit` for one datagram, or until `interrupt` (may be null) is set.
  virtual Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) = 0;

  /// Idempotent. The port is free for others as soon as no call is running on the socket any more.
  virtual void Close() = 0;
};

class Network {
 public:
  virtual ~Network() = default;

  /// Starts and releases the machine's socket library; calls are counted where the machine counts them.
  virtual bool Start() = 0;
  virtual void Stop() = 0;

  /// nullptr when the system refuses.
  virtual std::shared_ptr<DatagramSocket> OpenDatagramSocket() = 0;
};

}  // namespace quorl
