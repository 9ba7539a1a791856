#pragma once

#include <memory>

#include "platform/clock.h"
#include "platform/threads.h"
#include "sim/world/scheduler.h"

namespace quorl::sim {

class SimMachine;

/// The clock of one machine. It shows the world's time as long as it does not drift.
class MachineClock : public Clock {
 public:
  explicit MachineClock(SimMachine& machine) : machine(machine) {}

  Moment Now() override;
  void SleepUntil(Moment moment) override;

  /// From now on it gains so many millionths; below 0 it loses.
  void SetDrift(int64_t millionths);

  /// When this clock shows `moment`, in the world's time.
  Moment WorldTime(Moment moment) const;

  /// How long a wait by this clock takes in the world.
  Duration WorldDuration(Duration duration) const;

 private:
  Duration Shown(Duration worldDuration) const;

  SimMachine& machine;
  int64_t drift = 0;
  Moment worldStart{0};  ///< When the drift was set, in the world's time,
  Moment shownStart{0};  ///< and by this clock.
};

class SimEvent : public Event, public std::enable_shared_from_this<SimEvent> {
 public:
  explicit SimEvent(SimMachine& machine) : machine(machine) {}

  void Set() override;
  void Reset() override { set = false; }
  bool IsSet() override;
  bool Wait(Duration limit) override;

  /// For who waits for this event and something else.
  WaitList& Waiters() { return waiters; }

 private:
  SimMachine& machine;
  bool set = false;
  WaitList waiters;
};

class MachineThreads : public Threads {
 public:
  explicit MachineThreads(SimMachine& machine) : machine(machine) {}

  std::shared_ptr<Event> MakeEvent() override;
  std::shared_ptr<Thread> Start(const char* name, Priority priority, std::function<void()> body) override;

 private:
  SimMachine& machine;
};

}  // namespace quorl::sim
