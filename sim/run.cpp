// Carries a plan out. The faults are applied from outside the world, between two stretches of its time, since some of
// them need what only the main flow may do.
#include "sim/run.h"

#include <algorithm>
#include <fstream>
#include <set>

#include "sim/attacker.h"
#include "sim/checker.h"
#include "sim/pcap.h"
#include "sim/room.h"
#include "sim/wild_host.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

/// Phase two: what the stream, the last look for a heartbeat and the wait for a disk may still take, and for each
/// receiver its turns.
constexpr Duration LIVENESS_BOUND = 240s;
constexpr Duration LIVENESS_BOUND_PER_RECEIVER = 30s;

constexpr uint64_t OLD_CONTENT = 0x01DC0DE;
constexpr uint64_t TERABYTE = uint64_t{1} << 40;

class Run {
 public:
  Run(const RunPlan& plan, bool keepsLog)
      : plan(plan),
        room({plan.receivers, plan.number, plan.senderProfile, plan.receiverProfile, plan.autoOpenName}),
        checker(room, plan.senderProfile, plan.receiverProfile, {plan.hasAttacker, plan.attackerForgesSources}),
        attacker(room, plan.number, plan.attackerForgesSources) {
    room.World().SetLogging(keepsLog);
  }

  void Play() {
    SetUp();
    Start();
    PlayFaults();
    EndFaults();
    ComeToRest();
    checker.AtRest();
    result.tally = Judge(room, IsSenderThrough(), room.World().Now());
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

  SimMachine& MachineOf(Whom whom) { return whom ? room.Receiver(*whom) : room.Sender(); }

  void SetUp() {
    for (size_t i = 0; i < plan.fileSizes.size(); ++i) room.File(FileName(i), plan.fileSizes[i]);
    for (size_t i = 0; i < plan.emptyDirectories; ++i) room.EmptyDirectory("empty" + std::to_string(i));
    for (size_t i = 0; i <= room.Receivers(); ++i) {
      SimMachine& machine = i < room.Receivers() ? room.Receiver(i) : room.Sender();
      machine.SetClockDrift(plan.clockDrifts[i]);
      machine.LimitReceiveBuffers(plan.receiveBuffers[i]);
      for (size_t file = 0; plan.hasOldFiles && i < room.Receivers() && file < plan.fileSizes.size(); ++file)
        machine.Disk().WriteSynthetic(Room::TARGET + ("\\" + FileName(file)), plan.fileSizes[file], OLD_CONTENT);
    }
    if (plan.hasAttacker) room.ConfineReceivers();
    room.Net().SetLink(plan.common);
    if (plan.toOne) room.Net().SetLink(nullptr, &room.Receiver(0), *plan.toOne);
    if (plan.toSender) room.Net().SetLink(nullptr, &room.Sender(), *plan.toSender);
    for (const PlannedFault& fault : plan.faults) Prepare(fault);
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
        checker.AttackBegins();
        attacker.Begin();
      });
    while (!steps.empty()) {
      const auto next =
          std::min_element(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.at < b.at; });
      const Step step = std::move(*next);
      steps.erase(next);
      if (step.at > start + plan.faultsEnd) break;
      if (step.at > room.World().Now()) room.World().RunFor(step.at - room.World().Now());
      step.action();
    }
    const Moment end = start + plan.faultsEnd;
    if (end > room.World().Now()) room.World().RunFor(end - room.World().Now());
  }

  void Enter(Duration sinceStart, std::function<void()> action) {
    steps.push_back({start + sinceStart, std::move(action)});
  }

  void Begin(const PlannedFault& fault) {
    SimMachine& machine = MachineOf(fault.whom);
    switch (fault.kind) {
      case FaultKind::Crash: machine.PowerOff(); break;
      case FaultKind::PowerCut:
        if (fault.whom) checker.ReceiverLosesData(*fault.whom);
        room.World().CutPower(machine);
        break;
      case FaultKind::Freeze: machine.Freeze(); break;
      case FaultKind::LateStart: fault.whom ? void(room.StartReceiver(*fault.whom)) : Send(); break;
      case FaultKind::LinkHang: HangLink(machine, fault.duration); break;
      case FaultKind::Partition: CutOff(*fault.whom); break;
      case FaultKind::DiskFull: machine.Disk().SetFreeBytes(fault.amount); break;
      case FaultKind::DiskSlow: machine.Disk().SetWriteTime(std::chrono::microseconds(fault.amount)); break;
      case FaultKind::CallFails: machine.FailCall(fault.call, fault.amount); break;
      case FaultKind::NameRefused:
        machine.Disk().RefuseName([name = FileName(fault.amount)](const std::string& other) { return other == name; });
        break;
      case FaultKind::WindowCloses:
        if (fault.whom) checker.WindowCloses(*fault.whom);
        machine.DestroyWindow(fault.whom ? room.ReceiverWindow(*fault.whom) : room.SenderWindow());
        break;
      case FaultKind::WindowBlocks: windowBlocks.insert(&machine); break;
      case FaultKind::WildHost:
        checker.HostRunsWild(fault.whom);
        wildHosts.try_emplace(fault.whom, room, fault.whom, plan.number).first->second.Begin();
        break;
      case FaultKind::HostStops:
        checker.SenderStops();
        machine.Call([this] { room.Server().StopSend(); });
        break;
      case FaultKind::FileVanishes: machine.Disk().Remove(Room::SOURCE + ("\\" + FileName(fault.amount))); break;
    }
    if (fault.duration > Duration::zero()) Enter(fault.at + fault.duration, [this, &fault] { End(fault); });
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
      checker.ReceiverRestarts(*whom);
      room.RestartReceiver(*whom);
    } else {
      checker.SenderRestarts();
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
    room.Net().Partition({});
    windowBlocks.clear();
    for (size_t i = 0; i <= room.Receivers(); ++i) {
      SimMachine& machine = i < room.Receivers() ? room.Receiver(i) : room.Sender();
      machine.Thaw();
      machine.Disk().SetFreeBytes(TERABYTE);
      machine.Disk().SetWriteTime(Duration::zero());
      machine.Disk().RefuseName({});
      machine.FailCall("", 0);
    }
    for (const auto& [whom, host] : wildHosts) EndWildHost(whom);
  }

  void ComeToRest() {
    const Moment deadline =
        room.World().Now() + LIVENESS_BOUND + LIVENESS_BOUND_PER_RECEIVER * static_cast<int64_t>(room.Receivers());
    const auto isAtRest = [&] {
      for (size_t i = 0; i < room.Receivers(); ++i)
        if (!checker.IsAtRest(i)) return false;
      return IsSenderThrough();
    };
    while (!isAtRest() && room.World().Now() < deadline) room.World().RunFor(100ms);
    if (!isAtRest()) checker.DoesNotEnd(IsSenderThrough());
    room.World().RunFor(1s);
  }

  void TearDown() {
    for (size_t i = 0; i < room.Receivers(); ++i) room.Receiver(i).Call([&] { room.Client(i).DeInitClient(); });
    room.Sender().Call([&] { room.Server().DeInitServer(); });
    room.World().RunFor(20s);
    for (const PlannedFault& fault : plan.faults)
      if (fault.kind == FaultKind::WindowBlocks)
        MachineOf(fault.whom).DestroyWindow(fault.whom ? room.ReceiverWindow(*fault.whom) : room.SenderWindow());
    checker.AfterTearDown();
    result.violations = checker.Violations();
    result.classicExceptions = checker.ClassicExceptions();
    result.lies = attacker.Lies();
  }

  const RunPlan& plan;
  Room room;
  Checker checker;
  Attacker attacker;
  std::map<Whom, WildHost> wildHosts;
  std::set<const SimMachine*> windowBlocks;  ///< Whose procedure does not return at this moment.
  Moment start{};
  bool senderStarted = false;
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
