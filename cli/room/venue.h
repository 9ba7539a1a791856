#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/options/options.h"
#include "cli/show/reporter.h"
#include "cli/system/network.h"

namespace quorl::cli {

struct InterfaceChoice {
  uint32_t address = 0;
  std::string name;
  std::string reason;               ///< "route to the group", "named by --interface" ...
  std::vector<std::string> others;  ///< "wlan0 192.168.1.77", what --interface could name instead.
  bool running = true;              ///< Has a link.
};

/// Which interface the transfer goes through; without an address when there is none but loopback, which is taken only
/// where it is named. `wanted`: --interface, or empty; `routed`: the address that the routing table gives for the
/// group, or 0. Throws a Failure when `wanted` is nothing of this machine.
InterfaceChoice ChooseInterface(const std::string& wanted, std::span<const Interface> interfaces, uint32_t routed);

/// Where a transfer takes place: what the options say, with every default filled in.
struct Venue {
  uint32_t group = 0;
  uint32_t port = 0;
  InterfaceChoice interface;

  bool HasInterface() const { return interface.address != 0; }
  std::string GroupText() const;      ///< "235.9.2.9:27001".
  std::string InterfaceText() const;  ///< "eth0 192.168.1.10".
};

/// The venue as it is now; without an interface when none can be used yet.
Venue LookForVenue(const NetworkOptions& options);

/// The same; throws a Failure when no interface can be used.
Venue ResolveVenue(const NetworkOptions& options);

Fact VenueFact(const Venue& venue);

/// Says which interface is used and why, what else there is, and the group with its ports.
void SayVenue(Reporter& reporter, const Venue& venue);

}  // namespace quorl::cli
