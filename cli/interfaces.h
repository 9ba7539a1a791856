#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quorl::cli {

/// One IPv4 address of this machine.
struct Interface {
  std::string name;
  uint32_t address = 0;  ///< Network byte order.
  bool multicast = false;
  bool loopback = false;
};

/// The addresses of the interfaces that are up.
std::vector<Interface> ListInterfaces();

struct InterfaceChoice {
  uint32_t address = 0;
  std::string name;
  std::string reason;               ///< "route to the group", "named by --interface" ...
  std::vector<std::string> others;  ///< "wlan0 192.168.1.77", what --interface could name instead.
};

/// Which interface the transfer goes through. `wanted`: --interface, or empty; `routed`: the address that the routing
/// table gives for the group, or 0. Throws a Failure when `wanted` is nothing of this machine.
InterfaceChoice ChooseInterface(const std::string& wanted, std::span<const Interface> interfaces, uint32_t routed);

/// The source address that the routing table gives for datagrams to `group`; 0 when there is no route.
uint32_t RoutedAddress(uint32_t group);

}  // namespace quorl::cli
