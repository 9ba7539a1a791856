#include "cli/system/network.h"

#include "platform/win32/datagram_socket.h"

#include <iphlpapi.h>
#include <shlobj.h>
#include <ws2tcpip.h>

#include <array>

#include "platform/win32/text.h"
#include "platform/win32/waiting.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration BETWEEN_LOOKS = 5s;

constexpr ULONG WIRELESS = 71;  // IEEE 802.11

/// The socket library, for as long as one of its calls needs it.
class Sockets {
 public:
  Sockets() : started(StartSocketLibrary()) {}
  ~Sockets() {
    if (started) WSACleanup();
  }
  Sockets(const Sockets&) = delete;
  Sockets& operator=(const Sockets&) = delete;

 private:
  const bool started;
};

sockaddr_in PlaceOf(uint32_t address, uint16_t port) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = address;
  place.sin_port = htons(port);
  return place;
}

/// Calls `use` with each adapter of this machine.
template <class Use>
void ForEachAdapter(const Use& use) {
  constexpr ULONG FLAGS = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_DNS_SERVER;
  std::vector<std::max_align_t> buffer(1024);
  ULONG size = 0;
  ULONG error = ERROR_BUFFER_OVERFLOW;
  const auto first = [&] { return reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()); };
  for (int tries = 0; tries < 3 && error == ERROR_BUFFER_OVERFLOW; ++tries) {
    size = static_cast<ULONG>(buffer.size() * sizeof buffer[0]);
    error = GetAdaptersAddresses(AF_INET, FLAGS, nullptr, first(), &size);
    if (error == ERROR_BUFFER_OVERFLOW) buffer.resize(size / sizeof buffer[0] + 1);
  }
  if (error != ERROR_SUCCESS) return;
  for (const IP_ADAPTER_ADDRESSES* adapter = first(); adapter != nullptr; adapter = adapter->Next) use(*adapter);
}

bool IsLoopback(const IP_ADAPTER_ADDRESSES& adapter) {
  return adapter.IfType == IF_TYPE_SOFTWARE_LOOPBACK;
}

bool CanMulticast(const IP_ADAPTER_ADDRESSES& adapter) {
  return (adapter.Flags & IP_ADAPTER_NO_MULTICAST) == 0;
}

}  // namespace

std::vector<Interface> ListInterfaces() {
  std::vector<Interface> interfaces;
  ForEachAdapter([&](const IP_ADAPTER_ADDRESSES& adapter) {
    // One without a link is not up here, and its address is of no use.
    if (adapter.OperStatus != IfOperStatusUp) return;
    for (const auto* one = adapter.FirstUnicastAddress; one != nullptr; one = one->Next) {
      const auto* address = reinterpret_cast<const sockaddr_in*>(one->Address.lpSockaddr);
      interfaces.push_back(
          {ToNarrow(adapter.FriendlyName), address->sin_addr.s_addr, CanMulticast(adapter), IsLoopback(adapter)});
    }
  });
  return interfaces;
}

bool HasManyLoopbackAddresses() {
  return false;
}

Device ReadDevice(const std::string& interfaceName) {
  Device device{.name = interfaceName};
  ForEachAdapter([&](const IP_ADAPTER_ADDRESSES& adapter) {
    if (ToNarrow(adapter.FriendlyName) != interfaceName) return;
    device.multicast = CanMulticast(adapter);
    device.loopback = IsLoopback(adapter);
    device.carrier = adapter.OperStatus == IfOperStatusUp;
    device.wireless = adapter.IfType == WIRELESS;
    device.mtu = adapter.Mtu;
    // Of one without a link all bits are set.
    if (adapter.TransmitLinkSpeed != UINT64_MAX)
      device.speed = static_cast<uint32_t>(adapter.TransmitLinkSpeed / 1000000);
  });
  return device;
}

struct NetworkWatch::State {
  Moment nextLook = MonotonicNow() + BETWEEN_LOOKS;
};

NetworkWatch::NetworkWatch() : state(std::make_unique<State>()) {}

NetworkWatch::~NetworkWatch() = default;

// The system tells of addresses and routes one by one; a look at all of them takes less than a millisecond.
bool NetworkWatch::HasNews() {
  const Moment now = MonotonicNow();
  if (now < state->nextLook) return false;
  state->nextLook = now + BETWEEN_LOOKS;
  return true;
}

std::vector<std::string> InterfacesListening(uint32_t group) {
  std::vector<std::string> names;
  ForEachAdapter([&](const IP_ADAPTER_ADDRESSES& adapter) {
    for (const auto* one = adapter.FirstMulticastAddress; one != nullptr; one = one->Next) {
      const auto* address = reinterpret_cast<const sockaddr_in*>(one->Address.lpSockaddr);
      if (address->sin_addr.s_addr == group) names.push_back(ToNarrow(adapter.FriendlyName));
    }
  });
  return names;
}

uint32_t RoutedAddress(uint32_t group) {
  const Sockets sockets;
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (socket == INVALID_SOCKET) return 0;
  // Connecting a datagram socket sends nothing, it only asks for the route.
  sockaddr_in place = PlaceOf(group, 9);
  int length = sizeof place;
  const bool routed = connect(socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 &&
                      getsockname(socket, reinterpret_cast<sockaddr*>(&place), &length) == 0;
  closesocket(socket);
  return routed ? place.sin_addr.s_addr : 0;
}

std::string NameOfAddress(uint32_t address) {
  const Sockets sockets;
  const sockaddr_in place = PlaceOf(address, 0);
  std::array<wchar_t, NI_MAXHOST> name{};
  const bool known = GetNameInfoW(reinterpret_cast<const sockaddr*>(&place), sizeof place, name.data(), name.size(),
                                  nullptr, 0, NI_NAMEREQD) == 0;
  return known ? ToNarrow(name.data()) : "";
}

// Programs get what they ask for, and what a full buffer loses is not counted.
std::optional<uint64_t> ReceiveBufferLimit() {
  return std::nullopt;
}

std::optional<uint64_t> BufferOverflows() {
  return std::nullopt;
}

// It counts what could not be put together, lost frames among them, and does not tell how much memory there is for it.
std::optional<Reassembly> ReadReassembly() {
  return std::nullopt;
}

// They name programs, and what holds for this one depends on the network it is in at the moment.
std::optional<std::string> FirewallRules() {
  return std::nullopt;
}

bool IsPrivileged() {
  return IsUserAnAdmin() != FALSE;
}

NetworkCommands CommandsFor(const std::string& interfaceName) {
  const std::string name = "\"" + interfaceName + "\"";
  return {.allowMulticast = "",
          .setUsualMtu = "netsh interface ipv4 set subinterface " + name + " mtu=1500",
          .routeGroups = "netsh interface ipv4 add route 224.0.0.0/4 " + name,
          .listPorts = "netstat -a -n -o -p UDP"};
}

}  // namespace quorl::cli
