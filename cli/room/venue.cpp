// Which interface, group and ports a transfer uses. Machines have several interfaces, and a silent wrong choice is the
// most common reason why nothing arrives; so the command always passes an address to the library and says which one it
// took.
#include "cli/room/venue.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

// What the library takes for 0. Filled in here because the user is told, and because the route depends on the group.
constexpr uint32_t DEFAULT_GROUP = 235u | 9u << 8 | 2u << 16 | 9u << 24;
constexpr uint32_t DEFAULT_PORT = 27001;

std::vector<std::string> Others(std::span<const Interface> interfaces, uint32_t chosen) {
  std::vector<std::string> others;
  for (const Interface& one : interfaces) {
    if (one.address != chosen && one.multicast && !one.loopback) {
      others.push_back(one.name + " " + FormatAddress(one.address));
    }
  }
  return others;
}

std::string NameOf(std::span<const Interface> interfaces, uint32_t address) {
  for (const Interface& one : interfaces) {
    if (one.address == address) return one.name;
  }
  return (address & 0xFF) == 127 ? "lo" : "";
}

uint32_t FindWanted(const std::string& wanted, std::span<const Interface> interfaces) {
  const auto address = ParseAddress(wanted);
  // Every address 127.x.y.z is this machine, though only one of them is listed.
  if (address && (*address & 0xFF) == 127) return *address;
  for (const Interface& one : interfaces) {
    if (address ? one.address == *address : one.name == wanted) return one.address;
  }
  std::string known;
  for (const Interface& one : interfaces) {
    known += fmt::format("{}{} {}", known.empty() ? "" : ", ", one.name, FormatAddress(one.address));
  }
  throw Failure{Exit::Usage,
                fmt::format("--interface \"{}\" cannot be used", Escape(wanted)),
                "no interface of this machine that is up has that name or IPv4 address",
                {fmt::format("There are: {}", known.empty() ? "none" : known)}};
}

}  // namespace

InterfaceChoice ChooseInterface(const std::string& wanted, std::span<const Interface> interfaces, uint32_t routed) {
  InterfaceChoice choice;
  auto usable = std::find_if(interfaces.begin(), interfaces.end(),
                             [](const Interface& one) { return one.multicast && !one.loopback; });
  if (!wanted.empty()) {
    choice.address = FindWanted(wanted, interfaces);
    choice.reason = "named by --interface";
  } else if (routed != 0 && (routed & 0xFF) != 127) {
    choice.address = routed;
    choice.reason = "the route to the group";
  } else if (usable != interfaces.end()) {
    choice.address = usable->address;
    choice.reason = "no route to the group, the first that can multicast";
  }
  choice.name = NameOf(interfaces, choice.address);
  choice.others = Others(interfaces, choice.address);
  for (const Interface& one : interfaces) {
    if (one.address == choice.address) choice.running = one.running;
  }
  return choice;
}

std::string Venue::GroupText() const {
  return fmt::format("{}:{}", FormatAddress(group), port);
}

std::string Venue::InterfaceText() const {
  return fmt::format("{}{}{}", interface.name, interface.name.empty() ? "" : " ", FormatAddress(interface.address));
}

namespace {

Venue WithoutInterface(const NetworkOptions& options) {
  Venue venue;
  venue.group = options.group != 0 ? options.group : DEFAULT_GROUP;
  venue.port = options.port != 0 ? options.port : DEFAULT_PORT;
  return venue;
}

}  // namespace

Venue LookForVenue(const NetworkOptions& options) {
  Venue venue = WithoutInterface(options);
  try {
    venue.interface = ChooseInterface(options.interface, ListInterfaces(), RoutedAddress(venue.group));
  } catch (const Failure&) {
    // It may come yet.
  }
  return venue;
}

Venue ResolveVenue(const NetworkOptions& options) {
  Venue venue = WithoutInterface(options);
  venue.interface = ChooseInterface(options.interface, ListInterfaces(), RoutedAddress(venue.group));
  if (venue.HasInterface()) return venue;
  throw Failure{Exit::Other,
                "this machine is in no network",
                "no interface but the loopback one is up and has an IPv4 address",
                {"Is the cable plugged in? For this machine alone: --interface lo", "\"quorl doctor\" checks it."}};
}

Fact VenueFact(const Venue& venue) {
  Fact fact("network");
  fact.Add("interface", venue.interface.name).Add("address", FormatAddress(venue.interface.address));
  fact.Add("reason", venue.interface.reason).Add("others", venue.interface.others);
  return fact.Add("group", FormatAddress(venue.group)).Add("port", venue.port).Add("reply_port", venue.port + 2);
}

void SayVenue(Reporter& reporter, const Venue& venue) {
  if (!venue.HasInterface()) {
    reporter.Say(
        VenueFact(venue),
        fmt::format("Interface  none yet; for this machine alone: --interface lo\nGroup      {}", venue.GroupText()));
    return;
  }
  std::string text = fmt::format("Interface  {}, {}", venue.InterfaceText(), venue.interface.reason);
  if (!venue.interface.others.empty()) {
    const std::string others =
        fmt::format("(also: {}; choose with --interface)", fmt::join(venue.interface.others, ", "));
    const bool fits = Columns(text) + 3 + Columns(others) <= reporter.Width();
    text += (fits ? "   " : "\n           ") + others;
  }
  if (!venue.interface.running) text += "\n           It has no link: is the cable plugged in, the switch on?";
  reporter.Say(VenueFact(venue),
               fmt::format("{}\nGroup      {}, replies on {}", text, venue.GroupText(), venue.port + 2));
}

}  // namespace quorl::cli
