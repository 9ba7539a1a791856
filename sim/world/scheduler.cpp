// The loop that everything in a simulated world runs under.
//
// The queue holds deadlines of blocked flows and actions. A deadline is not taken out when its flow is woken earlier:
// it stays until it comes to the front and is then seen to be outdated, because the flow has counted another wait
// since. For this to hold, flows are used again but never freed while the world exists.
#include "sim/world/scheduler.h"

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

Flow& Scheduler::Start(SimMachine& machine, std::function<void()> body) {
  Flow* flow = nullptr;
  if (idleFlows.empty()) {
    flow = flows.emplace_back(std::make_unique<Flow>()).get();
  } else {
    flow = idleFlows.back();
    idleFlows.pop_back();
  }
  flow->machine = &machine;
  flow->waitsWithoutPower = 0;
  flow->fiber.emplace(std::move(body));
  ++runningFlows;
  ready.push_back(flow);
  return *flow;
}

bool Scheduler::Block(Moment deadline) {
  assert(!inAction && "an action must not wait");
  Flow& self = *current;
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

void Scheduler::Wake(Flow& flow) {
  if (!flow.blocked) return;
  flow.blocked = false;
  flow.woken = true;
  if (&flow != &mainFlow) ready.push_back(&flow);
}

void Scheduler::WakeAll(const WaitList& list) {
  for (Flow* flow : list.flows) Wake(*flow);
}

bool Scheduler::RunUntil(const std::function<bool()>& done, Moment deadline) {
  assert(IsMainFlow() && !inAction && "the world is run from outside its threads");
  bool isDone = done();
  while (!isDone && RunStep(deadline) == Step::Done) isDone = done();
  Fiber::OutsideSeesAll();
  return isDone;
}

void Scheduler::ForEachFlow(const SimMachine& machine, const std::function<void(Flow&)>& visit) {
  for (const auto& flow : flows)
    if (flow->fiber && flow->machine == &machine) visit(*flow);
}

bool Scheduler::IsOutdated(const Due& due) const {
  return due.flow != nullptr && (!due.flow->blocked || due.flow->waits != due.number);
}

void Scheduler::Enter(Due due) {
  queue.push_back(due);
  std::push_heap(queue.begin(), queue.end(), IS_LATER);
}

Scheduler::Step Scheduler::RunStep(Moment deadline) {
  ++stepsAtThisMoment;
  assert(stepsAtThisMoment < MOST_STEPS_AT_ONE_MOMENT && "virtual time stands still");
  if (!ready.empty()) {
    Flow& flow = *ready.front();
    ready.pop_front();
    Resume(flow);
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
  if (due.flow != nullptr) {
    due.flow->blocked = false;
    if (due.flow != &mainFlow) Resume(*due.flow);
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
                                          [&](const Flow* flow) { return flow->machine != &machine; });
  ready.insert(ready.end(), held, heldBack.end());
  heldBack.erase(held, heldBack.end());
}

bool Scheduler::IsHeldBack(Flow& flow) {
  if (frozen.empty() || std::find(frozen.begin(), frozen.end(), flow.machine) == frozen.end()) return false;
  heldBack.push_back(&flow);
  return true;
}

void Scheduler::Resume(Flow& flow) {
  if (IsHeldBack(flow)) return;
  current = &flow;
  flow.fiber->Resume();
  current = &mainFlow;
  if (!flow.fiber->HasEnded()) return;
  flow.fiber.reset();
  --runningFlows;
  idleFlows.push_back(&flow);
}

}  // namespace quorl::sim
