#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/time.h"
#include "sim/world/fibers/fiber.h"

namespace quorl::sim {

class SimMachine;

/// One simulated thread, as the scheduler sees it.
struct Flow {
  SimMachine* machine = nullptr;  ///< nullptr for the world's own main flow.
  std::optional<Fiber> fiber;     ///< Nothing for the main flow, and between two bodies.
  bool blocked = false;
  bool woken = false;              ///< The last Block ended by Wake, not by its deadline.
  uint64_t waits = 0;              ///< How often it has blocked; tells an outdated timer from the current one.
  uint64_t waitsWithoutPower = 0;  ///< Waits since its machine was switched off.
};

/// The flows that wait for the same thing. A flow that ends its wait has taken itself out before.
class WaitList {
 public:
  /// The flow's membership for the length of a block of code.
  class Member {
   public:
    Member(WaitList& list, Flow& flow) : list(list), flow(flow) { list.flows.push_back(&flow); }
    ~Member() { std::erase(list.flows, &flow); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

   private:
    WaitList& list;
    Flow& flow;
  };

 private:
  friend class Scheduler;
  std::vector<Flow*> flows;
};

/// Virtual time and the order of everything. One flow runs at a time, and runs on until it blocks; when nobody is
/// ready, time jumps to the next due event. Events due at the same time come in the order in which they were entered.
/// What is called outside every flow is the main flow: it may block too, and the world runs meanwhile.
class Scheduler {
 public:
  Moment Now() const { return now; }

  /// Runs `action` at `moment`, or at once when that has passed, outside every flow. It must not block.
  void At(Moment moment, std::function<void()> action);

  /// A new flow, which begins when every flow that is ready now has run.
  Flow& Start(SimMachine& machine, std::function<void()> body);

  /// Who runs: a flow, or the one that stands for the main flow.
  Flow& Current() { return *current; }
  bool IsMainFlow() const { return current == &mainFlow; }

  /// Blocks the current flow until somebody wakes it (true) or until `deadline` (false; FOREVER: never).
  bool Block(Moment deadline);

  /// Nothing happens to a flow that is not blocked.
  void Wake(Flow& flow);
  void WakeAll(const WaitList& list);

  /// Runs the world until `done` holds, tested after every step; false when `deadline` was reached or nothing can ever
  /// happen any more before that. Only from the main flow.
  bool RunUntil(const std::function<bool()>& done, Moment deadline);

  /// Lets time pass with nobody to see it, after everything due has run.
  void PassTimeTo(Moment moment) { now = std::max(now, moment); }

  /// The machine's flows do not run, whatever happens; those that come due meanwhile run when it thaws.
  void Freeze(const SimMachine& machine) { frozen.push_back(&machine); }
  void Thaw(const SimMachine& machine);

  /// Tasks that have not ended.
  size_t RunningFlows() const { return runningFlows; }
  void ForEachFlow(const SimMachine& machine, const std::function<void(Flow&)>& visit);

 private:
  struct Due {
    Moment at;
    uint64_t sequence;
    Flow* flow;       ///< Whose deadline this is; nullptr for an action.
    uint64_t number;  ///< Which wait of the flow, or which slot of `actions`.
  };
  enum class Step { Done, Idle, Late };

  bool IsOutdated(const Due& due) const;
  void Enter(Due due);
  Step RunStep(Moment deadline);
  void RunDue(const Due& due);
  void Resume(Flow& flow);
  bool IsHeldBack(Flow& flow);

  Moment now{0};
  uint64_t nextSequence = 0;
  uint64_t stepsAtThisMoment = 0;
  bool inAction = false;
  std::vector<Due> queue;  ///< A heap, the next due first.
  std::vector<std::function<void()>> actions;
  std::vector<uint64_t> freeActions;
  std::deque<Flow*> ready;
  std::vector<std::unique_ptr<Flow>> flows;
  std::vector<Flow*> idleFlows;
  std::vector<const SimMachine*> frozen;
  std::vector<Flow*> heldBack;  ///< Due, but their machine is frozen.
  size_t runningFlows = 0;
  Flow mainFlow;
  Flow* current = &mainFlow;
};

}  // namespace quorl::sim
