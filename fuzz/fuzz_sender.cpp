// A whole sender on a simulated machine, in virtual time, whose receivers and strangers answer anything at any moment,
// while its host stops and starts it and its files change. Whatever they say: what leaves is true, goes to whom it
// concerns, no more often than it was asked for, and there is an end.
#include <set>

#include "fuzz/fuzz_room.h"
#include "sender/ctrans_server.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr Endpoint REPLIES{fuzz::SENDER, RoomAddress{}.ReplyPort()};
constexpr uint8_t HONEST_RECEIVERS = 3;

class Session : fuzz::FuzzRoom {
 public:
  explicit Session(fuzz::Input sessionInput) : FuzzRoom(sessionInput, fuzz::SENDER) {
    const uint32_t options = input.Take<uint8_t>();
    profile = options % 2 == 0 ? Profile::Robust : Profile::Classic;
    server.SetProfile(profile);
    isYoung = profile == Profile::Robust && options % 16 >= 8;
    server.SetCapabilities(isYoung ? 1 : 0);
    server.SetSendRate(options % 4 < 2 ? 0 : 20'000);
    for (const sim::PeerFile& file : files) machine.Disk().Write("C:" + file.name, file.content);
    world.Net().SetTap([this](const sim::SentDatagram& sent) {
      if (sent.from == &machine) Check(sent);
    });
  }

  void Run() {
    for (uint8_t i = 0; i < HONEST_RECEIVERS; ++i) world.At(150ms, [this, i] { Reply(Build(Client{1}), Peer(i)); });
    machine.Call([&] { MUST(server.InitServer(machine.MakeWindow(), 0, 0, fuzz::SENDER) == 1); });
    server.SetSubDirTrans(1);
    MUST(server.SetSelectFiles({"C:\\data"}, "") == 1);
    Start();
    while (!input.IsEmpty()) Step();
    // The stream, and two turns for every receiver that falls silent.
    const Duration limit = 30s + 10s * static_cast<int>(clients.size());
    const auto hasEnded = [&] { return server.GetState().phase == SendPhase::Ended; };
    if (profile == Profile::Robust) MUST(world.RunUntil(hasEnded, limit));
    machine.Call([&] { server.DeInitServer(); });
    CheckIsEmpty();
  }

 private:
  /// One of the receivers, or somebody who has never been heard of.
  static Endpoint Peer(uint8_t number) { return {Ipv4(10, 0, 1, number), DEFAULT_PORT}; }

  void Step() {
    switch (input.Below(16)) {
      case 14: HostActs(); break;
      case 15: FileChanges(); break;
      default: Answer();
    }
    static constexpr Duration PAUSES[] = {0ms, 0ms, 1ms, 10ms, 100ms, 600ms, 2000ms, 10000ms};
    world.RunFor(PAUSES[input.Below(8)]);
  }

  void Answer() {
    const uint32_t who = input.Below(12);
    const Endpoint peer = Peer(who < 10 ? static_cast<uint8_t>(who % 4) : input.Take<uint8_t>());
    switch (input.Below(isYoung ? 9 : 6)) {
      case 6: return Reply(Build(Accept{.session = OurSession(), .instance = input.Below(3)}), peer);
      case 7:
      case 8: return Write(peer);
      case 0: return Reply(Build(Client{static_cast<uint8_t>(input.Below(2))}), peer);
      case 1:
      case 2: return Reply(Build(Ack{input.Number(), input.Number()}), peer);
      case 3: return Reply(Build(Finish{static_cast<uint16_t>(input.Below(3) == 0 ? input.Number() : 0)}), peer);
      case 4: return Reply(Build(quorl::Answer{input.Number()}), peer);
      default: return Reply(input.TakeBytes(input.Below(20)), peer);
    }
  }

  void Reply(std::span<const uint8_t> datagram, Endpoint from) {
    const FromReceiver reply = ParseFromReceiver(datagram);
    if (std::holds_alternative<Client>(reply)) clients.insert(from.address);
    if (std::holds_alternative<Ack>(reply)) ++requests;
    room.Say(from, REPLIES, datagram);
  }

  void HostActs() {
    uint32_t errInfo[401];
    switch (input.Below(4)) {
      case 0: return machine.Call([&] { server.StopSend(); });
      case 1: return Start();
      default: server.GetState(); server.GetErrInfo(errInfo);
    }
  }

  void Start() {
    machine.Call([&] { server.StartSend(); });
  }

  void FileChanges() {
    const sim::PeerFile& file = files[input.Below(3)];
    hasChangedFiles = true;
    if (input.Below(2) == 0) return machine.Disk().Remove("C:" + file.name);
    machine.Disk().Write("C:" + file.name, std::span(file.content).first(input.Below(6)));
  }

  uint32_t OurSession() { return input.Below(4) == 0 ? input.Number() : session; }

  void Write(Endpoint peer) {
    const auto text = input.TakeBytes(input.Below(40));
    Reply(
        BuildText(Letter{.session = OurSession(), .instance = input.Below(3), .number = input.Below(8), .text = text}),
        peer);
    while (const auto letter = server.TakeLetter())
      MUST(clients.contains(letter->address) && letter->text.size() <= 40);
  }

  // ---- what leaves ----

  void Check(const sim::SentDatagram& sent) {
    if (sent.destination == REPORT_GROUP) return MUST(IsReport(sent.bytes));
    const auto command = static_cast<Command>(sent.bytes.at(2));
    if (command == CMD_OFFER) session = std::get<Offer>(ParseFromSender(sent.bytes)).session;
    if (command == CMD_HEARD || command == CMD_UNDERWAY) {
      MUST(isYoung && !std::holds_alternative<Reject>(ParseReply(sent.bytes)));
      return MUST(sent.destination.address != fuzz::GROUP.address);
    }
    if (command == CMD_DATA || command == CMD_RESEND) {
      CheckBlock(sent, command);
    } else {
      MUST(!std::holds_alternative<Reject>(ParseFromSender(sent.bytes)));
    }
    // Only who has answered is named, and in the robust profile released; classic releases whoever asks.
    const bool isRelease = command == CMD_RELEASE;
    if (command != CMD_MASTER && !isRelease) MUST(sent.destination == fuzz::GROUP);
    if (command == CMD_MASTER || (isRelease && profile == Profile::Robust))
      MUST(clients.contains(sent.destination.address));
    // Nothing is served twice for one request, but by the classic watchdog, which looks every half second.
    answers += command == CMD_RESEND || isRelease ? 1 : 0;
    const auto bySelf = profile == Profile::Classic ? static_cast<uint64_t>(world.Now() / 500ms) : 0;
    MUST(answers <= requests + bySelf);
  }

  /// To the last byte what a fresh buffer would hold: nothing of an earlier block, name or anything else.
  void CheckBlock(const sim::SentDatagram& sent, Command command) const {
    MUST(sent.bytes.size() >= BLOCK_HEAD_SIZE);
    BlockHead head = ReadFields<BlockHead>(sent.bytes);
    const auto file = std::ranges::find(files, head.name.Text(), &sim::PeerFile::name);
    MUST(file != files.end());
    const size_t count = sent.bytes.size() - BLOCK_HEAD_SIZE;
    const auto bytes = file->BytesAt(head.block);
    MUST(hasChangedFiles ? count <= bytes.size() : count == bytes.size() && head.Shape() == file->Shape());
    head.firstSending = command == CMD_DATA ? 1 : 0;
    head.name = NameField::From(file->name);
    MUST(sent.bytes == sim::BuildBlock(command, head, bytes.first(count)));
  }

  Profile profile = Profile::Classic;
  CTransServer server{machine.Seam()};
  std::set<uint32_t> clients;
  bool isYoung = false;  ///< Offers something.
  uint32_t session = 0;
  bool hasChangedFiles = false;
  uint64_t requests = 0;
  uint64_t answers = 0;
};

}  // namespace

void fuzz::Run(Input input) {
  Session(input).Run();
}

}  // namespace quorl
