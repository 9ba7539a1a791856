// On Windows exceptions and stack probes ask the system where the stack of a thread lies, so that only the system
// itself may change it: by fibers, which come with stacks of their own.
#include "sim/world/fibers/context.h"

#include <windows.h>

#include <new>

#include "sim/world/fibers/stacks.h"

namespace quorl::sim {

namespace {

constexpr size_t STACK_BYTES = 256 * 1024;

void* FiberOfThread() {
  thread_local void* const fiber = ConvertThreadToFiberEx(nullptr, FIBER_FLAG_FLOAT_SWITCH);
  return fiber;
}

void CALLBACK Begin(void* entry) {
  reinterpret_cast<void (*)()>(entry)();
}

}  // namespace

Context::~Context() {
  if (owned) DeleteFiber(fiber);
}

void Context::Prepare(std::span<std::byte>, void (*entry)()) {
  fiber = CreateFiberEx(0, STACK_BYTES, FIBER_FLAG_FLOAT_SWITCH, &Begin, reinterpret_cast<void*>(entry));
  if (!fiber) throw std::bad_alloc();
  owned = true;
}

// A context that was never prepared is where the thread itself stands.
void Context::Switch(Context& from, Context& to) {
  if (!from.owned) from.fiber = FiberOfThread();
  SwitchToFiber(to.fiber);
}

std::span<std::byte> TakeStack() {
  return {};
}

void GiveStackBack(std::span<std::byte>) {}

}  // namespace quorl::sim
