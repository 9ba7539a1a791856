// The loop that everything in a simulated world runs under.
//
// The queue holds deadlines of blocked tasks and actions. A deadline is not taken out when its task is woken earlier:
// it stays until it comes to the front and is then seen to be outdated, because the task has counted another wait
// since. For this to hold, tasks are used again but never freed while the world exists.
#include "sim/scheduler.h"

#include <algorithm>
#include <cassert>
#include <stdexcept>
#include <utility>

namespace quorl::sim {

namespace {

// Tasks that hand on to each other for ever without time passing would otherwise look like a slow test.
constexpr uint64_t MOST_STEPS_AT_ONE_MOMENT = 20'000'000;

constexpr auto IS_LATER = [](const auto& a, const auto& b) {
  return a.at != b.at ? a.at > b.at : a.sequence > b.sequence;
};

}  // namespace

void Scheduler::At(Moment moment, std::function<void()> action) {
  uint64_t slot = actions.size();
  if (freeActions.empty()) {
    actions.push_back(std::move(action));
  } else {
    slot = freeActions.back();
    freeActions.pop_back();
    actions[slot] = std::move(action);
  }
  Enter({std::max(moment, now), nextSequence++, nullptr, slot});
}

Task& Scheduler::Start(SimMachine& machine, std::function<void()> body) {
  Task* task = nullptr;
  if (idleTasks.empty()) {
    task = tasks.emplace_back(std::make_unique<Task>()).get();
  } else {
    task = idleTasks.back();
    idleTasks.pop_back();
  }
  task->machine = &machine;
  task->waitsWithoutPower = 0;
  task->fiber.emplace(std::move(body));
  ++runningTasks;
  ready.push_back(task);
  return *task;
}

bool Scheduler::Block(Moment deadline) {
  assert(!inAction && "an action must not wait");
  Task& self = *current;
  ++self.waits;
  self.blocked = true;
  self.woken = false;
  if (deadline != FOREVER) Enter({std::max(deadline, now), nextSequence++, &self, self.waits});
  if (&self != &mainFlow) {
    self.fiber->Suspend();
  } else if (!RunUntil([&self] { return !self.blocked; }, FOREVER)) {
    throw std::logic_error("the main flow waits for something that can never happen");
  }
  return self.woken;
}

void Scheduler::Wake(Task& task) {
  if (!task.blocked) return;
  task.blocked = false;
  task.woken = true;
  if (&task != &mainFlow) ready.push_back(&task);
}

void Scheduler::WakeAll(const WaitList& list) {
  for (Task* task : list.tasks) Wake(*task);
}

bool Scheduler::RunUntil(const std::function<bool()>& done, Moment deadline) {
  assert(IsMainFlow() && !inAction && "the world is run from outside its threads");
  while (!done())
    if (RunStep(deadline) != Step::Done) return false;
  return true;
}

void Scheduler::ForEachTask(const SimMachine& machine, const std::function<void(Task&)>& visit) {
  for (const auto& task : tasks)
    if (task->fiber && task->machine == &machine) visit(*task);
}

bool Scheduler::IsOutdated(const Due& due) const {
  return due.task != nullptr && (!due.task->blocked || due.task->waits != due.number);
}

void Scheduler::Enter(Due due) {
  queue.push_back(due);
  std::push_heap(queue.begin(), queue.end(), IS_LATER);
}

Scheduler::Step Scheduler::RunStep(Moment deadline) {
  ++stepsAtThisMoment;
  assert(stepsAtThisMoment < MOST_STEPS_AT_ONE_MOMENT && "virtual time stands still");
  if (!ready.empty()) {
    Task& task = *ready.front();
    ready.pop_front();
    Resume(task);
    return Step::Done;
  }
  while (!queue.empty()) {
    const Due due = queue.front();
    const bool outdated = IsOutdated(due);
    if (!outdated && due.at > deadline) {
      PassTimeTo(deadline);
      return Step::Late;
    }
    std::pop_heap(queue.begin(), queue.end(), IS_LATER);
    queue.pop_back();
    if (outdated) continue;
    RunDue(due);
    return Step::Done;
  }
  return Step::Idle;
}

void Scheduler::RunDue(const Due& due) {
  if (due.at != now) stepsAtThisMoment = 0;
  now = due.at;
  if (due.task != nullptr) {
    due.task->blocked = false;
    if (due.task != &mainFlow) Resume(*due.task);
    return;
  }
  const std::function<void()> action = std::exchange(actions[due.number], nullptr);
  freeActions.push_back(due.number);
  inAction = true;
  action();
  inAction = false;
}

void Scheduler::Thaw(const SimMachine& machine) {
  std::erase(frozen, &machine);
  const auto held = std::stable_partition(heldBack.begin(), heldBack.end(),
                                          [&](const Task* task) { return task->machine != &machine; });
  ready.insert(ready.end(), held, heldBack.end());
  heldBack.erase(held, heldBack.end());
}

bool Scheduler::IsHeldBack(Task& task) {
  if (frozen.empty() || std::find(frozen.begin(), frozen.end(), task.machine) == frozen.end()) return false;
  heldBack.push_back(&task);
  return true;
}

void Scheduler::Resume(Task& task) {
  if (IsHeldBack(task)) return;
  current = &task;
  task.fiber->Resume();
  current = &mainFlow;
  if (!task.fiber->HasEnded()) return;
  task.fiber.reset();
  --runningTasks;
  idleTasks.push_back(&task);
}

}  // namespace quorl::sim
