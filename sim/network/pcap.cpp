// The capture format with times in nanoseconds: a file header, then for each packet a record header, both in this
// machine's byte order, which readers recognise by the magic. Addresses come in network byte order already.
#include "sim/network/pcap.h"

#include <cstring>
#include <fstream>
#include <vector>

#include "protocol/endpoints.h"

namespace quorl::sim {

namespace {

constexpr uint32_t MAGIC_NANOSECONDS = 0xA1B23C4D;
constexpr uint32_t LINKTYPE_RAW = 101;
constexpr uint32_t SNAPSHOT_BYTES = 65535;
constexpr size_t IP_HEADER = 20, UDP_HEADER = 8;
constexpr uint8_t PROTOCOL_UDP = 17;

using Packet = std::vector<uint8_t>;

template <typename Value>
void Append(Packet& packet, Value value) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
  packet.insert(packet.end(), bytes, bytes + sizeof value);
}

void AppendBig(Packet& packet, size_t value) {
  packet.push_back(static_cast<uint8_t>(value >> 8));
  packet.push_back(static_cast<uint8_t>(value));
}

/// RFC 1071, over 16-bit words in network byte order.
uint32_t Sum(std::span<const uint8_t> bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i) sum += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
  return sum;
}

uint16_t Fold(uint32_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

void Put(Packet& packet, size_t offset, uint16_t value) {
  packet[offset] = static_cast<uint8_t>(value >> 8);
  packet[offset + 1] = static_cast<uint8_t>(value);
}

Packet BuildPacket(const SentDatagram& datagram) {
  const size_t udpBytes = UDP_HEADER + datagram.bytes.size();
  Packet packet{0x45, 0};
  AppendBig(packet, IP_HEADER + udpBytes);
  packet.insert(packet.end(), {0, 0, 0, 0, MULTICAST_TTL, PROTOCOL_UDP, 0, 0});
  Append(packet, datagram.source.address);
  Append(packet, datagram.destination.address);
  Put(packet, 10, Fold(Sum(packet)));
  AppendBig(packet, datagram.source.port);
  AppendBig(packet, datagram.destination.port);
  AppendBig(packet, udpBytes);
  AppendBig(packet, 0);
  packet.insert(packet.end(), datagram.bytes.begin(), datagram.bytes.end());
  // Over a pseudo header as well: both addresses, the protocol, the length.
  const std::span<const uint8_t> all(packet);
  const uint32_t pseudo = Sum(all.subspan(12, 8)) + PROTOCOL_UDP + static_cast<uint32_t>(udpBytes);
  const uint16_t checksum = Fold(pseudo + Sum(all.subspan(IP_HEADER)));
  Put(packet, IP_HEADER + 6, checksum == 0 ? uint16_t{0xFFFF} : checksum);
  return packet;
}

}  // namespace

bool WritePcap(const std::string& path, std::span<const SentDatagram> datagrams) {
  std::ofstream file(path, std::ios::binary);
  const auto write = [&](const Packet& bytes) {
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  };
  Packet header;
  Append(header, MAGIC_NANOSECONDS);
  Append(header, uint16_t{2});
  Append(header, uint16_t{4});
  Append(header, uint64_t{0});
  Append(header, SNAPSHOT_BYTES);
  Append(header, LINKTYPE_RAW);
  write(header);
  for (const SentDatagram& datagram : datagrams) {
    const Packet packet = BuildPacket(datagram);
    const auto nanoseconds = static_cast<uint64_t>(datagram.at.count());
    Packet record;
    Append(record, static_cast<uint32_t>(nanoseconds / 1'000'000'000));
    Append(record, static_cast<uint32_t>(nanoseconds % 1'000'000'000));
    Append(record, static_cast<uint32_t>(packet.size()));
    Append(record, static_cast<uint32_t>(packet.size()));
    write(record);
    write(packet);
  }
  return static_cast<bool>(file.flush());
}

}  // namespace quorl::sim
