#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

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

/// What one receive takes of the datagrams that have come: as many as it has places for. One thread uses it.
class DatagramBatch {
 public:
  struct Item {
    std::span<const uint8_t> bytes;  ///< In its place; valid until the batch is received into again.
    Endpoint from;
  };

  /// Of a place. It takes whatever a machine hands over at once: the longest datagram, or several that have come as
  /// one.
  static constexpr size_t PLACE = 65536;

  /// A datagram longer than `longest` is cut.
  DatagramBatch(size_t places, size_t longest)
      : places(places), longest(longest), memory(std::make_unique_for_overwrite<uint8_t[]>(places * PLACE)) {}

  const std::vector<Item>& Items() const { return items; }
  bool IsFull() const { return filled == places; }
  size_t PlacesLeft() const { return places - filled; }

  // For sockets.

  void Clear() {
    items.clear();
    filled = 0;
  }
  /// The place `ahead` behind the one that is filled next.
  std::span<uint8_t> Place(size_t ahead = 0) { return {memory.get() + (filled + ahead) * PLACE, PLACE}; }
  /// So many bytes have come into the next place: datagrams of `each`, the last of which may be shorter.
  void Fill(size_t length, size_t each, Endpoint from) {
    std::span<const uint8_t> bytes = Place().first(length);
    do {
      const auto datagram = bytes.first(std::min(each, bytes.size()));
      items.push_back({datagram.first(std::min(datagram.size(), longest)), from});
      bytes = bytes.subspan(datagram.size());
    } while (!bytes.empty());
    ++filled;
  }
  /// One datagram has come into it.
  void Fill(size_t length, Endpoint from) { Fill(length, length, from); }

 private:
  const size_t places;
  const size_t longest;
  std::unique_ptr<uint8_t[]> memory;
  std::vector<Item> items;
  size_t filled = 0;
};

/// What a send waits for while the system has no room for its datagram, as when a link has stopped: for room, but no
/// longer than this, and only until `interrupt` (may be null) is set.
struct SendWait {
  Duration limit = FOREVER;
  Event* interrupt = nullptr;
};

/// An IPv4 datagram socket. Several threads may send at once; one thread receives; any thread may close it, which ends
/// every running Send and Receive at once. Options return false when the system refuses them.
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

  /// Sends one datagram; waits for room. False when the system refused it, the wait is over, or the socket is closed.
  virtual bool Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait = {}) = 0;

  /// Sends several, in order, as cheaply as the machine can. False when one could not be sent; those after it are not.
  virtual bool SendBatch(std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait = {}) {
    return std::all_of(datagrams.begin(), datagrams.end(),
                       [&](std::span<const uint8_t> datagram) { return Send(datagram, to, wait); });
  }

  /// Waits at most `limit` for one datagram, or until `interrupt` (may be null) is set.
  virtual Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) = 0;

  /// The same for all that have come, as many as `batch` has places for; its length is that of all, and so is what was
  /// dropped. Once a socket has been asked so, Receive is not for it any more: the machine may hand over several
  /// datagrams as one. As it stands here, one after the other.
  virtual Received ReceiveBatch(DatagramBatch& batch, Duration limit, Event* interrupt) {
    batch.Clear();
    Received all = Receive(batch.Place(), limit, interrupt);
    if (all.outcome != Received::Outcome::Datagram) return all;
    batch.Fill(all.length, all.from);
    while (!batch.IsFull()) {
      const Received next = Receive(batch.Place(), Duration::zero(), nullptr);
      if (next.outcome != Received::Outcome::Datagram) break;
      batch.Fill(next.length, next.from);
      all.length += next.length;
      all.droppedBefore += next.droppedBefore;
    }
    return all;
  }

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
