#include "sim/network/socket.h"

#include <algorithm>
#include <utility>

#include "sim/machine/machine.h"

namespace quorl::sim {

namespace {

constexpr size_t LARGEST_DATAGRAM = 65507;
constexpr uint16_t FIRST_FREE_PORT = 49152;

}  // namespace

bool SimSocket::SetReuseAddress() {
  if (Fails("network.reuse")) return false;
  reuse = true;
  return true;
}

bool SimSocket::Bind(Endpoint wanted) {
  if (Fails("network.bind") || bound || !IsOwnAddress(wanted.address)) return false;
  if (wanted.port == 0) wanted.port = FreePort();
  if (!IsFree(wanted)) return false;
  local = wanted;
  bound = true;
  network.Attach(*this, local.port);
  return true;
}

bool SimSocket::SetReceiveBuffer(size_t bytes) {
  if (Fails("network.buffer")) return false;
  bufferBytes = std::min(bytes, mostBufferBytes);
  return true;
}

bool SimSocket::SetMulticastInterface(uint32_t localInterface) {
  return !Fails("network.interface") && IsOwnAddress(localInterface);
}

bool SimSocket::SetTimeToLive(uint8_t) {
  return !Fails("network.ttl");
}

bool SimSocket::JoinGroup(uint32_t group, uint32_t localInterface) {
  if (Fails("network.join") || !IsGroupAddress(group) || !IsOwnAddress(localInterface)) return false;
  const Membership wanted{group, localInterface};
  if (std::find(memberships.begin(), memberships.end(), wanted) != memberships.end()) return false;
  memberships.push_back(wanted);
  return true;
}

bool SimSocket::LeaveGroup(uint32_t group, uint32_t localInterface) {
  return !Fails("network.leave") && std::erase(memberships, Membership{group, localInterface}) > 0;
}

bool SimSocket::SetNonBlocking() {
  if (Fails("network.nonblocking")) return false;
  blocking = false;
  return true;
}

bool SimSocket::Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) {
  if (!CanSend(datagram, to) || !WaitForRoom(wait)) return false;
  Carry(datagram, to, 0);
  return true;
}

bool SimSocket::SendBatch(std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait) {
  const uint64_t call = datagrams.size() > 1 ? network.NextCall() : 0;
  for (size_t i = 0; i < datagrams.size(); ++i) {
    if (!CanSend(datagrams[i], to) || (i == 0 && !WaitForRoom(wait))) return false;
    Carry(datagrams[i], to, call);
  }
  return true;
}

bool SimSocket::CanSend(std::span<const uint8_t> datagram, Endpoint to) {
  return !Fails("network.send") && datagram.size() <= LARGEST_DATAGRAM && to.port != 0;
}

void SimSocket::Carry(std::span<const uint8_t> datagram, Endpoint to, uint64_t call) {
  if (!bound) {
    local = {0, FreePort()};
    bound = true;
    network.Attach(*this, local.port);
  }
  const Endpoint source{local.address == 0 ? machine.Address() : local.address, local.port};
  network.Carry({machine.Schedule().Now(), &machine, source, to, {datagram.begin(), datagram.end()}, call});
}

/// True when the machine's link takes a datagram.
bool SimSocket::WaitForRoom(const SendWait& wait) {
  const auto roomAt = [this] { return machine.SendsAreHeld() ? FOREVER : network.RoomAt(machine); };
  const auto hasRoom = [&] { return roomAt() <= machine.Schedule().Now(); };
  if (hasRoom()) return true;
  const auto alive = shared_from_this();
  const auto event = wait.interrupt == nullptr ? nullptr : dynamic_cast<SimEvent&>(*wait.interrupt).shared_from_this();
  const Moment deadline = machine.Deadline(wait.limit);
  while (open && !hasRoom() && machine.Schedule().Now() < deadline && !(event && event->IsSet())) {
    Flow& flow = machine.Schedule().Current();
    const WaitList::Member writer(writers, flow);
    std::optional<WaitList::Member> interruptible;
    if (event) interruptible.emplace(event->Waiters(), flow);
    machine.Wait(std::min(deadline, roomAt()), SimMachine::WaitKind::Unbounded);
  }
  return open && hasRoom();
}

Received SimSocket::Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  if (!open) return {Received::Outcome::Closed, 0, {}};
  if (Fails("network.receive")) return {Received::Outcome::Failed, 0, {}};
  const auto alive = shared_from_this();
  const auto event = interrupt == nullptr ? nullptr : dynamic_cast<SimEvent&>(*interrupt).shared_from_this();
  const bool waits = blocking && limit > Duration::zero();
  const Moment deadline = machine.Deadline(limit);
  for (bool timeIsUp = !waits;;) {
    if (!open) return {Received::Outcome::Closed, 0, {}};
    if (event != nullptr && event->IsSet()) return {Received::Outcome::Interrupted, 0, {}};
    if (!queue.empty()) return TakeFirst(buffer);
    if (timeIsUp) return {Received::Outcome::TimedOut, 0, {}};
    Flow& flow = machine.Schedule().Current();
    const WaitList::Member reader(readers, flow);
    std::optional<WaitList::Member> interruptible;
    if (event != nullptr) interruptible.emplace(event->Waiters(), flow);
    timeIsUp = !machine.Wait(deadline, SimMachine::WaitKind::Unbounded);
  }
}

void SimSocket::Close() {
  if (!open) return;
  open = false;
  if (bound) network.Detach(*this, local.port);
  queue.clear();
  machine.Schedule().WakeAll(readers);
  WakeWriters();
}

void SimSocket::WakeWriters() {
  machine.Schedule().WakeAll(writers);
}

bool SimSocket::HasJoined(uint32_t group) const {
  return std::any_of(memberships.begin(), memberships.end(),
                     [&](const Membership& membership) { return membership.group == group; });
}

bool SimSocket::Accepts(uint32_t address) const {
  return address == machine.Address() && (local.address == 0 || local.address == address);
}

bool SimSocket::Take(std::shared_ptr<const SentDatagram> datagram) {
  const size_t bytes = datagram->bytes.size();
  if (!queue.empty() && queuedBytes + bytes > bufferBytes) {
    ++dropped;
    return false;
  }
  queuedBytes += bytes;
  queue.push_back(std::move(datagram));
  machine.Schedule().WakeAll(readers);
  return true;
}

bool SimSocket::IsLate(const SentDatagram& datagram) {
  const bool late = datagram.at < latestSent;
  latestSent = std::max(latestSent, datagram.at);
  return late;
}

bool SimSocket::Fails(const char* call) {
  return machine.Fails(Seam::Network, call) || !open;
}

bool SimSocket::IsOwnAddress(uint32_t address) const {
  return address == 0 || address == machine.Address();
}

bool SimSocket::IsFree(Endpoint endpoint) const {
  const auto& others = network.SocketsAt(endpoint.port);
  return std::none_of(others.begin(), others.end(), [&](const SimSocket* other) {
    const bool sameAddress =
        endpoint.address == 0 || other->local.address == 0 || other->local.address == endpoint.address;
    return &other->machine == &machine && sameAddress && !(reuse && other->reuse);
  });
}

uint16_t SimSocket::FreePort() const {
  uint16_t port = FIRST_FREE_PORT;
  const auto isTaken = [&] {
    const auto& others = network.SocketsAt(port);
    return std::any_of(others.begin(), others.end(),
                       [&](const SimSocket* other) { return &other->machine == &machine; });
  };
  while (isTaken()) ++port;
  return port;
}

Received SimSocket::TakeFirst(std::span<uint8_t> buffer) {
  const auto datagram = std::move(queue.front());
  queue.pop_front();
  queuedBytes -= datagram->bytes.size();
  const size_t length = std::min(buffer.size(), datagram->bytes.size());
  std::copy_n(datagram->bytes.begin(), length, buffer.begin());
  return {Received::Outcome::Datagram, length, datagram->source, std::exchange(dropped, 0)};
}

}  // namespace quorl::sim
