#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/network.h"
#include "sim/network/network.h"

namespace quorl::sim {

class SimMachine;

/// The socket library of a machine.
class MachineNetwork : public Network {
 public:
  MachineNetwork(SimMachine& machine, SimNetwork& network) : machine(machine), network(network) {}

  bool Start() override;
  void Stop() override { --starts; }
  std::shared_ptr<DatagramSocket> OpenDatagramSocket() override;

  void HoldSends(bool hold);
  bool SendsAreHeld() const { return sendsAreHeld; }
  void LimitReceiveBuffers(size_t bytes) { mostBufferBytes = bytes; }
  size_t OpenSockets() const;
  int Starts() const { return starts; }
  void CloseAll();

 private:
  SimMachine& machine;
  SimNetwork& network;
  int starts = 0;
  bool sendsAreHeld = false;
  size_t mostBufferBytes = SIZE_MAX;
  std::vector<std::weak_ptr<SimSocket>> sockets;
};

}  // namespace quorl::sim
