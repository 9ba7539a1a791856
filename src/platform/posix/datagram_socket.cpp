// The receive loops of both sides block in Receive, their other threads send; the host's thread closes. A descriptor
// number is given back only when no call is inside, so no call can ever reach a stranger's descriptor.
#include "platform/posix/datagram_socket.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/posix/network.h"
#include "platform/posix/waiting.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// How long a send waits while the system has no room for the datagram.
constexpr Duration SEND_PATIENCE = 1s;
constexpr Duration NO_BUFFER_PAUSE = 1ms;

sockaddr_in ToSystem(Endpoint endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  address.sin_addr.s_addr = endpoint.address;
  return address;
}

template <typename Value>
bool SetOption(int descriptor, int level, int option, const Value& value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

Descriptor OpenUdp() {
  Descriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  // Else groups that other programs on this machine have joined would leak in.
  if (descriptor && !SetOption(descriptor.Get(), IPPROTO_IP, IP_MULTICAST_ALL, 0)) descriptor.Close();
  // Only a count: a system that refuses it is no worse.
  if (descriptor) SetOption(descriptor.Get(), SOL_SOCKET, SO_RXQ_OVFL, 1);
  return descriptor;
}

bool BindTo(int descriptor, Endpoint local) {
  const sockaddr_in address = ToSystem(local);
  return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool SetBuffer(int descriptor, size_t bytes) {
  const int size = static_cast<int>(std::min<size_t>(bytes, 0x3FFFFFFF));
  // The first passes the system's limit where the process may do that.
  return SetOption(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, size) || SetOption(descriptor, SOL_SOCKET, SO_RCVBUF, size);
}

bool ChangeMembership(int descriptor, int option, uint32_t group, uint32_t localInterface) {
  ip_mreq membership{};
  membership.imr_multiaddr.s_addr = group;
  membership.imr_interface.s_addr = localInterface;
  return SetOption(descriptor, IPPROTO_IP, option, membership);
}

/// Puts into `count` what the system has dropped on a descriptor so far, modulo 2^32, if it tells that with this
/// datagram (SO_RXQ_OVFL, socket(7)).
void ReadDropped(msghdr& message, uint32_t& count) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part))
    if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL)
      std::memcpy(&count, CMSG_DATA(part), sizeof count);
}

/// Errors that an earlier datagram's ICMP answer left on the socket. They say nothing about the call that meets them.
bool IsEarlierError(int error) {
  return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH;
}

}  // namespace

std::shared_ptr<DatagramSocket> PosixNetwork::OpenDatagramSocket() {
  Descriptor descriptor = OpenUdp();
  std::shared_ptr<PosixEvent> closing = PosixEvent::Make();
  if (!descriptor || !closing) return nullptr;
  return std::make_shared<PosixDatagramSocket>(std::move(descriptor), std::move(closing));
}

/// One call inside the socket: while it is there, the descriptors stay open.
class PosixDatagramSocket::Use {
 public:
  explicit Use(PosixDatagramSocket& socket) : socket(socket), entered(socket.Enter()) {}
  ~Use() {
    if (entered) socket.Leave();
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  explicit operator bool() const { return entered; }

 private:
  PosixDatagramSocket& socket;
  const bool entered;
};

PosixDatagramSocket::PosixDatagramSocket(Descriptor descriptor, std::shared_ptr<PosixEvent> closing)
    : ownSocket(std::move(descriptor)), closing(std::move(closing)) {}

PosixDatagramSocket::~PosixDatagramSocket() {
  Close();
}

bool PosixDatagramSocket::Enter() {
  uint32_t seen = usage.load();
  do {
    if (seen & CLOSED) return false;
  } while (!usage.compare_exchange_weak(seen, seen + 1));
  return true;
}

void PosixDatagramSocket::Leave() {
  if (usage.fetch_sub(1) == CLOSED + 1) CloseDescriptors();
}

void PosixDatagramSocket::Close() {
  const uint32_t before = usage.fetch_or(CLOSED);
  if (before & CLOSED) return;
  closing->Set();
  if (before == 0) CloseDescriptors();
}

void PosixDatagramSocket::CloseDescriptors() {
  ownSocket.Close();
  groupSocket.Close();
}

bool PosixDatagramSocket::SetReuseAddress() {
  const Use use(*this);
  return use && SetOption(ownSocket.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
}

bool PosixDatagramSocket::Bind(Endpoint endpoint) {
  const Use use(*this);
  if (!use || !BindTo(ownSocket.Get(), endpoint)) return false;
  local = endpoint;
  return true;
}

bool PosixDatagramSocket::SetReceiveBuffer(size_t bytes) {
  const Use use(*this);
  if (!use) return false;
  receiveBuffer = bytes;
  return SetBuffer(ownSocket.Get(), bytes) && (!groupSocket || SetBuffer(groupSocket.Get(), bytes));
}

bool PosixDatagramSocket::SetMulticastInterface(uint32_t localInterface) {
  const Use use(*this);
  return use && SetOption(ownSocket.Get(), IPPROTO_IP, IP_MULTICAST_IF, in_addr{localInterface});
}

bool PosixDatagramSocket::SetTimeToLive(uint8_t hops) {
  const Use use(*this);
  return use && SetOption(ownSocket.Get(), IPPROTO_IP, IP_MULTICAST_TTL, static_cast<int>(hops));
}

bool PosixDatagramSocket::JoinGroup(uint32_t group, uint32_t localInterface) {
  const Use use(*this);
  if (!use) return false;
  // Nothing is ever sent to a group on a port that the system chose: such a socket joins only to be a member.
  const bool needsOwnDescriptor = local.address != 0 && local.port != 0;
  if (needsOwnDescriptor && !OpenGroup(group)) return false;
  return ChangeMembership(MemberDescriptor(), IP_ADD_MEMBERSHIP, group, localInterface);
}

bool PosixDatagramSocket::LeaveGroup(uint32_t group, uint32_t localInterface) {
  const Use use(*this);
  return use && ChangeMembership(MemberDescriptor(), IP_DROP_MEMBERSHIP, group, localInterface);
}

bool PosixDatagramSocket::OpenGroup(uint32_t group) {
  if (groupSocket) return group == joined.address;
  Descriptor descriptor = OpenUdp();
  // Several receivers on one machine listen to the same group and port.
  if (!descriptor || !SetOption(descriptor.Get(), SOL_SOCKET, SO_REUSEADDR, 1)) return false;
  if (receiveBuffer != 0) SetBuffer(descriptor.Get(), receiveBuffer);
  if (!BindTo(descriptor.Get(), {group, local.port})) return false;
  groupSocket = std::move(descriptor);
  joined = {group, local.port};
  return true;
}

bool PosixDatagramSocket::SetNonBlocking() {
  const Use use(*this);
  if (!use) return false;
  nonBlocking = true;
  return true;
}

bool PosixDatagramSocket::Send(std::span<const uint8_t> datagram, Endpoint to) {
  const Use use(*this);
  if (!use) return false;
  const sockaddr_in address = ToSystem(to);
  const Moment deadline = DeadlineAfter(SEND_PATIENCE);
  while (sendto(ownSocket.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
    const int error = errno;
    if (error != EINTR && !WaitForRoom(error, deadline)) return false;
  }
  return true;
}

/// Whether a send that failed with `error` is worth another try, which it is from the moment of return on.
bool PosixDatagramSocket::WaitForRoom(int error, Moment deadline) {
  if (IsClosed() || MonotonicNow() >= deadline) return false;
  if (error == ECONNREFUSED) return true;
  std::array<pollfd, 2> waits{pollfd{closing->PollDescriptor(), POLLIN, 0}, pollfd{ownSocket.Get(), POLLOUT, 0}};
  if (error == EAGAIN) return PollUntil(waits, deadline) && !IsClosed();
  if (error != ENOBUFS) return false;
  PollUntil(std::span(waits).first(1), DeadlineAfter(NO_BUFFER_PAUSE));
  return !IsClosed();
}

Received PosixDatagramSocket::Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  const Use use(*this);
  if (!use) return {.outcome = Received::Outcome::Closed};
  const Moment deadline = DeadlineAfter(nonBlocking ? Duration::zero() : limit);
  // A descriptor of -1 is left out of a poll.
  std::array<pollfd, 4> waits{
      pollfd{ownSocket.Get(), POLLIN, 0}, pollfd{groupSocket.Get(), POLLIN, 0},
      pollfd{closing->PollDescriptor(), POLLIN, 0},
      pollfd{interrupt ? static_cast<PosixEvent*>(interrupt)->PollDescriptor() : -1, POLLIN, 0}};
  while (true) {
    if (interrupt && interrupt->IsSet()) return {.outcome = Received::Outcome::Interrupted};
    // What has arrived is taken without a poll: on a full stream that is one system call a datagram.
    if (const auto taken = Take(buffer)) return *taken;
    const bool inTime = PollUntil(waits, deadline);
    if (IsClosed()) return {.outcome = Received::Outcome::Closed};
    if (!inTime && !(interrupt && interrupt->IsSet())) return {.outcome = Received::Outcome::TimedOut};
  }
}

/// One datagram that has arrived, or a failure; nothing when there is none. The descriptors take turns in coming first,
/// so that a stream to the group cannot keep a unicast datagram waiting.
std::optional<Received> PosixDatagramSocket::Take(std::span<uint8_t> buffer) {
  const bool first = std::exchange(groupGoesFirst, !groupGoesFirst);
  for (const bool fromGroup : {first, !first}) {
    if (fromGroup && !groupSocket) continue;
    const auto taken = TakeFrom(fromGroup, buffer);
    if (taken) return taken;
  }
  return std::nullopt;
}

std::optional<Received> PosixDatagramSocket::TakeFrom(bool fromGroup, std::span<uint8_t> buffer) {
  sockaddr_in from{};
  iovec part{buffer.data(), buffer.size()};
  alignas(cmsghdr) std::array<uint8_t, CMSG_SPACE(sizeof(uint32_t))> control{};
  while (true) {
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = recvmsg((fromGroup ? groupSocket : ownSocket).Get(), &message, MSG_DONTWAIT);
    if (length >= 0) {
      const uint32_t before = dropped[fromGroup];
      ReadDropped(message, dropped[fromGroup]);
      return Received{Received::Outcome::Datagram,
                      static_cast<size_t>(length),
                      {from.sin_addr.s_addr, ntohs(from.sin_port)},
                      dropped[fromGroup] - before};
    }
    if (errno == EAGAIN) return std::nullopt;
    if (errno != EINTR && !IsEarlierError(errno)) return Received{};
  }
}

}  // namespace quorl
