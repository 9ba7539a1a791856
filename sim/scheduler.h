#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/time.h"
#include "sim/fiber.h"

namespace quorl::sim {

class SimMachine;

/// One simulated thread, as the scheduler sees it.
struct Task {
  SimMachine* machine = nullptr;  ///< nullptr for the world's own main flow.
  std::optional<Fiber> fiber;     ///< Nothing for the main flow, and between two bodies.
  bool blocked = false;
  bool woken = false;              ///< The last Block ended by Wake, not by its deadline.
  uint64_t waits = 0;              ///< How often it has blocked; tells an outdated timer from the current one.
  uint64_t waitsWithoutPower = 0;  ///< Waits since its machine was switched off.
};

/// The tasks that wait for the same thing. A task that ends its wait has taken itself out before.
class WaitList {
 public:
  /// The task's membership for the length of a block of code.
  class Member {
   public:
    Member(WaitList& list, Task& task) : list(list), task(task) { list.tasks.push_back(&task); }
    ~Member() { std::erase(list.tasks, &task); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

   private:
    WaitList& list;
    Task& task;
  };

 private:
  friend class Scheduler;
  std::vector<Task*> tasks;
};

/// Virtual time and the order of everything. One task runs at a time, and runs on until it blocks; when nobody is
/// ready, time jumps to the next due event. Events due at the same time come in the order in which they were entered.
/// What is called outside every task is the main flow: it may block too, and the world runs meanwhile.
class Scheduler {
 public:
  Moment Now() const { return now; }

  /// Runs `action` at `moment`, or at once when that has passed, outside every task. It must not block.
  void At(Moment moment, std::function<void()> action);

  /// A new task, which begins when everybody who is ready now has run.
  Task& Start(SimMachine& machine, std::function<void()> body);

  /// Who runs: a task, or the one that stands for the main flow.
  Task& Current() { return *current; }
  bool IsMainFlow() const { return current == &mainFlow; }

  /// Blocks the current task until somebody wakes it (true) or until `deadline` (false; FOREVER: never).
  bool Block(Moment deadline);

  /// Nothing happens to a task that is not blocked.
  void Wake(Task& task);
  void WakeAll(const WaitList& list);

  /// Runs the world until `done` holds, tested after every step; false when `deadline` was reached or nothing can ever
  /// happen any more before that. Only from the main flow.
  bool RunUntil(const std::function<bool()>& done, Moment deadline);

  /// Lets time pass with nobody to see it, after everything due has run.
  void PassTimeTo(Moment moment) { now = std::max(now, moment); }

  /// The machine's tasks do not run, whatever happens; those that come due meanwhile run when it thaws.
  void Freeze(const SimMachine& machine) { frozen.push_back(&machine); }
  void Thaw(const SimMachine& machine);

  /// Tasks that have not ended.
  size_t RunningTasks() const { return runningTasks; }
  void ForEachTask(const SimMachine& machine, const std::function<void(Task&)>& visit);

 private:
  struct Due {
    Moment at;
    uint64_t sequence;
    Task* task;       ///< Whose deadline this is; nullptr for an action.
    uint64_t number;  ///< Which wait of the task, or which slot of `actions`.
  };
  enum class Step { Done, Idle, Late };

  bool IsOutdated(const Due& due) const;
  void Enter(Due due);
  Step RunStep(Moment deadline);
  void RunDue(const Due& due);
  void Resume(Task& task);
  bool IsHeldBack(Task& task);

  Moment now{0};
  uint64_t nextSequence = 0;
  uint64_t stepsAtThisMoment = 0;
  bool inAction = false;
  std::vector<Due> queue;  ///< A heap, the next due first.
  std::vector<std::function<void()>> actions;
  std::vector<uint64_t> freeActions;
  std::deque<Task*> ready;
  std::vector<std::unique_ptr<Task>> tasks;
  std::vector<Task*> idleTasks;
  std::vector<const SimMachine*> frozen;
  std::vector<Task*> heldBack;  ///< Due, but their machine is frozen.
  size_t runningTasks = 0;
  Task mainFlow;
  Task* current = &mainFlow;
};

}  // namespace quorl::sim
