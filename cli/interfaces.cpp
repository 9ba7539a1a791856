// Which interface a transfer uses. Machines have several, and a silent wrong choice is the most common reason why
// nothing arrives; so the command always passes an address to the library and says which one it took.
#include "cli/interfaces.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "cli/escape.h"
#include "cli/outcome.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

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
  in_addr address{};
  bool isAddress = inet_pton(AF_INET, wanted.c_str(), &address) == 1;
  // Every address 127.x.y.z is this machine, though only one of them is listed.
  if (isAddress && (address.s_addr & 0xFF) == 127) return address.s_addr;
  for (const Interface& one : interfaces) {
    if (isAddress ? one.address == address.s_addr : one.name == wanted) return one.address;
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

std::vector<Interface> ListInterfaces() {
  std::vector<Interface> interfaces;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return interfaces;
  for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET || (one->ifa_flags & IFF_UP) == 0) continue;
    const auto* address = reinterpret_cast<const sockaddr_in*>(one->ifa_addr);
    interfaces.push_back({one->ifa_name, address->sin_addr.s_addr, (one->ifa_flags & IFF_MULTICAST) != 0,
                          (one->ifa_flags & IFF_LOOPBACK) != 0});
  }
  freeifaddrs(list);
  return interfaces;
}

InterfaceChoice ChooseInterface(const std::string& wanted, std::span<const Interface> interfaces, uint32_t routed) {
  InterfaceChoice choice;
  auto usable = std::find_if(interfaces.begin(), interfaces.end(),
                             [](const Interface& one) { return one.multicast && !one.loopback; });
  if (!wanted.empty()) {
    choice.address = FindWanted(wanted, interfaces);
    choice.reason = "named by --interface";
  } else if (routed != 0) {
    choice.address = routed;
    choice.reason = "the route to the group";
  } else if (usable != interfaces.end()) {
    choice.address = usable->address;
    choice.reason = "no route to the group, the first that can multicast";
  } else {
    choice.address = htonl(INADDR_LOOPBACK);
    choice.reason = "no other interface, this machine alone";
  }
  choice.name = NameOf(interfaces, choice.address);
  choice.others = Others(interfaces, choice.address);
  return choice;
}

uint32_t RoutedAddress(uint32_t group) {
  int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return 0;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = group;
  address.sin_port = htons(9);  // connecting a datagram socket sends nothing, it only asks for the route
  socklen_t length = sizeof address;
  bool routed = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  close(descriptor);
  return routed ? address.sin_addr.s_addr : 0;
}

}  // namespace quorl::cli
