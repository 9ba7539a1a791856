#include "sim/machine/machine_network.h"

#include <algorithm>

#include "sim/machine/machine.h"
#include "sim/network/socket.h"

namespace quorl::sim {

bool MachineNetwork::Start() {
  if (machine.Fails(Seam::Network, "network.start")) return false;
  ++starts;
  return true;
}

std::shared_ptr<DatagramSocket> MachineNetwork::OpenDatagramSocket() {
  if (machine.Fails(Seam::Network, "network.open")) return nullptr;
  std::erase_if(sockets, [](const auto& socket) { return socket.expired(); });
  auto socket = std::make_shared<SimSocket>(machine, network, mostBufferBytes);
  sockets.push_back(socket);
  return socket;
}

void MachineNetwork::HoldSends(bool hold) {
  sendsAreHeld = hold;
  for (const auto& weak : sockets)
    if (const auto socket = weak.lock()) socket->WakeWriters();
}

size_t MachineNetwork::OpenSockets() const {
  return static_cast<size_t>(std::count_if(sockets.begin(), sockets.end(), [](const auto& weak) {
    const auto socket = weak.lock();
    return socket && socket->IsOpen();
  }));
}

void MachineNetwork::CloseAll() {
  for (const auto& weak : sockets)
    if (const auto socket = weak.lock()) socket->Close();
}

}  // namespace quorl::sim
