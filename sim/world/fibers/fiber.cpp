#include "sim/world/fibers/fiber.h"

#include <cxxabi.h>

#include <cassert>
#include <cstdlib>
#include <utility>

#include "sim/world/fibers/sanitizers.h"
#include "sim/world/fibers/stacks.h"

namespace quorl::sim {

namespace {

// The fiber that runs in this thread of the operating system.
thread_local Fiber* running = nullptr;

}  // namespace

Fiber::Fiber(std::function<void()> body) : body(std::move(body)), stack(TakeStack()) {
  inside.Prepare(stack, &Fiber::Enter);
  insideThread = MakeSanitizerThread();
}

Fiber::~Fiber() {
  assert((ended || !begun) && "a fiber is destroyed in the middle of its body");
  DestroySanitizerThread(insideThread);
  GiveStackBack(stack);
}

void Fiber::Resume() {
  assert(running == nullptr && !ended);
  running = this;
  begun = true;
  outsideThread = CurrentSanitizerThread();
  SwapThreadState();
  StartStackSwitch(&outsideFakeStack, stack.data(), stack.size());
  SwitchSanitizerThread(insideThread);
  Context::Switch(outside, inside);
  FinishStackSwitch(outsideFakeStack, nullptr, nullptr);
  SwapThreadState();
  running = nullptr;
}

void Fiber::Suspend() {
  BeginUnwatched();
  assert(running == this);
  HappensBefore(&running);
  StartStackSwitch(&insideFakeStack, outsideBottom, outsideSize);
  SwitchSanitizerThread(outsideThread);
  Context::Switch(inside, outside);
  FinishStackSwitch(insideFakeStack, &outsideBottom, &outsideSize);
  EndUnwatched();
}

void Fiber::OutsideSeesAll() {
  HappensAfter(&running);
}

void Fiber::Enter() noexcept {
  BeginUnwatched();
  Fiber& self = *running;
  // The stack may have been another fiber's.
  HappensAfter(self.stack.data());
  FinishStackSwitch(nullptr, &self.outsideBottom, &self.outsideSize);
  self.body();
  self.body = nullptr;
  self.ended = true;
  HappensBefore(&running);
  HappensBefore(self.stack.data());
  EndUnwatched();
  StartStackSwitch(nullptr, self.outsideBottom, self.outsideSize);
  SwitchSanitizerThread(self.outsideThread);
  Context::Switch(self.inside, self.outside);
  std::abort();
}

void Fiber::SwapThreadState() {
  auto& current = *reinterpret_cast<Exceptions*>(abi::__cxa_get_globals());
  std::swap(current, exceptions);
  SwapUnwatchedDepth(unwatchedDepth);
}

}  // namespace quorl::sim
