// What a socket tells about the network, by those of the library's ground floor; the same on every system.
#include <vector>

#include "cli/system/network.h"
#include "platform/real_machine.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration ECHO_PATIENCE = 500ms;

bool ComesBack(DatagramSocket& receiver, size_t size) {
  std::vector<uint8_t> datagram(size + 1);
  // Others may speak on the group; theirs are not so empty, nor in an endless row.
  for (int tries = 0; tries < 100; ++tries) {
    const Received received = receiver.Receive(datagram, ECHO_PATIENCE, nullptr);
    if (received.outcome != Received::Outcome::Datagram) return false;
    if (received.length == size && datagram[0] == 0) return true;
  }
  return false;
}

}  // namespace

bool IsPortFree(uint32_t port) {
  const auto socket = RealMachine().network.OpenDatagramSocket();
  return socket && socket->Bind({0, static_cast<uint16_t>(port)});
}

Echo TryEcho(uint32_t group, uint32_t port, uint32_t localInterface, size_t size) {
  Network& network = RealMachine().network;
  const auto receiver = network.OpenDatagramSocket();
  const auto sender = network.OpenDatagramSocket();
  const Endpoint place{group, static_cast<uint16_t>(port)};
  if (!receiver || !receiver->SetReuseAddress() || !receiver->Bind({localInterface, place.port}))
    return {Echo::Step::PortTaken, LastError()};
  if (!receiver->JoinGroup(group, localInterface)) return {Echo::Step::NotJoined, LastError()};
  // A time to live of 0 keeps it on this machine.
  const bool sent = sender && sender->SetMulticastInterface(localInterface) && sender->SetTimeToLive(0) &&
                    sender->Send(std::vector<uint8_t>(size), place);
  if (!sent) return {Echo::Step::NotSent, LastError()};
  return {ComesBack(*receiver, size) ? Echo::Step::CameBack : Echo::Step::Lost, {}};
}

}  // namespace quorl::cli
