// A whole receiver on a simulated machine, in virtual time, that is sent a mostly valid transfer in which some
// datagrams lie, some are missing and some come twice or late, while its disk misbehaves.
//
// Three kinds of run. In the first anybody lies: nothing may leave the target, and what is called complete must be
// stored. In the second everybody is honest: what is called complete must be identical. In the third a robust receiver
// has heard of the transfer and only strangers lie: it must then come to its end whole.
#include <optional>

#include "files/target_dir.h"
#include "fuzz/fuzz_room.h"
#include "receiver/ctrans_client.h"
#include "sim/room/lies.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;
using fuzz::GROUP;
using fuzz::SENDER;

constexpr uint32_t STRANGER = Ipv4(10, 0, 0, 3);
constexpr Endpoint RECEIVER{Ipv4(10, 0, 0, 2), DEFAULT_PORT};

// Room for any transfer that a lie can announce and a run can bear.
constexpr uint64_t FREE_BYTES = 1'000'000;

enum class Kind { AnybodyLies, AllHonest, StrangersLie };

class Session : fuzz::FuzzRoom {
 public:
  explicit Session(fuzz::Input sessionInput) : FuzzRoom(sessionInput, RECEIVER.address) {
    const uint32_t options = input.Take<uint8_t>();
    kind = static_cast<Kind>(options % 3);
    world.Net().SetTap([this](const sim::SentDatagram& sent) {
      if (sent.from == &machine) Check(sent);
    });
    machine.Disk().SetFreeBytes(FREE_BYTES);
    machine.Disk().MakeDirectory("C:\\in");
    client.SetReceiveRoot("C:\\in");
    const bool isRobust = kind == Kind::StrangersLie || options / 3 % 2 == 0;
    client.SetProfile(isRobust ? Profile::Robust : Profile::Classic);
  }

  std::string FalseName() {
    const uint32_t which = input.Below(12);
    return which < 10 ? sim::FALSE_NAMES[which] : input.TakeText(input.Below(24));
  }
  uint32_t FalseNumber(uint32_t) { return input.Number(); }

  void Run() {
    machine.Call([&] {
      MUST(client.InitClient(machine.MakeWindow(), 0, 0, RECEIVER.address) == 1);
      client.StartReceive();
    });
    if (kind == Kind::StrangersLie) Send(Build(TASK));
    while (!input.IsEmpty()) Step();
    if (kind == Kind::StrangersLie) {
      Repair();
      MUST(client.GetState().complete && IsIdentical());
    }
    CheckState();
    machine.Disk().SetWriteTime(0ms);
    machine.Call([&] { MUST(client.DeInitClient() == 1); });
    CheckIsEmpty();
    CheckState();
  }

 private:
  // ---- what is done to it ----

  void Step() {
    const uint32_t action = input.Below(16);
    if (action < 9) {
      const uint32_t which = input.Below(7);
      Send(TrueBlock(which == 0 ? next++ : which));
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
    if (kind == Kind::StrangersLie) Send(Build(Report{}), REPORT_GROUP);
    world.RunFor(PAUSES[input.Below(16)]);
  }

  void Send(std::span<const uint8_t> datagram, Endpoint to = GROUP, uint32_t from = SENDER) {
    ++datagramsIn;
    room.Say({from, 40000}, to, datagram);
    world.RunFor(1ms);
  }

  /// Block `index` of the transfer, from 0 on and round and round.
  std::vector<uint8_t> TrueBlock(uint32_t index, Command command = CMD_DATA) const {
    static constexpr Ack BLOCKS[] = {{1, 0}, {2, 0}, {2, 1}, {3, 0}, {3, 1}, {3, 2}};
    const Ack block = BLOCKS[index % TASK.totalBlocks];
    return files[block.file - 1].Block(command, block.file, block.block);
  }

  /// What a sender says besides. In the third kind of run it says nothing that would end the receiver.
  void Control() {
    switch (input.Below(kind == Kind::StrangersLie ? 4 : 10)) {
      case 0: return Send(Build(Collect{}));
      case 1: return Send(Build(ServerOs{1}));
      case 2: return Send(Build(Report{}), REPORT_GROUP);
      case 3: return Send(Build(AutoOpenName{NameField::From("\\data\\a")}));
      case 4: return Send(Build(Finish{}));
      case 5: return Send(Build(Master{1}), RECEIVER);
      case 6: return Send(Build(Master{0}), RECEIVER);
      case 7: return Send(Build(Release{static_cast<uint8_t>(input.Below(2)), 0}), RECEIVER);
      case 8: return Send(Build(Stop{}));
      default: return Send(Build(TASK));
    }
  }

  void ServeRequest() {
    if (wanted && wanted->file >= 1 && wanted->file <= files.size() &&
        wanted->block <= files[wanted->file - 1].Shape().lastBlock)
      Send(files[wanted->file - 1].Block(CMD_RESEND, wanted->file, wanted->block));
  }

  void Lie() {
    const uint32_t from = kind == Kind::StrangersLie || input.Below(2) == 0 ? STRANGER : SENDER;
    const Endpoint to = input.Below(2) == 0 ? GROUP : RECEIVER;
    switch (input.Below(8)) {
      case 0: return Send(Build(False(False(TASK))), to, from);
      case 1: return Send(BuildEmptyDir(std::array{NameField::From(FalseName())}), to, from);
      case 2: return Send(Build(False(Master{1})), to, from);
      case 3: return Send(Build(False(Release{1, 1})), to, from);
      case 4: return input.Below(2) == 0 ? Send(Build(Stop{}), to, from) : Send(Build(Finish{}), to, from);
      case 5: return Send(input.TakeBytes(input.Below(60)), to, from);
      default: return Send(FalseBlock(), to, from);
    }
  }

  template <typename Message>
  Message False(const Message& truth) {
    return sim::Falsified(truth, input.Below(6), *this);
  }

  std::vector<uint8_t> FalseBlock() {
    const Command command = input.Below(2) == 0 ? CMD_DATA : CMD_RESEND;
    std::vector<uint8_t> datagram = TrueBlock(input.Below(6), command);
    WriteFields(False(ReadFields<BlockHead>(datagram)), std::span(datagram));
    // In its last byte, or cut off, or with bytes enough for whatever block it claims to be.
    if (input.Below(4) == 0) datagram.back() ^= 1;
    if (input.Below(4) == 0) datagram.resize(input.Take<uint16_t>() % (MAX_DATAGRAM + 1));
    return datagram;
  }

  void DiskChanges() {
    switch (input.Below(4)) {
      case 0: return machine.Disk().SetFreeBytes(input.Below(2) == 0 ? 0 : FREE_BYTES);
      case 1: return machine.Disk().RefuseName([](const std::string& name) { return name == "sub"; });
      case 2: return machine.Disk().SetWriteTime(input.Below(2) == 0 ? 0ms : 50ms);
      default: return machine.FailCall(sim::Seam::Files, 1 + input.Below(4));
    }
  }

  /// As an honest sender does: the end of the stream, then every block that is asked for.
  void Repair() {
    Send(Build(Finish{}));
    world.RunFor(200ms);
    wanted.reset();
    for (uint32_t served = 0; served <= 2 * TASK.totalBlocks && !HasEnded(); ++served) {
      Send(Build(Master{1}), RECEIVER);
      world.RunFor(100ms);
      ServeRequest();
      Send(Build(Report{}), REPORT_GROUP);
      world.RunFor(100ms);
    }
    Send(Build(Master{0}), RECEIVER);
    world.RunFor(1s);
  }

  bool HasEnded() { return client.GetState().phase == ReceivePhase::Complete; }

  // ---- what must hold ----

  bool IsIdentical() {
    return std::ranges::all_of(
        files, [&](const sim::PeerFile& file) { return machine.Disk().Read("C:\\in" + file.name) == file.content; });
  }

  void CheckState() {
    for (const std::string& name : machine.Disk().List("C:\\")) MUST(name == "in" || name.starts_with("in\\"));
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
    MUST(sent.destination.address == SENDER || (kind == Kind::AnybodyLies && sent.destination.address == STRANGER));
    if (const auto* ack = std::get_if<Ack>(&reply)) wanted = *ack;
    ++datagramsOut;
    MUST(datagramsOut <= 4 * datagramsIn + static_cast<uint64_t>(world.Now() / 200ms) + 10);
  }

  static inline const Task TASK{6, 3, LITERAL_TARGET, NameField::From("C:\\elsewhere")};

  Kind kind = Kind::AnybodyLies;
  CTransClient client{machine.Seam()};
  uint32_t next = 0;
  std::optional<Ack> wanted;
  uint64_t datagramsIn = 0;
  uint64_t datagramsOut = 0;
};

}  // namespace

void fuzz::Run(Input input) {
  Session(input).Run();
}

}  // namespace quorl
