#pragma once

#include <cstdint>
#include <string>

#include "cli/interfaces.h"
#include "cli/options.h"
#include "cli/reporter.h"

namespace quorl::cli {

/// Where a transfer takes place: what the options say, with every default filled in.
struct Network {
  uint32_t group = 0;
  uint32_t port = 0;
  InterfaceChoice interface;

  std::string GroupText() const;      ///< "235.9.2.9:27001".
  std::string InterfaceText() const;  ///< "eth0 192.168.1.10".
};

/// Throws a Failure when the interface cannot be used.
Network ResolveNetwork(const NetworkOptions& options);

Fact NetworkFact(const Network& network);

/// Says which interface is used and why, what else there is, and the group with its ports.
void SayNetwork(Reporter& reporter, const Network& network);

}  // namespace quorl::cli
