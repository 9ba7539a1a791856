// Carries a plan out. The faults are applied from outside the world, between two stretches of its time, since some of
// them need what only the main flow may do.
#include "sim/campaign/run.h"

#include <algorithm>
#include <fstream>
#include <set>

#include "protocol/datagrams.h"
#include "sim/campaign/checker.h"
#include "sim/network/pcap.h"
#include "sim/room/attacker.h"
#include "sim/room/room.h"
#include "sim/room/wild_host.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

/// Phase two: what the stream, the last look for a heartbeat and the wait for a disk may still take, and for each
/// receiver its turns.
constexpr Duration LIVENESS_BOUND = 240s;
constexpr Duration LIVENESS_BOUND_PER_RECEIVER = 30s;

/// Requests to a classic sender that nothing will end: a receiver that asks for what it cannot use asks as fast as the
/// room is, and each datagram that the network doubles doubles the requests. From then on nothing passes any more.
constexpr uint64_t ENDLESS_REQUESTS = 4000;

constexpr uint64_t OLD_CONTENT = 0x01DC0DE;
constexpr uint64_t TERABYTE = uint64_t{1} << 40;

class Run {
 public:
  Run(const RunPlan& plan, bool keepsLog)
      : plan(plan),
        room({plan.receivers, plan.number, plan.senderProfile, plan.receiverProfile, plan.autoOpenName, 0,
              plan.symbols}),
        attacker(room, plan.number, plan.attackerForgesSources) {
    room.World().SetLogging(keepsLog);
  }

  void Play() {
    SetUp();
    Watch();
    Start();
    PlayFaults();
    EndTransfer();
    for (size_t transfer = 1; transfer < plan.transfers && CanGoOn(); ++transfer) {
      Watch();
      StartNext();
      RunUntil(start + plan.faultsEnd);
      EndTransfer();
    }
    TearDown();
  }

  RunResult result;

  bool WriteTrace(const std::string& path) {
    std::ofstream log(path + ".log");
    log << ToText(plan) << room.World().EventLog();
    return WritePcap(path, room.Net().Sent()) && log.flush();
  }

  const std::string& EventLog() { return room.World().EventLog(); }

 private:
  std::string FileName(size_t index) const { return "file" + std::to_string(index); }

  /// Each transfer is judged by itself.
  void Watch() {
    KeepFindings();
    checker.emplace(room, plan.senderProfile, plan.receiverProfile,
                    CheckerOptions{plan.hasAttacker, plan.attackerForgesSources, checker && MayKeepDatagrams()});
    requests = 0;
  }

  /// Whether a datagram may arrive long after it was sent.
  bool MayKeepDatagrams() const {
    const auto holdsBack = [](const LinkOptions& link) { return link.reorder > 0 || link.duplicate > 0; };
    return holdsBack(plan.common) || (plan.toOne && holdsBack(*plan.toOne)) ||
           (plan.toSender && holdsBack(*plan.toSender)) ||
           std::any_of(plan.faults.begin(), plan.faults.end(), [](const PlannedFault& fault) {
             return fault.kind == FaultKind::LinkHang || fault.kind == FaultKind::Freeze;
           });
  }

  void KeepFindings() {
    if (!checker) return;
    for (const std::string& violation : checker->Violations()) result.violations.push_back(violation);
    for (const auto& [what, count] : checker->Exceptions()) result.exceptions[what] += count;
  }

  void EndTransfer() {
    EndFaults();
    ComeToRest();
    checker->AtRest();
    result.tally.Add(Judge(room, IsSenderThrough(), room.World().Now() - start));
  }

  /// Whether everybody whom a further transfer needs is still as it was at first.
  bool CanGoOn() {
    const auto lasts = [](const PlannedFault& fault) {
      return fault.kind == FaultKind::WindowCloses || fault.kind == FaultKind::WildHost;
    };
    return !plan.hasAttacker && !room.Sender().IsOff() && senderStarted && IsAtRest() &&
           std::none_of(plan.faults.begin(), plan.faults.end(), lasts);
  }

  void StartNext() {
    room.ReplaceFiles();
    SetLinks();
    start = room.World().Now();
    for (size_t i = 0; i < room.Receivers(); ++i) {
      const bool listens =
          room.Receiver(i).RunningThreads() != 0 && room.Client(i).GetState().phase != ReceivePhase::Complete;
      if (plan.keepsListening && listens) {
        room.ExpectTransfer(i);
        checker->ReceiverGoesOn(i, room.Client(i).GetState().phase == ReceivePhase::Stopped);
      } else if (!room.Receiver(i).IsOff()) {
        room.StartReceiver(i);
      }
    }
    plan.keepsSession ? room.SendAgain() : Send();
  }

  SimMachine& MachineOf(Whom whom) { return whom ? room.Receiver(*whom) : room.Sender(); }

  void SetUp() {
    for (size_t i = 0; i < plan.fileSizes.size(); ++i) room.File(FileName(i), plan.fileSizes[i]);
    for (size_t i = 0; i < plan.emptyDirectories; ++i) room.EmptyDirectory("empty" + std::to_string(i));
    if (plan.blocksOnly) room.Client(*plan.blocksOnly).SetSymbols(false);
    for (size_t i = 0; i <= room.Receivers(); ++i) {
      SimMachine& machine = i < room.Receivers() ? room.Receiver(i) : room.Sender();
      machine.SetClockDrift(plan.clockDrifts[i]);
      machine.LimitReceiveBuffers(plan.receiveBuffers[i]);
      for (size_t file = 0; plan.hasOldFiles && i < room.Receivers() && file < plan.fileSizes.size(); ++file)
        machine.Disk().WriteSynthetic(Room::TARGET + ("\\" + FileName(file)), plan.fileSizes[file], OLD_CONTENT);
    }
    if (plan.hasAttacker) room.ConfineReceivers();
    SetLinks();
    room.Net().SetFilter([this](const Transit& transit) { return LetPass(transit); });
    for (const PlannedFault& fault : plan.faults) Prepare(fault);
  }

  void SetLinks() {
    room.Net().SetLink(plan.common);
    if (plan.toOne) room.Net().SetLink(nullptr, &room.Receiver(0), *plan.toOne);
    if (plan.toSender) room.Net().SetLink(nullptr, &room.Sender(), *plan.toSender);
    if (plan.uplink) room.Net().SetUplink(room.Sender(), *plan.uplink);
  }

  void Prepare(const PlannedFault& fault) {
    if (fault.kind != FaultKind::WindowBlocks) return;
    const WindowProcedure blocks = [this, machine = &MachineOf(fault.whom)](uint32_t, uintptr_t, intptr_t) {
      while (windowBlocks.contains(machine)) machine->Seam().clock.Sleep(50ms);
    };
    fault.whom ? room.HandleMessages(*fault.whom, blocks) : room.HandleSenderMessages(blocks);
  }

  bool ComesLate(Whom whom) const {
    return std::any_of(plan.faults.begin(), plan.faults.end(), [&](const PlannedFault& fault) {
      return fault.kind == FaultKind::LateStart && fault.whom == whom;
    });
  }

  void Start() {
    for (size_t i = 0; i < room.Receivers(); ++i)
      if (!ComesLate(i)) room.StartReceiver(i);
    if (!ComesLate({})) Send();
    start = room.World().Now();
  }

  void Send() {
    room.Server().SetSendRate(plan.rate);
    senderStarted = room.Send();
  }

  bool IsSenderThrough() { return !senderStarted || room.IsSenderThrough(); }

  /// Something to be done at a time; in order of time, and of entry where that is equal.
  struct Step {
    Moment at;
    std::function<void()> action;
  };

  void PlayFaults() {
    for (const PlannedFault& fault : plan.faults) Enter(fault.at, [this, &fault] { Begin(fault); });
    if (plan.hasAttacker)
      Enter(plan.attackBegins, [this] {
        checker->AttackBegins();
        attacker.Begin();
      });
    while (!steps.empty()) {
      const auto next =
          std::min_element(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.at < b.at; });
      const Step step = std::move(*next);
      steps.erase(next);
      if (step.at > start + plan.faultsEnd) break;
      RunUntil(step.at);
      step.action();
    }
    RunUntil(start + plan.faultsEnd);
  }

  void RunUntil(Moment end) {
    while (room.World().Now() < end && !IsEndless())
      room.World().RunFor(std::min<Duration>(end - room.World().Now(), 100ms));
  }

  /// A room by the classic rules in which requests come without end. What lets a datagram pass counts them.
  bool IsEndless() const { return plan.senderProfile == Profile::Classic && requests > ENDLESS_REQUESTS; }

  bool LetPass(const Transit& transit) {
    const bool isRequest =
        transit.to == &room.Sender() && transit.datagram.size() > 2 && transit.datagram[2] == CMD_ACK;
    if (isRequest) ++requests;
    return !IsEndless();
  }

  void Enter(Duration sinceStart, std::function<void()> action) {
    steps.push_back({start + sinceStart, std::move(action)});
  }

  void Begin(const PlannedFault& fault) {
    SimMachine& machine = MachineOf(fault.whom);
    switch (fault.kind) {
      case FaultKind::Crash: machine.PowerOff(); break;
      case FaultKind::PowerCut:
        if (fault.whom) checker->ReceiverLosesData(*fault.whom);
        room.World().CutPower(machine);
        break;
      case FaultKind::Freeze: machine.Freeze(); break;
      case FaultKind::LateStart: fault.whom ? void(room.StartReceiver(*fault.whom)) : Send(); break;
      case FaultKind::LinkHang: HangLink(machine, fault.duration); break;
      case FaultKind::Partition: CutOff(*fault.whom); break;
      case FaultKind::DiskFull: machine.Disk().SetFreeBytes(fault.amount); break;
      case FaultKind::DiskSlow: machine.Disk().SetWriteTime(std::chrono::microseconds(fault.amount)); break;
      case FaultKind::DiskNarrow: machine.Disk().SetBytesPerSecond(fault.amount); break;
      case FaultKind::CallFails: machine.FailCall(fault.call, fault.amount); break;
      case FaultKind::NameRefused:
        machine.Disk().RefuseName([name = FileName(fault.amount)](const std::string& other) { return other == name; });
        break;
      case FaultKind::WindowCloses:
        fault.whom ? checker->WindowCloses(*fault.whom) : checker->SenderWindowCloses();
        machine.DestroyWindow(fault.whom ? room.ReceiverWindow(*fault.whom) : room.SenderWindow());
        break;
      case FaultKind::WindowBlocks: windowBlocks.insert(&machine); break;
      case FaultKind::WildHost:
        checker->HostRunsWild(fault.whom);
        wildHosts.try_emplace(fault.whom, room, fault.whom, plan.number).first->second.Begin();
        break;
      case FaultKind::HostStops:
        checker->SenderStops();
        machine.Call([this] { room.Server().StopSend(); });
        break;
      case FaultKind::StartsAgain: fault.whom ? BeginAnew(*fault.whom) : SendAnew(fault.amount != 0); break;
      case FaultKind::FileVanishes: machine.Disk().Remove(Room::SOURCE + ("\\" + FileName(fault.amount))); break;
    }
    if (fault.duration > Duration::zero()) Enter(fault.at + fault.duration, [this, &fault] { End(fault); });
  }

  void BeginAnew(size_t receiver) {
    room.StartReceiver(receiver);
    // The run before may have come to its end while it was torn down.
    checker->ReceiverRestarts(receiver);
  }

  void SendAnew(bool stopsFirst) {
    checker->SenderBeginsAgain();
    if (stopsFirst) room.Sender().Call([this] { room.Server().StopSend(); });
    room.SendAgain();
  }

  void HangLink(const SimMachine& machine, Duration duration) {
    LinkOptions hung = plan.common;
    hung.hungUntil = room.World().Now() + duration;
    room.Net().SetLink(&machine, nullptr, hung);
    room.Net().SetLink(nullptr, &machine, hung);
  }

  void CutOff(size_t first) {
    std::vector<const SimMachine*> island;
    for (size_t i = first; i < room.Receivers(); ++i) island.push_back(&room.Receiver(i));
    room.Net().Partition(std::move(island));
  }

  void End(const PlannedFault& fault) {
    SimMachine& machine = MachineOf(fault.whom);
    switch (fault.kind) {
      case FaultKind::Crash:
      case FaultKind::PowerCut: Restart(fault.whom); break;
      case FaultKind::Freeze: machine.Thaw(); break;
      case FaultKind::Partition: room.Net().Partition({}); break;
      case FaultKind::DiskFull: machine.Disk().SetFreeBytes(TERABYTE); break;
      case FaultKind::WindowBlocks: windowBlocks.erase(&machine); break;
      case FaultKind::WildHost: EndWildHost(fault.whom); break;
      default: break;
    }
  }

  void Restart(Whom whom) {
    if (whom) {
      checker->ReceiverRestarts(*whom);
      room.RestartReceiver(*whom);
    } else {
      checker->SenderRestarts();
      room.RestartSender();
      Send();
    }
  }

  void EndWildHost(Whom whom) {
    wildHosts.at(whom).End();
    if (whom) return room.Receiver(*whom).Call([&] { room.Client(*whom).DeInitClient(); });
    room.Sender().Call([&] { room.Server().DeInitServer(); });
    senderStarted = false;
  }

  void EndFaults() {
    attacker.End();
    room.Net().ResetLinks();
    room.Net().SetUplink(room.Sender(), {});
    room.Net().Partition({});
    windowBlocks.clear();
    for (size_t i = 0; i <= room.Receivers(); ++i) {
      SimMachine& machine = i < room.Receivers() ? room.Receiver(i) : room.Sender();
      machine.Thaw();
      machine.Disk().SetFreeBytes(TERABYTE);
      machine.Disk().SetWriteTime(Duration::zero());
      machine.Disk().SetBytesPerSecond(0);
      machine.Disk().RefuseName({});
      machine.FailCall("", 0);
    }
    for (const auto& [whom, host] : wildHosts) EndWildHost(whom);
  }

  bool IsAtRest() {
    for (size_t i = 0; i < room.Receivers(); ++i)
      if (!checker->IsAtRest(i)) return false;
    return IsSenderThrough();
  }

  void ComeToRest() {
    const Moment deadline =
        room.World().Now() + LIVENESS_BOUND + LIVENESS_BOUND_PER_RECEIVER * static_cast<int64_t>(room.Receivers());
    while (!IsAtRest() && !IsEndless() && room.World().Now() < deadline) room.World().RunFor(100ms);
    if (!IsAtRest()) checker->DoesNotEnd(IsSenderThrough() && !IsEndless());
    room.World().RunFor(1s);
  }

  void TearDown() {
    for (size_t i = 0; i < room.Receivers(); ++i) room.Receiver(i).Call([&] { room.Client(i).DeInitClient(); });
    room.Sender().Call([&] { room.Server().DeInitServer(); });
    room.World().RunFor(20s);
    for (const PlannedFault& fault : plan.faults)
      if (fault.kind == FaultKind::WindowBlocks)
        MachineOf(fault.whom).DestroyWindow(fault.whom ? room.ReceiverWindow(*fault.whom) : room.SenderWindow());
    checker->AfterTearDown();
    KeepFindings();
    NoteWhatHappened();
    result.lies = attacker.Lies();
  }

  void NoteWhatHappened() {
    for (size_t fate = 0; fate < static_cast<size_t>(Fate::COUNT); ++fate)
      result.happened[ToText(static_cast<Fate>(fate))] += room.Net().Count(static_cast<Fate>(fate));
    for (size_t i = 0; i <= room.Receivers(); ++i) {
      const bool isSender = i == room.Receivers();
      for (const uint32_t status : Room::Statuses(isSender ? room.Sender() : room.Receiver(i)))
        ++result.happened[(isSender ? "sender told " : "receiver told ") + std::to_string(status)];
    }
    for (const PlannedFault& fault : plan.faults) ++result.happened[ToText(fault.kind)];
  }

  const RunPlan& plan;
  Room room;
  std::optional<Checker> checker;
  Attacker attacker;
  std::map<Whom, WildHost> wildHosts;
  std::set<const SimMachine*> windowBlocks;  ///< Whose procedure does not return at this moment.
  Moment start{};
  bool senderStarted = false;
  uint64_t requests = 0;
  std::vector<Step> steps;
};

uint64_t Hash(const std::string& text) {
  uint64_t hash = 0;
  for (const char character : text) hash = Mix(hash ^ static_cast<uint8_t>(character));
  return hash;
}

}  // namespace

RunResult Execute(const RunPlan& plan, const std::string& trace, bool keepsLog) {
  Run run(plan, keepsLog || !trace.empty());
  run.Play();
  if (keepsLog) run.result.logHash = Hash(run.EventLog());
  if (!trace.empty() && !run.WriteTrace(trace)) run.result.violations.push_back("the trace could not be written");
  return run.result;
}

}  // namespace quorl::sim
