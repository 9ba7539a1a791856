// What this machine says about its network. Addresses are IPv4 in network byte order.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/system/error.h"

namespace quorl::cli {

/// One address of this machine.
struct Interface {
  std::string name;
  uint32_t address = 0;
  bool multicast = false;
  bool loopback = false;
  bool running = true;  ///< Has a link.
};

/// The addresses of the interfaces that are up.
std::vector<Interface> ListInterfaces();

/// Whether every address 127.x.y.z is one of this machine, with multicast, and not the first one alone.
bool HasManyLoopbackAddresses();

/// The device behind an interface.
struct Device {
  std::string name;
  bool multicast = false;
  bool loopback = false;
  bool carrier = true;
  bool wireless = false;
  uint32_t mtu = 0;    ///< 0: unknown.
  uint32_t speed = 0;  ///< Of its link, Mbit/s; 0: unknown.
};
Device ReadDevice(const std::string& interfaceName);

/// Notices that addresses, links or routes of this machine change.
class NetworkWatch {
 public:
  NetworkWatch();
  ~NetworkWatch();
  NetworkWatch(const NetworkWatch&) = delete;
  NetworkWatch& operator=(const NetworkWatch&) = delete;

  /// Whether something may have changed since it was asked last. Where the system tells nobody, it may now and then.
  bool HasNews();

 private:
  struct State;
  std::unique_ptr<State> state;
};

/// The interfaces through which programs of this machine listen to a group.
std::vector<std::string> InterfacesListening(uint32_t group);

/// The source address that the routing table gives for datagrams to `group`; 0 when there is no route.
uint32_t RoutedAddress(uint32_t group);

/// The name of a machine; empty when nobody knows. May take many seconds.
std::string NameOfAddress(uint32_t address);

/// Whether nobody holds the UDP port.
bool IsPortFree(uint32_t port);

/// A datagram of `size` bytes sent to a group by this machine to itself, and no further.
struct Echo {
  enum class Step { PortTaken, NotJoined, NotSent, Lost, CameBack };
  Step step = Step::Lost;
  SystemError why;  ///< Of the first three.
};

/// Takes at most half a second.
Echo TryEcho(uint32_t group, uint32_t port, uint32_t localInterface, size_t size);

/// The most that a receive buffer can have without privileges.
std::optional<uint64_t> ReceiveBufferLimit();

/// Datagrams that the system has thrown away since its start because buffers were full.
std::optional<uint64_t> BufferOverflows();

/// How the system puts datagrams together from their fragments.
struct Reassembly {
  uint64_t limit = 0;    ///< Bytes of memory for those that are not whole yet.
  uint64_t seconds = 0;  ///< How long it keeps them.
  uint64_t refused = 0;  ///< Fragments that found no memory since the start of the system.
  uint64_t used = 0;     ///< Bytes of the memory that hold some now.
};
std::optional<Reassembly> ReadReassembly();

/// The rules of the firewall as the system lists them; nothing: they may not be read, or there is none.
std::optional<std::string> FirewallRules();

/// What a person types on this system to mend something; empty: there is no such command.
struct NetworkCommands {
  std::string allowMulticast;
  std::string setUsualMtu;  ///< 1500.
  std::string routeGroups;
  std::string listPorts;  ///< With the programs that hold them.
};
NetworkCommands CommandsFor(const std::string& interfaceName);

/// Whether this process may do everything.
bool IsPrivileged();

}  // namespace quorl::cli
