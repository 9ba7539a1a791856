// The raw limit of a room: one side sends datagrams of one size to a group as fast as the machine takes them, the
// others count what reaches them. Nothing is read from a file, kept, or asked for again.
//
// limit receive ADDRESS GROUP PORT SIZE          prints how many bytes came, and the seconds from the first to the last
// limit send ADDRESS GROUP PORT SIZE SECONDS HOW HOW: "single", a datagram a call; "batch", sendmmsg; "segments", as
//                                                many as fit into one packet, which the system cuts (UDP_SEGMENT)
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr int RECEIVE_BUFFER = 64 << 20, SEND_BUFFER = 8 << 20;
constexpr size_t BATCH = 64;
/// Bytes of one packet before the system cuts it, and pieces at most (udp(7)).
constexpr size_t LARGEST_PACKET = 65535 - 20 - 8, MOST_SEGMENTS = 64;
/// Says that all is sent; shorter than any datagram that counts, and repeated, as it can be lost.
constexpr char END_MARK = 0;
constexpr int END_MARKS = 20;

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void Check(bool worked, const char* what) {
  if (!worked) Fail(what);
}

template <typename Value>
void SetOption(int socket, int level, int option, const Value& value, const char* name) {
  Check(setsockopt(socket, level, option, &value, sizeof value) == 0, name);
}

struct Room {
  in_addr address{};
  sockaddr_in group{};
  size_t size = 0;
};

/// Datagrams for one system call, with a buffer for each.
class Batch {
 public:
  Batch(size_t size, sockaddr_in* to) : bytes(BATCH * size, 'x'), parts(BATCH), messages(BATCH) {
    for (size_t i = 0; i < BATCH; ++i) {
      parts[i] = {bytes.data() + i * size, size};
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
      messages[i].msg_hdr.msg_name = to;
      messages[i].msg_hdr.msg_namelen = to ? sizeof *to : 0;
    }
  }

  mmsghdr* Messages() { return messages.data(); }
  const char* Bytes() const { return bytes.data(); }

 private:
  std::vector<char> bytes;
  std::vector<iovec> parts;
  std::vector<mmsghdr> messages;
};

void Receive(int socket, const Room& room) {
  SetOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER, "SO_RCVBUFFORCE");
  Check(bind(socket, reinterpret_cast<const sockaddr*>(&room.group), sizeof room.group) == 0, "bind");
  SetOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, ip_mreq{room.group.sin_addr, room.address}, "IP_ADD_MEMBERSHIP");
  std::puts("listening");
  std::fflush(stdout);
  Batch batch(room.size, nullptr);
  size_t count = 0;
  std::chrono::steady_clock::time_point first{}, last{};
  for (bool ended = false; !ended;) {
    const int came = recvmmsg(socket, batch.Messages(), BATCH, MSG_WAITFORONE, nullptr);
    Check(came > 0, "recvmmsg");
    const auto now = std::chrono::steady_clock::now();
    if (count == 0) first = now;
    for (int i = 0; i < came; ++i) {
      if (batch.Messages()[i].msg_len < room.size) {
        ended = true;
      } else {
        ++count;
        last = now;
      }
    }
  }
  std::printf("%zu bytes in %.6f s\n", count * room.size, std::chrono::duration<double>(last - first).count());
}

void Send(int socket, Room room, std::chrono::duration<double> duration, const std::string& how) {
  SetOption(socket, SOL_SOCKET, SO_SNDBUFFORCE, SEND_BUFFER, "SO_SNDBUFFORCE");
  SetOption(socket, IPPROTO_IP, IP_MULTICAST_IF, room.address, "IP_MULTICAST_IF");
  const auto* to = reinterpret_cast<const sockaddr*>(&room.group);
  const size_t segments = std::min({LARGEST_PACKET / room.size, MOST_SEGMENTS, BATCH});
  const auto setSegment = [&](size_t size) {
    SetOption(socket, IPPROTO_UDP, UDP_SEGMENT, static_cast<int>(size), "UDP_SEGMENT");
  };
  if (how == "segments") setSegment(room.size);
  Batch batch(room.size, &room.group);
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
    if (how == "batch") {
      Check(sendmmsg(socket, batch.Messages(), BATCH, 0) > 0, "sendmmsg");
    } else {
      const size_t count = how == "segments" ? segments : 1;
      Check(sendto(socket, batch.Bytes(), count * room.size, 0, to, sizeof room.group) > 0, "sendto");
    }
  }
  if (how == "segments") setSegment(0);
  for (int i = 0; i < END_MARKS; ++i) {
    std::this_thread::sleep_for(5ms);
    Check(sendto(socket, &END_MARK, sizeof END_MARK, 0, to, sizeof room.group) > 0, "sendto");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const bool receives = words.size() == 5 && words[0] == "receive";
  if (!receives && !(words.size() == 7 && words[0] == "send")) {
    std::fputs("usage: limit receive ADDRESS GROUP PORT SIZE | send ADDRESS GROUP PORT SIZE SECONDS HOW\n", stderr);
    return 2;
  }
  Room room;
  inet_pton(AF_INET, words[1].c_str(), &room.address);
  inet_pton(AF_INET, words[2].c_str(), &room.group.sin_addr);
  room.group.sin_family = AF_INET;
  room.group.sin_port = htons(static_cast<uint16_t>(std::stoul(words[3])));
  room.size = std::stoul(words[4]);
  const int opened = socket(AF_INET, SOCK_DGRAM, 0);
  Check(opened >= 0, "socket");
  if (receives) {
    Receive(opened, room);
  } else {
    Send(opened, room, std::chrono::duration<double>(std::stod(words[5])), words[6]);
  }
}
