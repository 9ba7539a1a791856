// A whole sender on a simulated machine, in virtual time, whose receivers and strangers answer anything at any moment,
// while its host stops and starts it and its files change. Whatever they say: what leaves is true, goes to whom it
// concerns, no more often than it was asked for, and there is an end.
#include <map>
#include <set>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sender/ctrans_server.h"
#include "sim/world.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t SENDER = Ipv4(10, 0, 0, 1);
constexpr Endpoint REPLIES{SENDER, RoomAddress{}.ReplyPort()};
constexpr int HONEST_RECEIVERS = 3;

class Session {
 public:
  explicit Session(fuzz::Input input) : input(input) {
    world.SetLogging(false);
    const uint32_t options = this->input.Take<uint8_t>();
    profile = options % 2 == 0 ? Profile::Robust : Profile::Classic;
    server.SetProfile(profile);
    server.SetSendRate(options % 4 < 2 ? 0 : 20'000);
    WriteFile("a", 5);
    WriteFile("b", BLOCK_SIZE);
    WriteFile("c", 2 * BLOCK_SIZE + 1);
    world.Net().SetTap([this](const sim::SentDatagram& sent) {
      if (sent.from == &machine) Check(sent);
    });
  }

  void Run() {
    for (int i = 0; i < HONEST_RECEIVERS; ++i)
      world.At(150ms, [this, i] { Reply(Build(Client{1}), Peer(static_cast<uint8_t>(i))); });
    machine.Call([&] { MUST(server.InitServer(machine.MakeWindow(), 0, 0, SENDER) == 1); });
    server.SetSubDirTrans(1);
    MUST(server.SetSelectFiles({"C:\\data"}, "") == 1);
    Start();
    while (!input.IsEmpty()) Step();
    if (profile == Profile::Robust) MUST(world.RunUntil([&] { return HasEnded(); }, TimeToTheEnd()));
    TearDown();
  }

 private:
  struct File {
    FileShape shape;
    sim::Bytes content;
  };

  void WriteFile(const std::string& name, size_t length) {
    sim::Bytes content(length);
    for (size_t i = 0; i < length; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / BLOCK_SIZE + files.size());
    machine.Disk().Write("C:\\data\\" + name, content);
    files["\\data\\" + name] = {*FileShape::Of(length), content};
  }

  /// One of the receivers, or somebody who has never been heard of.
  static Endpoint Peer(uint8_t number) { return {Ipv4(10, 0, 1, number), DEFAULT_PORT}; }

  void Step() {
    const uint32_t action = input.Below(16);
    if (action < 14) {
      Answer();
    } else if (action == 14) {
      HostActs();
    } else {
      FileChanges();
    }
    static constexpr Duration PAUSES[] = {0ms, 0ms, 1ms, 10ms, 100ms, 600ms, 2000ms, 10000ms};
    world.RunFor(PAUSES[input.Below(8)]);
  }

  void Answer() {
    const uint32_t who = input.Below(12);
    const Endpoint peer = Peer(who < 10 ? static_cast<uint8_t>(who % 4) : input.Take<uint8_t>());
    switch (input.Below(6)) {
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
    world.Net().Carry({world.Now(), &room, from, REPLIES, {datagram.begin(), datagram.end()}});
  }

  void HostActs() {
    switch (input.Below(4)) {
      case 0: return machine.Call([&] { server.StopSend(); });
      case 1: return Start();
      default: server.GetState(); server.GetErrInfo(errInfo.data());
    }
  }

  void Start() {
    machine.Call([&] { server.StartSend(); });
  }

  void FileChanges() {
    static const char* const NAMES[] = {"a", "b", "c"};
    const std::string name = NAMES[input.Below(3)];
    const std::string path = "C:\\data\\" + name;
    hasChangedFiles = true;
    if (input.Below(2) == 0) return machine.Disk().Remove(path);
    machine.Disk().Write(path, std::span(files.at("\\data\\" + name).content).first(input.Below(6)));
  }

  bool HasEnded() { return server.GetState().phase == SendPhase::Ended; }

  /// The stream, and two turns for every receiver that falls silent.
  Duration TimeToTheEnd() const { return 30s + 10s * static_cast<int>(clients.size()); }

  void TearDown() {
    machine.Call([&] { server.DeInitServer(); });
    world.RunFor(6s);
    MUST(machine.RunningThreads() == 0 && machine.OpenSockets() == 0);
  }

  // ---- what leaves ----

  void Check(const sim::SentDatagram& sent) {
    if (sent.destination == REPORT_GROUP) return MUST(IsReport(sent.bytes));
    const uint8_t command = sent.bytes.at(2);
    if (command == CMD_DATA || command == CMD_RESEND) return CheckBlock(sent);
    const FromSender message = ParseFromSender(sent.bytes);
    MUST(!std::holds_alternative<Reject>(message));
    if (std::holds_alternative<Master>(message)) {
      MUST(clients.contains(sent.destination.address));
    } else if (std::holds_alternative<Release>(message)) {
      ++answers;
      MUST(profile == Profile::Classic || clients.contains(sent.destination.address));
    } else {
      MUST(sent.destination == RoomAddress{}.group);
    }
    CheckPace();
  }

  void CheckBlock(const sim::SentDatagram& sent) {
    const auto command = static_cast<Command>(sent.bytes[2]);
    MUST(sent.destination == RoomAddress{}.group && sent.bytes.size() >= BLOCK_HEAD_SIZE);
    const BlockHead head = ReadFields<BlockHead>(sent.bytes);
    const std::string name(head.name.Text());
    MUST(files.contains(name));
    const File& file = files.at(name);
    const uint64_t offset = FileShape::BlockOffset(head.block);
    const uint64_t left = offset < file.content.size() ? file.content.size() - offset : 0;
    const size_t expected = static_cast<size_t>(std::min<uint64_t>(left, BLOCK_SIZE));
    const size_t bytes = sent.bytes.size() - BLOCK_HEAD_SIZE;
    MUST(hasChangedFiles ? bytes <= expected : bytes == expected && head.Shape() == file.shape);

    // To the last byte what a fresh buffer would hold: nothing of an earlier block, name or anything else.
    BlockDatagram fresh(command);
    fresh.SetFile(head.file, name, head.Shape());
    fresh.SetBlock(head.block);
    std::copy_n(file.content.begin() + static_cast<std::ptrdiff_t>(offset), bytes, fresh.BlockBytes().begin());
    const auto whole = fresh.Datagram(bytes);
    MUST(std::equal(whole.begin(), whole.end(), sent.bytes.begin(), sent.bytes.end()));
    if (command == CMD_RESEND) ++answers;
    CheckPace();
  }

  /// Nothing is served twice for one request, but by the classic watchdog, which looks every half second.
  void CheckPace() {
    const auto bySelf = profile == Profile::Classic ? static_cast<uint64_t>(world.Now() / 500ms) : 0;
    MUST(answers <= requests + bySelf);
  }

  fuzz::Input input;
  Profile profile = Profile::Classic;
  sim::World world{1};
  sim::SimMachine& machine = world.AddMachine("sender", SENDER);
  sim::SimMachine& room = world.AddMachine("room", Ipv4(10, 0, 0, 2));
  CTransServer server{machine.Seam()};
  std::vector<uint32_t> errInfo = std::vector<uint32_t>(401);
  std::map<std::string, File> files;
  std::set<uint32_t> clients;
  bool hasChangedFiles = false;
  uint64_t requests = 0;
  uint64_t answers = 0;
};

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::Session(quorl::fuzz::Input(data, size)).Run();
  return 0;
}
