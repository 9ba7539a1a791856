// Floods a room with datagrams as fast as the machine sends them: random bytes, and what is nearly valid, made from
// what the room itself says. To the group, to each receiver, and to the sender's port for replies.
//
// flooder INTERFACE GROUP PORT SECONDS SENDER RECEIVER...
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "protocol/datagrams.h"

namespace {

using namespace quorl;

sockaddr_in At(const char* address, int port) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address, &at.sin_addr);
  return at;
}

int OpenSocket(const sockaddr_in& interface, const sockaddr_in& group, bool listens) {
  const int opened = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  const int on = 1;
  setsockopt(opened, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(opened, IPPROTO_IP, IP_MULTICAST_IF, &interface.sin_addr, sizeof interface.sin_addr);
  const ip_mreq membership{group.sin_addr, interface.sin_addr};
  if (listens) setsockopt(opened, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);
  const auto& local = listens ? group : interface;
  if (bind(opened, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) std::perror("bind");
  return opened;
}

class Flooder {
 public:
  Flooder(int out, int in) : out(out), in(in) {}

  void Run(std::chrono::seconds duration, const std::vector<sockaddr_in>& targets) {
    const auto end = std::chrono::steady_clock::now() + duration;
    uint64_t sent = 0, bytes = 0;
    while (std::chrono::steady_clock::now() < end) {
      Listen();
      for (int i = 0; i < 64; ++i) {
        const auto datagram = Make();
        const sockaddr_in& to = targets[random() % targets.size()];
        const ssize_t length =
            sendto(out, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        if (length < 0) continue;
        ++sent;
        bytes += datagram.size();
      }
    }
    std::printf("%llu datagrams, %llu bytes in %lld s\n", static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(bytes), static_cast<long long>(duration.count()));
  }

 private:
  void Listen() {
    std::vector<uint8_t> heard(MAX_EMPTY_DIR_DATAGRAM);
    const ssize_t length = recv(in, heard.data(), heard.size(), 0);
    if (length < 3) return;
    heard.resize(static_cast<size_t>(length));
    samples[random() % samples.size()] = heard;
  }

  std::vector<uint8_t> Make() {
    if (random() % 4 == 0) {
      std::vector<uint8_t> noise(random() % (random() % 16 == 0 ? 65000 : 1400));
      for (uint8_t& byte : noise) byte = static_cast<uint8_t>(random());
      return noise;
    }
    if (random() % 3 == 0) return Reply();
    std::vector<uint8_t> datagram = samples[random() % samples.size()];
    if (datagram.empty()) return Reply();
    for (auto i = random() % 3; i > 0; --i)
      datagram[2 + random() % std::min<size_t>(datagram.size() - 2, 40)] = static_cast<uint8_t>(random());
    if (random() % 8 == 0) datagram.resize(1 + random() % datagram.size());
    return datagram;
  }

  /// What receivers say, and short commands of a sender.
  std::vector<uint8_t> Reply() {
    std::vector<uint8_t> datagram(3 + random() % 9);
    for (uint8_t& byte : datagram) byte = static_cast<uint8_t>(random() % 4);
    WriteHeader(static_cast<Command>(1 + random() % 15), datagram);
    return datagram;
  }

  const int out, in;
  std::minstd_rand random{1};
  std::vector<std::vector<uint8_t>> samples = std::vector<std::vector<uint8_t>>(32);
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 7) return 2;
  const sockaddr_in interface = At(arguments[1], 0);
  const int port = static_cast<int>(std::strtol(arguments[3], nullptr, 10));
  const sockaddr_in group = At(arguments[2], port);
  std::vector<sockaddr_in> targets{group, group, At(arguments[5], port + 2)};
  for (int i = 6; i < count; ++i) targets.push_back(At(arguments[i], port));
  Flooder flooder(OpenSocket(interface, group, false), OpenSocket(interface, group, true));
  flooder.Run(std::chrono::seconds(std::strtol(arguments[4], nullptr, 10)), targets);
}
