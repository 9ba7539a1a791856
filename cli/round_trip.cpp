#include "cli/round_trip.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace quorl::cli {
namespace {

constexpr size_t FULL_DATAGRAM = 4796;
constexpr int PATIENCE_MS = 500;

class Socket {
 public:
  Socket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (descriptor >= 0) close(descriptor);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  template <class Value>
  bool Set(int level, int option, const Value& value) const {
    return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
  }

  const int descriptor;
};

sockaddr_in Place(uint32_t address, uint32_t port) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = address;
  place.sin_port = htons(static_cast<uint16_t>(port));
  return place;
}

/// The errno of what failed, or 0.
int Send(const Socket& sender, const sockaddr_in& to, uint32_t localInterface) {
  // A time to live of 0 keeps it on this machine.
  bool ready = sender.Set(IPPROTO_IP, IP_MULTICAST_IF, in_addr{localInterface}) &&
               sender.Set(IPPROTO_IP, IP_MULTICAST_LOOP, 1) && sender.Set(IPPROTO_IP, IP_MULTICAST_TTL, 0);
  std::array<char, FULL_DATAGRAM> datagram{};
  if (!ready) return errno;
  ssize_t sent =
      sendto(sender.descriptor, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  return sent == static_cast<ssize_t>(datagram.size()) ? 0 : errno;
}

bool Arrives(const Socket& receiver) {
  pollfd waited{receiver.descriptor, POLLIN, 0};
  std::array<char, FULL_DATAGRAM + 1> datagram{};
  // Others may speak on the group; theirs are not so empty, nor in an endless row.
  for (int tries = 0; tries < 100 && poll(&waited, 1, PATIENCE_MS) > 0; ++tries) {
    ssize_t length = recv(receiver.descriptor, datagram.data(), datagram.size(), 0);
    if (length == static_cast<ssize_t>(FULL_DATAGRAM) && datagram[0] == 0) return true;
  }
  return false;
}

}  // namespace

Finding TryRoundTrip(uint32_t group, uint32_t port, uint32_t localInterface) {
  sockaddr_in place = Place(group, port);
  Socket receiver;
  Socket sender;
  ip_mreqn membership{};
  membership.imr_multiaddr.s_addr = group;
  membership.imr_address.s_addr = localInterface;
  receiver.Set(SOL_SOCKET, SO_REUSEADDR, 1);
  if (bind(receiver.descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
    return {Severity::Fault,
            "round trip",
            fmt::format("port {} cannot be used: {}", port, std::strerror(errno)),
            {"Which program holds it: ss -ulpn", "Or another --port, the same on all machines."}};
  }
  if (!receiver.Set(IPPROTO_IP, IP_ADD_MEMBERSHIP, membership)) {
    return {Severity::Fault,
            "round trip",
            fmt::format("the group cannot be joined: {}", std::strerror(errno)),
            {"Another: --interface NAME"}};
  }
  if (int error = Send(sender, place, localInterface); error != 0) {
    return {Severity::Fault,
            "round trip",
            fmt::format("a datagram of {} bytes cannot be sent to the group: {}", FULL_DATAGRAM, std::strerror(error)),
            {"A firewall of this machine may forbid it, or the interface has no route."}};
  }
  if (Arrives(receiver)) {
    return {Severity::Fine, "round trip", fmt::format("{} bytes to the group came back", FULL_DATAGRAM), {}};
  }
  return {Severity::Fault,
          "round trip",
          fmt::format("{} bytes to the group did not come back to this machine", FULL_DATAGRAM),
          {fmt::format("A firewall of this machine most likely drops UDP {}.", port)}};
}

}  // namespace quorl::cli
