#include "sim/machine/machine_threads.h"

#include "sim/machine/machine.h"
#include "sim/world/fibers/sanitizers.h"

namespace quorl::sim {

namespace {

constexpr int64_t MILLION = 1'000'000;

class SimThread : public Thread, public std::enable_shared_from_this<SimThread> {
 public:
  explicit SimThread(SimMachine& machine) : machine(machine) {}

  bool IsCurrent() const override { return flow == &machine.Schedule().Current(); }

  bool WaitForEnd(Duration limit) override {
    if (IsCurrent()) return false;
    const auto alive = shared_from_this();
    const Moment deadline = machine.Deadline(limit);
    while (flow != nullptr) {
      const WaitList::Member member(waiters, machine.Schedule().Current());
      if (!machine.Wait(deadline, SimMachine::WaitKind::Bounded)) break;
    }
    if (flow == nullptr) HappensAfter(this);
    return flow == nullptr;
  }

  void End() {
    HappensBefore(this);
    flow = nullptr;
    machine.Schedule().WakeAll(waiters);
  }

  Flow* flow = nullptr;  ///< nullptr once it has ended.

 private:
  SimMachine& machine;
  WaitList waiters;
};

}  // namespace

Moment MachineClock::Now() {
  return shownStart + Shown(machine.Schedule().Now() - worldStart);
}

void MachineClock::SleepUntil(Moment moment) {
  machine.Wait(WorldTime(moment), SimMachine::WaitKind::Unbounded);
}

void MachineClock::SetDrift(int64_t millionths) {
  shownStart = Now();
  worldStart = machine.Schedule().Now();
  drift = millionths;
}

Moment MachineClock::WorldTime(Moment moment) const {
  return moment <= shownStart ? worldStart : worldStart + WorldDuration(moment - shownStart);
}

Duration MachineClock::WorldDuration(Duration duration) const {
  if (drift == 0) return duration;
  const double speed = 1 + static_cast<double>(drift) / MILLION;
  Duration result(static_cast<Duration::rep>(static_cast<double>(duration.count()) / speed));
  // A thread that has waited finds that the clock has got there.
  while (Shown(result) < duration) ++result;
  return result;
}

Duration MachineClock::Shown(Duration worldDuration) const {
  const auto count = worldDuration.count();
  return worldDuration + Duration(count / MILLION * drift + count % MILLION * drift / MILLION);
}

void SimEvent::Set() {
  HappensBefore(this);
  set = true;
  machine.Schedule().WakeAll(waiters);
}

bool SimEvent::Wait(Duration limit) {
  // Who waits keeps the event, also when a test lets go of it and its machine loses its power only later.
  const auto alive = shared_from_this();
  const Moment deadline = machine.Deadline(limit);
  const auto kind = limit == FOREVER ? SimMachine::WaitKind::Unbounded : SimMachine::WaitKind::Bounded;
  while (!set) {
    const WaitList::Member member(waiters, machine.Schedule().Current());
    if (!machine.Wait(deadline, kind)) break;
  }
  return IsSet();
}

bool SimEvent::IsSet() {
  if (set) HappensAfter(this);
  return set;
}

std::shared_ptr<Event> MachineThreads::MakeEvent() {
  if (machine.Fails(Seam::Threads, "threads.event")) return nullptr;
  return std::make_shared<SimEvent>(machine);
}

std::shared_ptr<Thread> MachineThreads::Start(const char* name, Priority priority, std::function<void()> body) {
  if (machine.Fails(Seam::Threads, "threads.start")) return nullptr;
  const char* const how = priority == Priority::AboveNormal ? "starts above normal" : "starts";
  const auto thread = std::make_shared<SimThread>(machine);
  thread->flow = &machine.StartThread(name, how, std::move(body), [thread] { thread->End(); });
  return thread;
}

}  // namespace quorl::sim
