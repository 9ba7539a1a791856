#include "cli/system/network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/system/posix/program.h"
#include "platform/posix/descriptor.h"

namespace quorl::cli {
namespace {

sockaddr_in PlaceOf(uint32_t address, uint16_t port) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = address;
  place.sin_port = htons(port);
  return place;
}

template <typename Number = uint64_t>
std::optional<Number> NumberIn(const std::string& path) {
  Number number = 0;
  return std::ifstream(path) >> number ? std::optional(number) : std::nullopt;
}

/// A counter of two lines of a protocol, of which the first holds the names and the second the values; proc(5).
std::optional<uint64_t> SnmpCounter(std::string_view protocol, std::string_view wanted) {
  std::ifstream file("/proc/net/snmp");
  std::string names;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(protocol)) continue;
    if (names.empty()) {
      names = line;
      continue;
    }
    std::istringstream name(names);
    std::istringstream value(line);
    for (std::string left, right; name >> left && value >> right;) {
      if (left == wanted) return std::strtoull(right.c_str(), nullptr, 10);
    }
  }
  return std::nullopt;
}

/// The line "FRAG: inuse 3 memory 12345" of sockstat_seq_show, proc.c of the kernel.
uint64_t FragmentMemory() {
  std::ifstream file("/proc/net/sockstat");
  for (std::string word; file >> word;)
    if (uint64_t datagrams = 0, bytes = 0; word == "FRAG:" && file >> word >> datagrams >> word >> bytes) return bytes;
  return 0;
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
                          (one->ifa_flags & IFF_LOOPBACK) != 0, (one->ifa_flags & IFF_RUNNING) != 0});
  }
  freeifaddrs(list);
  return interfaces;
}

bool HasManyLoopbackAddresses() {
  return true;
}

Device ReadDevice(const std::string& interfaceName) {
  Device device{.name = interfaceName};
  for (const Interface& one : ListInterfaces()) {
    if (one.name != interfaceName) continue;
    // Loopback lacks the flag and carries multicast all the same.
    device.multicast = one.multicast || one.loopback;
    device.loopback = one.loopback;
  }
  const std::string folder = "/sys/class/net/" + interfaceName;
  device.mtu = static_cast<uint32_t>(NumberIn(folder + "/mtu").value_or(0));
  device.carrier = NumberIn(folder + "/carrier").value_or(1) != 0;
  device.speed = static_cast<uint32_t>(std::max<int64_t>(NumberIn<int64_t>(folder + "/speed").value_or(0), 0));
  std::error_code error;
  device.wireless = std::filesystem::exists(folder + "/wireless", error);
  return device;
}

uint32_t RoutedAddress(uint32_t group) {
  const Descriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  // Connecting a datagram socket sends nothing, it only asks for the route.
  sockaddr_in place = PlaceOf(group, 9);
  socklen_t length = sizeof place;
  const bool routed = connect(descriptor.Get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 &&
                      getsockname(descriptor.Get(), reinterpret_cast<sockaddr*>(&place), &length) == 0;
  return routed ? place.sin_addr.s_addr : 0;
}

std::string NameOfAddress(uint32_t address) {
  const sockaddr_in place = PlaceOf(address, 0);
  std::array<char, NI_MAXHOST> name{};
  const bool known = getnameinfo(reinterpret_cast<const sockaddr*>(&place), sizeof place, name.data(), name.size(),
                                 nullptr, 0, NI_NAMEREQD) == 0;
  return known ? name.data() : "";
}

/// A line "2 eth0 : 3 V3" for each device, and behind it one for each of its groups, which begins with the address as a
/// number in hexadecimal; igmp.c of the kernel.
std::vector<std::string> InterfacesListening(uint32_t group) {
  std::vector<std::string> names;
  std::ifstream file("/proc/net/igmp");
  std::string device;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string first;
    words >> first;
    if (line.find(':') != std::string::npos && !line.starts_with('\t')) {
      words >> device;
      if (device.ends_with(':')) device.pop_back();
    } else if (first.size() == 8 && std::strtoul(first.c_str(), nullptr, 16) == group) {
      names.push_back(device);
    }
  }
  return names;
}

std::optional<uint64_t> ReceiveBufferLimit() {
  return NumberIn("/proc/sys/net/core/rmem_max");
}

std::optional<uint64_t> BufferOverflows() {
  return SnmpCounter("Udp:", "RcvbufErrors");
}

std::optional<Reassembly> ReadReassembly() {
  const auto limit = NumberIn("/proc/sys/net/ipv4/ipfrag_high_thresh");
  const auto seconds = NumberIn("/proc/sys/net/ipv4/ipfrag_time");
  const auto failures = SnmpCounter("Ip:", "ReasmFails");
  const auto timeouts = SnmpCounter("Ip:", "ReasmTimeout");
  if (!limit || !seconds || !failures || !timeouts) return std::nullopt;
  // Each datagram that was kept too long has failed as well, and that alone is how lost frames show.
  return Reassembly{*limit, *seconds, *failures - std::min(*failures, *timeouts), FragmentMemory()};
}

std::optional<std::string> FirewallRules() {
  return IsPrivileged() ? OutputOf("nft", {"list", "ruleset"}) : std::nullopt;
}

bool IsPrivileged() {
  return geteuid() == 0;
}

NetworkCommands CommandsFor(const std::string& interfaceName) {
  return {.allowMulticast = "ip link set " + interfaceName + " multicast on",
          .setUsualMtu = "ip link set " + interfaceName + " mtu 1500",
          .routeGroups = "ip route add 224.0.0.0/4 dev " + interfaceName,
          .listPorts = "ss -ulpn"};
}

}  // namespace quorl::cli
