// Lies that get past the first look: a datagram of random bytes would be dropped for its magic and test nothing. So
// nearly everything here is well formed, and false in one or two places, starting from what was really said.
#include "sim/room/attacker.h"

#include <array>

#include "protocol/endpoints.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint32_t ADDRESS = Ipv4(10, 0, 200, 9);

}  // namespace

Attacker::Attacker(Room& room, uint64_t seed, bool forgesSources)
    : Peer(room.World(), "attacker", ADDRESS),
      room(room),
      random(Mix(seed ^ ADDRESS)),
      forgesSources(forgesSources),
      group(RoomAddress{}.group),
      reply{room.Sender().Address(), RoomAddress{}.ReplyPort()} {}

void Attacker::Begin() {
  machine.Spawn("attack", [this] { Run(); });
}

void Attacker::Run() {
  const auto socket = machine.Seam().network.OpenDatagramSocket();
  socket->SetReuseAddress();
  socket->Bind({0, group.port});
  socket->JoinGroup(group.address, 0);
  const uint64_t longestPause = 1 + Below(200);
  while (!over) {
    Listen(*socket);
    for (uint64_t i = Below(4); i > 0; --i) Below(3) == 0 ? LieToSender() : LieToReceivers();
    machine.Seam().clock.Sleep(std::chrono::milliseconds(1 + Below(longestPause)));
  }
}

void Attacker::Listen(DatagramSocket& socket) {
  std::array<uint8_t, MAX_EMPTY_DIR_DATAGRAM> buffer;
  for (;;) {
    const Received received = socket.Receive(buffer, Duration::zero(), nullptr);
    if (received.outcome != Received::Outcome::Datagram) return;
    if (received.from.address != ADDRESS) Learn(std::span(buffer).first(received.length), received.from);
  }
}

void Attacker::Learn(std::span<const uint8_t> datagram, Endpoint from) {
  const FromSender message = ParseFromSender(datagram);
  if (std::holds_alternative<Reject>(message)) return;
  latest.assign(datagram.begin(), datagram.end());
  knownSender = from;
  if (const auto* task = std::get_if<quorl::Task>(&message)) knownTask = *task;
  if (const auto* data = std::get_if<Data>(&message)) knownHead = data->head;
  if (const auto* resend = std::get_if<Resend>(&message)) knownHead = resend->head;
  if (const auto* poll = std::get_if<Poll>(&message)) knownPoll = *poll;
}

void Attacker::LieToReceivers() {
  const Endpoint to = Below(8) == 0 ? AnyReceiver() : group;
  const auto bit = [this] { return static_cast<uint8_t>(Below(2)); };
  std::vector<NameField> names;
  switch (Below(16)) {
    case 0:
    case 1: return Tell(False(False(knownTask.value_or(quorl::Task{}))), to, knownSender);
    case 2: return Tell(Finish{}, to, knownSender);
    case 3: return Tell(Stop{}, to, knownSender);
    case 4: return Tell(ServerOs{bit()}, to, knownSender);
    case 5: return Tell(AutoOpenName{NameField::From(FalseName())}, to, knownSender);
    case 6:
      for (uint64_t i = Below(41); i > 0; --i) names.push_back(NameField::From(FalseName()));
      return Send(BuildEmptyDir(names), to, knownSender);
    case 7:
    case 8: return Tell(Master{bit()}, AnyReceiver(), knownSender);
    case 9: return Tell(Release{bit(), bit()}, AnyReceiver(), knownSender);
    case 10: return Garble();
    case 11: return knownPoll ? Tell(False(*knownPoll), to, knownSender) : Garble();
    case 12:
    case 13: return knownPoll ? LieAboutSymbol() : LieAboutBlock();
    default: return LieAboutBlock();
  }
}

void Attacker::LieAboutBlock() {
  BlockHead head = False(knownHead.value_or(BlockHead{.file = 1, .name = NameField::From("\\a")}));
  const bool isData = Below(2) == 0;
  head.firstSending = isData ? 1 : 0;
  const Bytes bytes(Below(4) == 0 ? Below(BLOCK_SIZE) : BLOCK_SIZE, static_cast<uint8_t>(Below(256)));
  Send(BuildBlock(isData ? CMD_DATA : CMD_RESEND, head, bytes), group, knownSender);
}

void Attacker::LieAboutSymbol() {
  const auto head =
      Build(SymbolHead{knownPoll->transfer, static_cast<uint32_t>(Below(2) == 0 ? Below(8) : FalseNumber(0)),
                       static_cast<uint8_t>(Below(256))});
  std::vector<uint8_t> datagram(head.begin(), head.end());
  datagram.resize(head.size() + (Below(4) == 0 ? Below(SYMBOL_SIZE + 9) : SYMBOL_SIZE),
                  static_cast<uint8_t>(Below(256)));
  Send(std::move(datagram), group, knownSender);
}

void Attacker::LieAboutLacks() {
  Lacks lacks{{.transfer = knownPoll->transfer,
               .round = static_cast<uint32_t>(Below(2) == 0 ? knownPoll->round : FalseNumber(knownPoll->round)),
               .endGroup = FalseNumber(knownPoll->endGroup)},
              {}};
  for (uint64_t i = Below(MOST_LACKS); i > 0; --i)
    lacks.groups.push_back({static_cast<uint32_t>(lacks.groups.size()), static_cast<uint8_t>(Below(256))});
  Send(BuildLacks(lacks), reply, AnyReceiver());
}

void Attacker::Garble() {
  if (latest.empty()) return;
  std::vector<uint8_t> datagram = latest;
  for (uint64_t i = 1 + Below(3); i > 0; --i)
    datagram[Below(std::min<uint64_t>(datagram.size(), BLOCK_HEAD_SIZE))] = static_cast<uint8_t>(Below(256));
  if (Below(4) == 0) datagram.resize(1 + Below(datagram.size()));
  Send(std::move(datagram), group, knownSender);
}

void Attacker::LieToSender() {
  const uint32_t files = knownTask ? knownTask->fileCount : 1;
  if (knownPoll && Below(2) == 0) return LieAboutLacks();
  switch (Below(4)) {
    case 0: return Tell(Client{static_cast<uint8_t>(Below(2))}, reply, AnyReceiver());
    case 1: return Tell(Ack{FalseNumber(files), FalseNumber(knownHead ? knownHead->block : 0)}, reply, AnyReceiver());
    case 2: return Tell(Finish{static_cast<uint16_t>(Below(3) == 0 ? Below(65536) : 0)}, reply, AnyReceiver());
    default: return Tell(Answer{FalseNumber(0)}, reply, AnyReceiver());
  }
}

std::string Attacker::FalseName() {
  if (Below(8) == 0) return std::string(Below(600), static_cast<char>('a' + Below(26)));
  return FALSE_NAMES[Below(std::size(FALSE_NAMES))];
}

uint32_t Attacker::FalseNumber(uint32_t truth) {
  switch (Below(6)) {
    case 0: return truth;
    case 1: return truth + 1;
    case 2: return truth - 1;
    case 3: return 0;
    case 4: return static_cast<uint32_t>(Below(UINT32_MAX));
    default: return UINT32_MAX;
  }
}

Endpoint Attacker::AnyReceiver() {
  return {room.Receiver(Below(room.Receivers())).Address(), group.port};
}

void Attacker::Send(std::vector<uint8_t> datagram, Endpoint to, Endpoint pretended) {
  ++lies;
  const bool forges = forgesSources && Below(2) == 0 && pretended.address != 0;
  Say(forges ? pretended : Endpoint{ADDRESS, group.port}, to, datagram);
}

}  // namespace quorl::sim
