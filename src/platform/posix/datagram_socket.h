#pragma once

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <optional>

#include "platform/closing_gate.h"
#include "platform/network.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/threads.h"

namespace quorl {

/// One socket of the system, behind which stand one descriptor or two: here a descriptor that is bound to a unicast
/// address gets no multicast, and one that is bound to a group gets that group only. So a socket with an address and a
/// port of its own gets a second descriptor when it joins a group. Everything is sent through the first.
class PosixDatagramSocket : public DatagramSocket {
 public:
  PosixDatagramSocket(Descriptor descriptor, std::shared_ptr<PosixEvent> closing);
  ~PosixDatagramSocket() override;

  bool SetReuseAddress() override;
  bool Bind(Endpoint local) override;
  bool SetReceiveBuffer(size_t bytes) override;
  bool SetMulticastInterface(uint32_t localInterface) override;
  bool SetTimeToLive(uint8_t hops) override;
  /// With a second descriptor one group can be joined, on any number of interfaces.
  bool JoinGroup(uint32_t group, uint32_t localInterface) override;
  bool LeaveGroup(uint32_t group, uint32_t localInterface) override;
  bool SetNonBlocking() override;
  // The events are of this machine.
  bool Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) override;
  /// Datagrams of one size that fit the link go through the system as one.
  bool SendBatch(std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait) override;
  Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) override;
  Received ReceiveBatch(DatagramBatch& batch, Duration limit, Event* interrupt) override;
  void Close() override;

 private:
  class Use;

  void CloseDescriptors();
  bool OpenGroup(uint32_t group);
  int MemberDescriptor() const { return groupSocket ? groupSocket.Get() : ownSocket.Get(); }
  template <typename SystemCall>
  bool SendWhole(SystemCall call, const SendWait& wait);
  bool SendSegments(std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait);
  bool WaitForRoom(int error, Moment deadline, Event* interrupt);
  template <typename TakeSome>
  Received WaitAndTake(TakeSome takeSome, Duration limit, Event* interrupt);
  template <typename Take>
  std::optional<Received> TakeInTurn(Take take);
  std::optional<Received> TakeFrom(bool fromGroup, std::span<uint8_t> buffer);
  std::optional<Received> TakeAllFrom(bool fromGroup, DatagramBatch& batch);
  uint32_t DroppedSince(bool fromGroup, msghdr& message);

  Descriptor ownSocket;
  Descriptor groupSocket;
  const std::shared_ptr<PosixEvent> closing;  // Set by Close; wakes who waits inside.
  ClosingGate gate;
  std::atomic<bool> nonBlocking{false};
  std::atomic<bool> segments{true};  // The system has not refused yet to cut what is sent at once.
  Endpoint local;
  Endpoint joined;
  size_t receiveBuffer = 0;           // As asked for; 0 is the system's own size.
  bool groupGoesFirst = true;         // Which descriptor the receiving thread reads first next time.
  std::array<bool, 2> takesLumps{};   // Several datagrams may come as one from the own and the group descriptor.
  std::array<uint32_t, 2> dropped{};  // As the system counts for the own and the group descriptor; for that thread.
};

}  // namespace quorl
