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

void SayInterface(Console& console, const Network& network) {
  std::string others;
  for (const std::string& other : network.interface.others) others += (others.empty() ? "" : ", ") + other;
  if (!others.empty()) others = fmt::format("   (also: {}; choose with --interface)", others);
  console.Say(fmt::format("Interface  {}, {}{}", network.InterfaceText(), network.interface.reason, others));
}

}  // namespace quorl::cli
