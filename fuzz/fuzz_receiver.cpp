// A whole receiver on a simulated machine, in virtual time, that is sent a mostly valid transfer in which some
// datagrams lie, some are missing and some come twice or late, while its disk misbehaves.
//
// Three kinds of run. In the first anybody lies: nothing may leave the target, and what is called complete must be
// stored. In the second everybody is honest: what is called complete must be identical. In the third a robust receiver
// has heard of the transfer and only strangers lie: it must then come to its end whole.
#include <optional>
#include <vector>

#include "files/target_dir.h"
#include "fuzz/fuzz_input.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "receiver/ctrans_client.h"
#include "sim/world.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t SENDER = Ipv4(10, 0, 0, 1);
constexpr uint32_t STRANGER = Ipv4(10, 0, 0, 3);
constexpr Endpoint RECEIVER{Ipv4(10, 0, 0, 2), DEFAULT_PORT};
constexpr Endpoint GROUP = RoomAddress{}.group;

// Room for any transfer that a lie can announce and a run can bear.
constexpr uint64_t FREE_BYTES = 1'000'000;
constexpr uint32_t MOST_FILES = 2000;

enum class Kind { AnybodyLies, AllHonest, StrangersLie };

struct File {
  std::string name;
  sim::Bytes content;

  FileShape Shape() const { return *FileShape::Of(content.size()); }
};

class Session {
 public:
  explicit Session(fuzz::Input input) : input(input) {
    const uint32_t options = this->input.Take<uint8_t>();
    kind = static_cast<Kind>(options % 3);
    profile = kind == Kind::StrangersLie || options / 3 % 2 == 0 ? Profile::Robust : Profile::Classic;
    world.SetLogging(false);
    world.Net().SetTap([this](const sim::SentDatagram& sent) {
      if (sent.from == &pc) Check(sent);
    });
    AddFile("\\one.bin", 100);
    AddFile("\\two.bin", BLOCK_SIZE + 5);
    AddFile("\\sub\\three.bin", 2 * BLOCK_SIZE);
    task.fileCount = static_cast<uint32_t>(files.size());
    for (const File& file : files) task.totalBlocks += static_cast<uint32_t>(file.Shape().BlockCount());
    task.targetFolder = LITERAL_TARGET;
    task.targetPath = NameField::From("C:\\elsewhere");
    pc.Disk().SetFreeBytes(FREE_BYTES);
    pc.Disk().MakeDirectory("C:\\in");
    client.SetReceiveRoot("C:\\in");
    client.SetProfile(profile);
  }

  void Run() {
    pc.Call([&] {
      MUST(client.InitClient(pc.MakeWindow(), 0, 0, RECEIVER.address) == 1);
      client.StartReceive();
    });
    if (kind == Kind::StrangersLie) Send(Build(task), GROUP, SENDER);
    while (!input.IsEmpty()) Step();
    if (kind == Kind::StrangersLie) {
      Repair();
      MUST(client.GetState().complete && IsIdentical());
    }
    CheckState();
    TearDown();
    CheckState();
  }

 private:
  void AddFile(const std::string& name, size_t length) {
    sim::Bytes content(length);
    for (size_t i = 0; i < length; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / BLOCK_SIZE + files.size() * 31);
    files.push_back({name, content});
  }

  // ---- what is done to it ----

  void Step() {
    const uint32_t action = input.Below(16);
    if (action < 9) {
      SendTrueBlock();
    } else if (action < 11) {
      Control();
    } else if (action < 14) {
      kind == Kind::AllHonest ? ServeRequest() : Lie();
    } else if (action == 14 && kind != Kind::StrangersLie) {
      DiskChanges();
    }
    static constexpr Duration PAUSES[] = {0ms, 0ms, 0ms, 0ms, 0ms,  0ms,   0ms,    0ms,
                                          0ms, 0ms, 1ms, 5ms, 20ms, 100ms, 1100ms, 4000ms};
    // A sender that lives says so every 5 s.
    if (kind == Kind::StrangersLie) Send(Build(Report{}), REPORT_GROUP, SENDER);
    world.RunFor(PAUSES[input.Below(16)]);
  }

  void SendTrueBlock() {
    const uint32_t which = input.Below(7);
    SendBlock(which == 0 ? next++ : which, CMD_DATA);
  }

  /// Block `index` of the transfer, from 0 on.
  void SendBlock(uint32_t index, Command command) {
    for (uint32_t number = 1; number <= files.size(); ++number) {
      const auto blocks = static_cast<uint32_t>(files[number - 1].Shape().BlockCount());
      if (index < blocks) return Send(BlockOf(number, index, command), GROUP, SENDER);
      index -= blocks;
    }
  }

  std::vector<uint8_t> BlockOf(uint32_t number, uint32_t block, Command command) const {
    const File& file = files[number - 1];
    BlockDatagram datagram(command);
    datagram.SetFile(number, file.name, file.Shape());
    datagram.SetBlock(block);
    const size_t size = file.Shape().BytesInBlock(block);
    std::copy_n(file.content.begin() + static_cast<std::ptrdiff_t>(FileShape::BlockOffset(block)), size,
                datagram.BlockBytes().begin());
    const auto bytes = datagram.Datagram(size);
    return {bytes.begin(), bytes.end()};
  }

  /// What a sender says besides. In the third kind of run it says nothing that would end the receiver.
  void Control() {
    const uint32_t which = input.Below(kind == Kind::StrangersLie ? 4 : 10);
    const Endpoint to = which < 5 ? GROUP : RECEIVER;
    switch (which) {
      case 0: return Send(Build(Collect{}), GROUP, SENDER);
      case 1: return Send(Build(ServerOs{1}), GROUP, SENDER);
      case 2: return Send(Build(Report{}), REPORT_GROUP, SENDER);
      case 3: return Send(Build(AutoOpenName{NameField::From("\\one.bin")}), GROUP, SENDER);
      case 4: return Send(Build(Finish{}), to, SENDER);
      case 5: return Send(Build(Master{1}), to, SENDER);
      case 6: return Send(Build(Master{0}), to, SENDER);
      case 7: return Send(Build(Release{static_cast<uint8_t>(input.Below(2)), 0}), to, SENDER);
      case 8: return Send(Build(Stop{}), GROUP, SENDER);
      default: return Send(Build(task), GROUP, SENDER);
    }
  }

  void ServeRequest() {
    if (!wanted) return;
    for (uint32_t number = 1; number <= files.size(); ++number)
      if (wanted->file == number && wanted->block <= files[number - 1].Shape().lastBlock)
        Send(BlockOf(number, wanted->block, CMD_RESEND), GROUP, SENDER);
  }

  void Lie() {
    const uint32_t from = kind == Kind::StrangersLie || input.Below(2) == 0 ? STRANGER : SENDER;
    const Endpoint to = input.Below(2) == 0 ? GROUP : RECEIVER;
    switch (input.Below(8)) {
      case 0: return Send(Build(FalseTask()), to, from);
      case 1: return Send(FalseDirectories(), to, from);
      case 2: return Send(Build(Master{input.Below(2)}), to, from);
      case 3:
        return Send(Build(Release{static_cast<uint8_t>(input.Below(2)), static_cast<uint8_t>(input.Below(2))}), to,
                    from);
      case 4: return input.Below(2) == 0 ? Send(Build(Stop{}), to, from) : Send(Build(Finish{}), to, from);
      case 5: return Send(input.TakeBytes(input.Below(60)), to, from);
      default: return Send(FalseBlock(), to, from);
    }
  }

  Task FalseTask() {
    Task lie = task;
    lie.totalBlocks = input.Number();
    lie.fileCount = input.Number() % MOST_FILES;
    lie.targetFolder = input.Number();
    lie.targetPath = NameField::From(FalseName());
    return lie;
  }

  std::vector<uint8_t> FalseDirectories() {
    std::vector<NameField> names;
    for (uint32_t i = input.Below(4); i > 0; --i) names.push_back(NameField::From(FalseName()));
    return BuildEmptyDir(names);
  }

  /// A true block but for one field, or some of its bytes.
  std::vector<uint8_t> FalseBlock() {
    const uint32_t number = 1 + input.Below(3);
    const Command command = input.Below(2) == 0 ? CMD_DATA : CMD_RESEND;
    std::vector<uint8_t> datagram = BlockOf(number, input.Below(number), command);
    BlockHead head = ReadFields<BlockHead>(datagram);
    switch (input.Below(7)) {
      case 0: head.file = input.Number(); break;
      case 1: head.block = input.Number(); break;
      case 2: head.lastBlock = input.Number(); break;
      case 3: head.tailSize = input.Take<uint16_t>(); break;
      case 4: head.name = NameField::From(FalseName()); break;
      case 5: datagram.back() ^= 1; break;
      default: datagram.resize(datagram.size() - input.Take<uint16_t>() % datagram.size()); return datagram;
    }
    WriteFields(head, std::span(datagram));
    // Enough bytes for whatever block it claims to be.
    datagram.resize(std::max(datagram.size(), input.Below(2) == 0 ? MAX_DATAGRAM : size_t{0}));
    return datagram;
  }

  std::string FalseName() {
    static const char* const NAMES[] = {"\\..\\outside", "\\a\\..\\..\\outside", "..",        "C:\\elsewhere", "\\",
                                        "/etc/passwd",   "\\.?.\\outside",       "\\one.bin", "\\sub",         ""};
    const uint32_t which = input.Below(12);
    return which < 10 ? NAMES[which] : input.TakeText(input.Below(24));
  }

  void DiskChanges() {
    switch (input.Below(4)) {
      case 0: return pc.Disk().SetFreeBytes(input.Below(2) == 0 ? 0 : FREE_BYTES);
      case 1: return pc.Disk().RefuseName([](const std::string& name) { return name == "sub"; });
      case 2: return pc.Disk().SetWriteTime(input.Below(2) == 0 ? 0ms : 50ms);
      default: return pc.FailCall(sim::Seam::Files, 1 + input.Below(4));
    }
  }

  /// As an honest sender does: the end of the stream, then every block that is asked for.
  void Repair() {
    Send(Build(Finish{}), GROUP, SENDER);
    world.RunFor(200ms);
    wanted.reset();
    for (uint32_t served = 0; served <= 2 * task.totalBlocks && !HasEnded(); ++served) {
      Send(Build(Master{1}), RECEIVER, SENDER);
      world.RunFor(100ms);
      ServeRequest();
      Send(Build(Report{}), REPORT_GROUP, SENDER);
      world.RunFor(100ms);
    }
    Send(Build(Master{0}), RECEIVER, SENDER);
    world.RunFor(1s);
  }

  bool HasEnded() { return client.GetState().phase == ReceivePhase::Complete; }

  void Send(std::span<const uint8_t> datagram, Endpoint to, uint32_t from) {
    ++datagramsIn;
    world.Net().Carry({world.Now(), &room, {from, 40000}, to, {datagram.begin(), datagram.end()}});
    world.RunFor(1ms);
  }

  void TearDown() {
    pc.Disk().SetWriteTime(0ms);
    pc.Call([&] { MUST(client.DeInitClient() == 1); });
    world.RunFor(6s);
    MUST(pc.RunningThreads() == 0 && pc.OpenSockets() == 0);
  }

  // ---- what must hold ----

  bool IsIdentical() const {
    for (const File& file : files)
      if (pc.Disk().Read("C:\\in" + file.name) != file.content) return false;
    return true;
  }

  void CheckState() {
    for (const std::string& name : pc.Disk().List("C:\\")) MUST(name == "in" || name.starts_with("in\\"));
    const ReceiveState state = client.GetState();
    MUST(state.blocksStored <= state.blocksExpected);
    if (!state.complete) return;
    MUST(state.failedFiles == 0);
    // Only a lie announces more blocks than its files have.
    MUST(kind == Kind::AnybodyLies || (state.blocksStored == state.blocksExpected && IsIdentical()));
  }

  /// What leaves is well formed and goes to somebody who has spoken; and one datagram brings about few.
  void Check(const sim::SentDatagram& sent) {
    const FromReceiver reply = ParseFromReceiver(sent.bytes);
    MUST(!std::holds_alternative<Reject>(reply));
    MUST(sent.destination.address == SENDER || sent.destination.address == STRANGER);
    MUST(kind == Kind::AnybodyLies || sent.destination.address == SENDER);
    if (const auto* ack = std::get_if<Ack>(&reply)) wanted = *ack;
    ++datagramsOut;
    MUST(datagramsOut <= 4 * datagramsIn + static_cast<uint64_t>(world.Now() / 200ms) + 10);
  }

  fuzz::Input input;
  Kind kind = Kind::AnybodyLies;
  Profile profile = Profile::Robust;
  mutable sim::World world{1};
  sim::SimMachine& room = world.AddMachine("room", SENDER);
  sim::SimMachine& pc = world.AddMachine("receiver", RECEIVER.address);
  CTransClient client{pc.Seam()};
  std::vector<File> files;
  Task task;
  uint32_t next = 0;
  std::optional<Ack> wanted;
  uint64_t datagramsIn = 0;
  uint64_t datagramsOut = 0;
};

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::Session(quorl::fuzz::Input(data, size)).Run();
  return 0;
}
