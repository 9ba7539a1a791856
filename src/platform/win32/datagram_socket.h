#pragma once

#include <optional>

#include "platform/closing_gate.h"
#include "platform/network.h"
#include "platform/win32/threads.h"

namespace quorl {

/// Version 2.2 of the socket library. The system counts who has started it; every socket is one of them, so that a
/// socket that a call still uses is never closed under it by somebody else's Stop.
bool StartSocketLibrary();

/// A socket of the system and the event that tells that something has arrived.
class Win32DatagramSocket : public DatagramSocket {
 public:
  /// Takes over the socket, and one start of the socket library.
  Win32DatagramSocket(SOCKET socket, Handle arrived, std::shared_ptr<Win32Event> closing);
  ~Win32DatagramSocket() override;

  bool SetReuseAddress() override;
  bool Bind(Endpoint local) override;
  bool SetReceiveBuffer(size_t bytes) override;
  bool SetMulticastInterface(uint32_t localInterface) override;
  bool SetTimeToLive(uint8_t hops) override;
  bool JoinGroup(uint32_t group, uint32_t localInterface) override;
  bool LeaveGroup(uint32_t group, uint32_t localInterface) override;
  bool SetNonBlocking() override;
  // The events are of this machine. The system does not tell what it has dropped.
  bool Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) override;
  Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) override;
  void Close() override;

 private:
  class Use;

  void GiveBack();
  bool SetOption(int level, int option, const void* value, size_t size);
  bool ChangeMembership(int option, uint32_t group, uint32_t localInterface);
  bool WaitForRoom(int error, Moment deadline, Event* interrupt);
  std::optional<Received> Take(std::span<uint8_t> buffer);
  bool WaitForArrival(Moment deadline, HANDLE interrupt);

  const SOCKET socket;
  const Handle arrived;
  const std::shared_ptr<Win32Event> closing;  // Set by Close; wakes who waits inside.
  ClosingGate gate;
  std::atomic<bool> nonBlocking{false};
};

}  // namespace quorl
