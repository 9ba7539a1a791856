// Messages of the kernel over rtnetlink(7). They are not read: that there are some is the news, and the state of the
// network is looked up anew.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "cli/system/network.h"
#include "platform/posix/descriptor.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Where the kernel may not be listened to, as in some sandboxes.
constexpr auto BETWEEN_LOOKS = 5s;

}  // namespace

struct NetworkWatch::State {
  Descriptor socket;
  Clock::time_point lookedAt = Clock::now();
};

NetworkWatch::NetworkWatch() : state(std::make_unique<State>()) {
  Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  sockaddr_nl place{};
  place.nl_family = AF_NETLINK;
  place.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0)
    state->socket = std::move(socket);
}

NetworkWatch::~NetworkWatch() = default;

bool NetworkWatch::HasNews() {
  if (!state->socket) {
    if (Clock::now() - state->lookedAt < BETWEEN_LOOKS) return false;
    state->lookedAt = Clock::now();
    return true;
  }
  bool news = false;
  std::array<char, 8192> message{};
  // So many that some got lost are news as well.
  while (recv(state->socket.Get(), message.data(), message.size(), 0) > 0 || errno == ENOBUFS || errno == EINTR) {
    news = true;
    errno = 0;
  }
  return news;
}

}  // namespace quorl::cli
