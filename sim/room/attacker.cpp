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
  switch (Below(knownPoll ? 6 : 4)) {
    case 0: return LieAboutTransfer();
    case 1: return LieAboutMaster();
    case 2: return LieAboutBlock();
    case 3: return LieAboutSymbol();
    case 4: return LieAboutPoll();
    default: return Garble();
  }
}

void Attacker::LieAboutTransfer() {
  quorl::Task task = knownTask.value_or(quorl::Task{});
  switch (Below(7)) {
    case 0:
      task.totalBlocks = FalseNumber(task.totalBlocks);
      task.fileCount = FalseNumber(task.fileCount);
      return SendToGroup(task);
    case 1:
      task.targetFolder = FalseNumber(0xFFFFFFFF);
      task.targetPath = NameField::From(FalseName());
      return SendToGroup(task);
    case 2: return SendToGroup(Finish{});
    case 3: return SendToGroup(Stop{});
    case 4: return SendToGroup(ServerOs{static_cast<uint8_t>(Below(2))});
    case 5: return SendToGroup(AutoOpenName{NameField::From(FalseName())});
    default: break;
  }
  std::vector<NameField> names;
  for (uint64_t i = Below(41); i > 0; --i) names.push_back(NameField::From(FalseName()));
  Send(BuildEmptyDir(names), group, knownSender);
}

void Attacker::LieAboutMaster() {
  const Endpoint to = Below(4) == 0 ? group : AnyReceiver();
  if (Below(2) == 0) {
    const auto datagram = Build(Master{static_cast<uint32_t>(Below(2))});
    return Send({datagram.begin(), datagram.end()}, to, knownSender);
  }
  const auto datagram = Build(Release{static_cast<uint8_t>(Below(2)), static_cast<uint8_t>(Below(2))});
  Send({datagram.begin(), datagram.end()}, to, knownSender);
}

BlockHead Attacker::FalseHead() {
  BlockHead head = knownHead.value_or(BlockHead{.file = 1, .name = NameField::From("\\a")});
  switch (Below(6)) {
    case 0: head.file = FalseNumber(head.file); break;
    case 1: head.block = FalseNumber(head.block); break;
    case 2: head.lastBlock = FalseNumber(head.lastBlock); break;
    case 3: head.tailSize = static_cast<uint16_t>(Below(2) == 0 ? Below(BLOCK_SIZE) : Below(65536)); break;
    case 4: head.name = NameField::From(FalseName()); break;
    default: break;  // True in everything but the bytes.
  }
  return head;
}

void Attacker::LieAboutBlock() {
  BlockHead head = FalseHead();
  const bool isData = Below(2) == 0;
  head.firstSending = isData ? 1 : 0;
  const Bytes bytes(Below(4) == 0 ? Below(BLOCK_SIZE) : BLOCK_SIZE, static_cast<uint8_t>(Below(256)));
  Send(BuildBlock(isData ? CMD_DATA : CMD_RESEND, head, bytes), group, knownSender);
}

void Attacker::LieAboutPoll() {
  Poll poll = knownPoll.value_or(Poll{});
  switch (Below(6)) {
    case 0: poll.transfer = FalseNumber(poll.transfer); break;
    case 1: poll.round = FalseNumber(poll.round); break;
    case 2:
      poll.firstGroup = FalseNumber(poll.firstGroup);
      poll.endGroup = FalseNumber(poll.endGroup);
      break;
    case 3: poll.catalogueLength = FalseNumber(poll.catalogueLength); break;
    case 4: poll.spread = static_cast<uint16_t>(Below(65536)); break;
    default:
      poll.totalBlocks = FalseNumber(poll.totalBlocks);
      poll.fileCount = FalseNumber(poll.fileCount);
      break;
  }
  SendToGroup(poll);
}

void Attacker::LieAboutSymbol() {
  if (!knownPoll) return LieAboutBlock();
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
    case 0: return SendToSender(Client{static_cast<uint8_t>(Below(2))});
    case 1: return SendToSender(Ack{FalseNumber(files), FalseNumber(knownHead ? knownHead->block : 0)});
    case 2: return SendToSender(Finish{static_cast<uint16_t>(Below(3) == 0 ? Below(65536) : 0)});
    default: return SendToSender(Answer{FalseNumber(0)});
  }
}

std::string Attacker::FalseName() {
  static const std::array<const char*, 12> NAMES = {"\\..\\outside",
                                                    "\\a\\..\\..\\outside",
                                                    "..",
                                                    "C:\\Windows\\outside",
                                                    "\\",
                                                    "/etc/passwd",
                                                    "\\.?.\\outside",
                                                    "\\..?\\x",
                                                    "",
                                                    "\\\\host\\share",
                                                    "\\a\x1b[2J",
                                                    "D:outside"};
  if (Below(8) == 0) return std::string(Below(600), static_cast<char>('a' + Below(26)));
  return NAMES[Below(NAMES.size())];
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
