// The receive loops of both sides wait in Receive, their other threads send; the host's thread closes. The socket never
// blocks: who waits does so for the event that tells of an arrival, beside those that end the wait.
#include "platform/win32/datagram_socket.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <limits>

#include "platform/win32/network.h"
#include "platform/win32/waiting.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// How often a send tries again while the system has no room for the datagram.
constexpr DWORD NO_ROOM_PAUSE_MS = 1;

// Not in every version of the headers: whether an answer "port unreachable" to an earlier datagram fails a receive.
constexpr DWORD UDP_CONNRESET = 0x9800000C;

sockaddr_in ToSystem(Endpoint endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  address.sin_addr.s_addr = endpoint.address;
  return address;
}

/// Errors that an answer to an earlier datagram left on the socket. They say nothing about the call that meets them.
bool IsEarlierError(int error) {
  return error == WSAECONNRESET || error == WSAENETRESET || error == WSAECONNREFUSED;
}

bool StartOnce() {
  WSADATA about{};
  if (WSAStartup(MAKEWORD(2, 2), &about) != 0) return false;
  if (about.wVersion == MAKEWORD(2, 2)) return true;
  WSACleanup();
  return false;
}

}  // namespace

bool StartSocketLibrary() {
  // One start is never released: a last release in one thread may end what another has started anew meanwhile.
  static const bool ALWAYS_ONE = StartOnce();
  return ALWAYS_ONE && StartOnce();
}

bool Win32Network::Start() {
  return StartSocketLibrary();
}

void Win32Network::Stop() {
  WSACleanup();
}

std::shared_ptr<DatagramSocket> Win32Network::OpenDatagramSocket() {
  Handle arrived(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::shared_ptr<Win32Event> closing = Win32Event::Make();
  if (!arrived || !closing || !StartSocketLibrary()) return nullptr;
  const SOCKET socket = WSASocketW(AF_INET, SOCK_DGRAM, 0, nullptr, 0, WSA_FLAG_OVERLAPPED);
  if (socket == INVALID_SOCKET || WSAEventSelect(socket, arrived.Get(), FD_READ) != 0) {
    if (socket != INVALID_SOCKET) closesocket(socket);
    WSACleanup();
    return nullptr;
  }
  // A process that the host starts would else keep the port.
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  BOOL fails = FALSE;
  DWORD written = 0;
  // Systems that do not know it are met by IsEarlierError.
  WSAIoctl(socket, UDP_CONNRESET, &fails, sizeof fails, nullptr, 0, &written, nullptr, nullptr);
  return std::make_shared<Win32DatagramSocket>(socket, std::move(arrived), std::move(closing));
}

/// One call inside the socket: while it is there, the socket stays open.
class Win32DatagramSocket::Use {
 public:
  explicit Use(Win32DatagramSocket& socket) : socket(socket), entered(socket.gate.Enter()) {}
  ~Use() {
    if (entered && socket.gate.Leave()) socket.GiveBack();
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  explicit operator bool() const { return entered; }

 private:
  Win32DatagramSocket& socket;
  const bool entered;
};

Win32DatagramSocket::Win32DatagramSocket(SOCKET socket, Handle arrived, std::shared_ptr<Win32Event> closing)
    : socket(socket), arrived(std::move(arrived)), closing(std::move(closing)) {}

Win32DatagramSocket::~Win32DatagramSocket() {
  Close();
}

void Win32DatagramSocket::Close() {
  const ClosingGate::Closing how = gate.Close();
  if (how == ClosingGate::Closing::Already) return;
  closing->Set();
  if (how == ClosingGate::Closing::Empty) GiveBack();
}

void Win32DatagramSocket::GiveBack() {
  closesocket(socket);
  WSACleanup();
}

bool Win32DatagramSocket::SetOption(int level, int option, const void* value, size_t size) {
  const Use use(*this);
  return use && setsockopt(socket, level, option, static_cast<const char*>(value), static_cast<int>(size)) == 0;
}

bool Win32DatagramSocket::SetReuseAddress() {
  const BOOL on = TRUE;
  return SetOption(SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

bool Win32DatagramSocket::Bind(Endpoint local) {
  const Use use(*this);
  const sockaddr_in address = ToSystem(local);
  return use && bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool Win32DatagramSocket::SetReceiveBuffer(size_t bytes) {
  const int size = static_cast<int>(std::min<size_t>(bytes, std::numeric_limits<int>::max()));
  return SetOption(SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

bool Win32DatagramSocket::SetMulticastInterface(uint32_t localInterface) {
  return SetOption(IPPROTO_IP, IP_MULTICAST_IF, &localInterface, sizeof localInterface);
}

bool Win32DatagramSocket::SetTimeToLive(uint8_t hops) {
  const DWORD value = hops;
  return SetOption(IPPROTO_IP, IP_MULTICAST_TTL, &value, sizeof value);
}

bool Win32DatagramSocket::JoinGroup(uint32_t group, uint32_t localInterface) {
  return ChangeMembership(IP_ADD_MEMBERSHIP, group, localInterface);
}

bool Win32DatagramSocket::LeaveGroup(uint32_t group, uint32_t localInterface) {
  return ChangeMembership(IP_DROP_MEMBERSHIP, group, localInterface);
}

bool Win32DatagramSocket::ChangeMembership(int option, uint32_t group, uint32_t localInterface) {
  ip_mreq membership{};
  membership.imr_multiaddr.s_addr = group;
  membership.imr_interface.s_addr = localInterface;
  return SetOption(IPPROTO_IP, option, &membership, sizeof membership);
}

bool Win32DatagramSocket::SetNonBlocking() {
  const Use use(*this);
  if (!use) return false;
  nonBlocking = true;
  return true;
}

bool Win32DatagramSocket::Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) {
  const Use use(*this);
  if (!use) return false;
  const sockaddr_in address = ToSystem(to);
  const Moment deadline = DeadlineAfter(wait.limit);
  const auto* bytes = reinterpret_cast<const char*>(datagram.data());
  while (sendto(socket, bytes, static_cast<int>(datagram.size()), 0, reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == SOCKET_ERROR)
    if (!WaitForRoom(WSAGetLastError(), deadline, wait.interrupt)) return false;
  return true;
}

/// Whether a send that failed with `error` is worth another try, which it is from the moment of return on.
bool Win32DatagramSocket::WaitForRoom(int error, Moment deadline, Event* interrupt) {
  if (gate.IsClosed() || (interrupt && interrupt->IsSet()) || MonotonicNow() >= deadline) return false;
  if (IsEarlierError(error)) return true;
  if (error != WSAEWOULDBLOCK && error != WSAENOBUFS) return false;
  return WaitForSingleObject(closing->WaitHandle(), NO_ROOM_PAUSE_MS) == WAIT_TIMEOUT;
}

Received Win32DatagramSocket::Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  const Use use(*this);
  if (!use) return {.outcome = Received::Outcome::Closed};
  const Moment deadline = DeadlineAfter(nonBlocking ? Duration::zero() : limit);
  while (true) {
    if (interrupt && interrupt->IsSet()) return {.outcome = Received::Outcome::Interrupted};
    // On a full stream that is one call a datagram.
    if (const auto taken = Take(buffer)) return *taken;
    // What arrives after the second look sets the event again.
    ResetEvent(arrived.Get());
    if (const auto taken = Take(buffer)) return *taken;
    const bool inTime =
        WaitForArrival(deadline, interrupt ? static_cast<Win32Event*>(interrupt)->WaitHandle() : nullptr);
    if (gate.IsClosed()) return {.outcome = Received::Outcome::Closed};
    if (!inTime && !(interrupt && interrupt->IsSet())) return {.outcome = Received::Outcome::TimedOut};
  }
}

/// False when the deadline has come before anything else.
bool Win32DatagramSocket::WaitForArrival(Moment deadline, HANDLE interrupt) {
  const std::array<HANDLE, 3> waits{arrived.Get(), closing->WaitHandle(), interrupt};
  const DWORD count = interrupt ? 3 : 2;
  while (true) {
    if (WaitForMultipleObjects(count, waits.data(), FALSE, MillisecondsUntil(deadline)) < WAIT_OBJECT_0 + count)
      return true;
    if (MonotonicNow() >= deadline) return false;
  }
}

/// One datagram that has arrived, or a failure; nothing when there is none.
std::optional<Received> Win32DatagramSocket::Take(std::span<uint8_t> buffer) {
  while (true) {
    sockaddr_in from{};
    int fromLength = sizeof from;
    const int length = recvfrom(socket, reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0,
                                reinterpret_cast<sockaddr*>(&from), &fromLength);
    const int error = length == SOCKET_ERROR ? WSAGetLastError() : 0;
    if (error == WSAEWOULDBLOCK) return std::nullopt;
    if (IsEarlierError(error)) continue;
    if (error != 0 && error != WSAEMSGSIZE) return Received{};
    // A datagram that is longer than the buffer fills it, and is reported as an error.
    const size_t taken = error == WSAEMSGSIZE ? buffer.size() : static_cast<size_t>(length);
    return Received{Received::Outcome::Datagram, taken, {from.sin_addr.s_addr, ntohs(from.sin_port)}, 0};
  }
}

}  // namespace quorl
