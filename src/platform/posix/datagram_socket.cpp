// The receive loops of both sides block in Receive, their other threads send; the host's thread closes. A descriptor
// number is given back only when no call is inside, so no call can ever reach a stranger's descriptor.
#include "platform/posix/datagram_socket.h"

#include <netinet/in.h>
#include <netinet/udp.h>
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

/// What the system tells of a datagram beside it, if it does.
template <typename Value>
void ReadBeside(msghdr& message, int level, int type, Value& value) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part))
    if (part->cmsg_level == level && part->cmsg_type == type) std::memcpy(&value, CMSG_DATA(part), sizeof value);
}

constexpr size_t DATAGRAMS_AT_ONCE = 32;

/// What one call may send of this size: the whole is one IP packet until it is cut (udp(7)).
size_t SegmentsAtOnce(size_t size) {
  constexpr size_t LARGEST = 65535 - 20 - 8;
  return std::min(LARGEST / size, DATAGRAMS_AT_ONCE);
}

/// What the system fills in for one datagram.
struct Incoming {
  msghdr message{};
  sockaddr_in from{};
  iovec part{};
  alignas(cmsghdr) std::array<uint8_t, CMSG_SPACE(sizeof(uint32_t)) + CMSG_SPACE(sizeof(int))> control;

  void Prepare(std::span<uint8_t> buffer) {
    part = {buffer.data(), buffer.size()};
    message = {.msg_name = &from,
               .msg_namelen = sizeof from,
               .msg_iov = &part,
               .msg_iovlen = 1,
               .msg_control = control.data(),
               .msg_controllen = control.size(),
               .msg_flags = 0};
  }
  Endpoint From() const { return {from.sin_addr.s_addr, ntohs(from.sin_port)}; }
};

/// For a poll; -1, which it leaves out, when there is no event.
int PollDescriptorOf(Event* event) {
  return event ? static_cast<PosixEvent*>(event)->PollDescriptor() : -1;
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
  explicit Use(PosixDatagramSocket& socket) : socket(socket), entered(socket.gate.Enter()) {}
  ~Use() {
    if (entered && socket.gate.Leave()) socket.CloseDescriptors();
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

void PosixDatagramSocket::Close() {
  const ClosingGate::Closing outcome = gate.Close();
  if (outcome == ClosingGate::Closing::Already) return;
  closing->Set();
  if (outcome == ClosingGate::Closing::Empty) CloseDescriptors();
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

bool PosixDatagramSocket::Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) {
  const sockaddr_in address = ToSystem(to);
  return SendWhole(
      [&] {
        return sendto(ownSocket.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
      },
      wait);
}

bool PosixDatagramSocket::SendBatch(std::span<const std::span<const uint8_t>> datagrams, Endpoint to,
                                    const SendWait& wait) {
  while (!datagrams.empty()) {
    const size_t size = datagrams[0].size();
    // The last one may be shorter.
    size_t count = 1;
    while (count < datagrams.size() && count < SegmentsAtOnce(size) && datagrams[count - 1].size() == size &&
           datagrams[count].size() <= size)
      ++count;
    if (count == 1 || !segments) {
      if (!Send(datagrams[0], to, wait)) return false;
      datagrams = datagrams.subspan(1);
    } else if (SendSegments(datagrams.first(count), to, wait)) {
      datagrams = datagrams.subspan(count);
    } else if (segments) {
      return false;
    }
  }
  return true;
}

/// Sends datagrams of one size as one, which the system cuts (UDP_SEGMENT, udp(7)). It refuses when one does not fit
/// the link's MTU; then `segments` is no longer set.
bool PosixDatagramSocket::SendSegments(std::span<const std::span<const uint8_t>> datagrams, Endpoint to,
                                       const SendWait& wait) {
  sockaddr_in address = ToSystem(to);
  std::array<iovec, DATAGRAMS_AT_ONCE> parts{};
  for (size_t i = 0; i < datagrams.size(); ++i)
    parts[i] = {const_cast<uint8_t*>(datagrams[i].data()), datagrams[i].size()};
  alignas(cmsghdr) std::array<uint8_t, CMSG_SPACE(sizeof(uint16_t))> control{};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = parts.data();
  message.msg_iovlen = datagrams.size();
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const option = CMSG_FIRSTHDR(&message);
  option->cmsg_level = SOL_UDP;
  option->cmsg_type = UDP_SEGMENT;
  option->cmsg_len = CMSG_LEN(sizeof(uint16_t));
  const auto size = static_cast<uint16_t>(datagrams[0].size());
  std::memcpy(CMSG_DATA(option), &size, sizeof size);
  return SendWhole(
      [&] {
        const ssize_t sent = sendmsg(ownSocket.Get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EMSGSIZE || errno == EINVAL || errno == EIO)) segments = false;
        return sent;
      },
      wait);
}

/// Repeats a call that sends until it has found room. False when it cannot.
template <typename SystemCall>
bool PosixDatagramSocket::SendWhole(SystemCall call, const SendWait& wait) {
  const Use use(*this);
  if (!use) return false;
  const Moment deadline = DeadlineAfter(wait.limit);
  while (call() < 0) {
    const int error = errno;
    if (error != EINTR && !WaitForRoom(error, deadline, wait.interrupt)) return false;
  }
  return true;
}

/// Whether a send that failed with `error` is worth another try, which it is from the moment of return on.
bool PosixDatagramSocket::WaitForRoom(int error, Moment deadline, Event* interrupt) {
  const auto goesOn = [&] { return !gate.IsClosed() && !(interrupt && interrupt->IsSet()); };
  if (!goesOn() || MonotonicNow() >= deadline) return false;
  if (error == ECONNREFUSED) return true;
  std::array<pollfd, 3> waits{pollfd{closing->PollDescriptor(), POLLIN, 0},
                              pollfd{PollDescriptorOf(interrupt), POLLIN, 0}, pollfd{ownSocket.Get(), POLLOUT, 0}};
  if (error == EAGAIN) return PollUntil(waits, deadline) && goesOn();
  if (error != ENOBUFS) return false;
  PollUntil(std::span(waits).first(2), DeadlineAfter(NO_BUFFER_PAUSE));
  return goesOn();
}

Received PosixDatagramSocket::Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  const auto takeOne = [&](bool fromGroup) { return TakeFrom(fromGroup, buffer); };
  return WaitAndTake([&] { return TakeInTurn(takeOne); }, limit, interrupt);
}

Received PosixDatagramSocket::ReceiveBatch(DatagramBatch& batch, Duration limit, Event* interrupt) {
  batch.Clear();
  const auto takeAll = [&](bool fromGroup) { return TakeAllFrom(fromGroup, batch); };
  return WaitAndTake([&] { return TakeInTurn(takeAll); }, limit, interrupt);
}

template <typename TakeSome>
Received PosixDatagramSocket::WaitAndTake(TakeSome takeSome, Duration limit, Event* interrupt) {
  const Use use(*this);
  if (!use) return {.outcome = Received::Outcome::Closed};
  const Moment deadline = DeadlineAfter(nonBlocking ? Duration::zero() : limit);
  std::array<pollfd, 4> waits{pollfd{ownSocket.Get(), POLLIN, 0}, pollfd{groupSocket.Get(), POLLIN, 0},
                              pollfd{closing->PollDescriptor(), POLLIN, 0},
                              pollfd{PollDescriptorOf(interrupt), POLLIN, 0}};
  while (true) {
    if (interrupt && interrupt->IsSet()) return {.outcome = Received::Outcome::Interrupted};
    // What has arrived is taken without a poll: on a full stream that is one system call a datagram.
    if (const auto taken = takeSome()) return *taken;
    const bool inTime = PollUntil(waits, deadline);
    if (gate.IsClosed()) return {.outcome = Received::Outcome::Closed};
    if (!inTime && !(interrupt && interrupt->IsSet())) return {.outcome = Received::Outcome::TimedOut};
  }
}

/// What has arrived at one of the descriptors, or a failure; nothing when there is nothing. They take turns in coming
/// first, so that a stream to the group cannot keep a unicast datagram waiting.
template <typename Take>
std::optional<Received> PosixDatagramSocket::TakeInTurn(Take take) {
  const bool first = std::exchange(groupGoesFirst, !groupGoesFirst);
  for (const bool fromGroup : {first, !first}) {
    if (fromGroup && !groupSocket) continue;
    const auto taken = take(fromGroup);
    if (taken) return taken;
  }
  return std::nullopt;
}

std::optional<Received> PosixDatagramSocket::TakeFrom(bool fromGroup, std::span<uint8_t> buffer) {
  Incoming incoming;
  while (true) {
    incoming.Prepare(buffer);
    const ssize_t length = recvmsg((fromGroup ? groupSocket : ownSocket).Get(), &incoming.message, MSG_DONTWAIT);
    if (length >= 0)
      return Received{Received::Outcome::Datagram, static_cast<size_t>(length), incoming.From(),
                      DroppedSince(fromGroup, incoming.message)};
    if (errno == EAGAIN) return std::nullopt;
    if (errno != EINTR && !IsEarlierError(errno)) return Received{};
  }
}

std::optional<Received> PosixDatagramSocket::TakeAllFrom(bool fromGroup, DatagramBatch& batch) {
  const int descriptor = (fromGroup ? groupSocket : ownSocket).Get();
  // What has come as one packet is handed over as one (UDP_GRO, udp(7)); a system that refuses it is only slower.
  if (!std::exchange(takesLumps[fromGroup], true)) SetOption(descriptor, SOL_UDP, UDP_GRO, 1);
  std::array<Incoming, DATAGRAMS_AT_ONCE> incoming;
  std::array<mmsghdr, DATAGRAMS_AT_ONCE> messages;
  const size_t places = std::min(batch.PlacesLeft(), messages.size());
  while (true) {
    for (size_t i = 0; i < places; ++i) {
      incoming[i].Prepare(batch.Place(i));
      messages[i] = {incoming[i].message, 0};
    }
    const int count = recvmmsg(descriptor, messages.data(), static_cast<unsigned>(places), MSG_DONTWAIT, nullptr);
    if (count > 0) {
      Received all{.outcome = Received::Outcome::Datagram, .from = incoming[0].From()};
      for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        int each = 0;
        ReadBeside(messages[i].msg_hdr, SOL_UDP, UDP_GRO, each);
        const size_t length = messages[i].msg_len;
        batch.Fill(length, each > 0 ? static_cast<size_t>(each) : length, incoming[i].From());
        all.length += messages[i].msg_len;
        all.droppedBefore += DroppedSince(fromGroup, messages[i].msg_hdr);
      }
      return all;
    }
    if (errno == EAGAIN) return std::nullopt;
    if (errno != EINTR && !IsEarlierError(errno)) return Received{};
  }
}

uint32_t PosixDatagramSocket::DroppedSince(bool fromGroup, msghdr& message) {
  const uint32_t before = dropped[fromGroup];
  ReadBeside(message, SOL_SOCKET, SO_RXQ_OVFL, dropped[fromGroup]);  // socket(7)
  return dropped[fromGroup] - before;
}

}  // namespace quorl
