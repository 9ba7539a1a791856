#include "cli/network.h"

#include <fmt/format.h>

#include "cli/units.h"

namespace quorl::cli {
namespace {

// What the library takes for 0. Filled in here because the user is told, and because the route depends on the group.
constexpr uint32_t DEFAULT_GROUP = 235u | 9u << 8 | 2u << 16 | 9u << 24;
constexpr uint32_t DEFAULT_PORT = 27001;

}  // namespace

std::string Network::GroupText() const {
  return fmt::format("{}:{}", FormatAddress(group), port);
}

std::string Network::InterfaceText() const {
  return fmt::format("{}{}{}", interface.name, interface.name.empty() ? "" : " ", FormatAddress(interface.address));
}

Network ResolveNetwork(const NetworkOptions& options) {
  Network network;
  network.group = options.group != 0 ? options.group : DEFAULT_GROUP;
  network.port = options.port != 0 ? options.port : DEFAULT_PORT;
  network.interface = ChooseInterface(options.interface, ListInterfaces(), RoutedAddress(network.group));
  return network;
}

Fact NetworkFact(const Network& network) {
  Fact fact("network");
  fact.Add("interface", network.interface.name).Add("address", FormatAddress(network.interface.address));
  fact.Add("reason", network.interface.reason).Add("others", network.interface.others);
  return fact.Add("group", FormatAddress(network.group)).Add("port", network.port).Add("reply_port", network.port + 2);
}

void SayNetwork(Reporter& reporter, const Network& network) {
  std::string others;
  if (!network.interface.others.empty()) {
    others = fmt::format("   (also: {}; choose with --interface)", fmt::join(network.interface.others, ", "));
  }
  reporter.Say(NetworkFact(network),
               fmt::format("Interface  {}, {}{}\nGroup      {}, replies on {}", network.InterfaceText(),
                           network.interface.reason, others, network.GroupText(), network.port + 2));
}

}  // namespace quorl::cli
