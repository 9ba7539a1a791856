// Changes from one stack to another. The C library's swapcontext makes a system call for the signal mask at every
// switch, which costs more than everything else that a simulated thread's wait does. Nobody here changes the mask, so
// on the usual processors a few instructions of our own save what a called function must preserve, and nothing else.
#include "sim/world/fibers/context.h"

#include <cstdint>

#if QUORL_SIM_OWN_SWITCH
extern "C" void QuorlSimSwitch(void** saveStackPointer, void* stackPointer);
#endif

#if defined(__x86_64__)
asm(R"(
.text
.globl QuorlSimSwitch
.hidden QuorlSimSwitch
.type QuorlSimSwitch, @function
QuorlSimSwitch:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
.size QuorlSimSwitch, .-QuorlSimSwitch
)");
#elif defined(__aarch64__)
asm(R"(
.text
.globl QuorlSimSwitch
.hidden QuorlSimSwitch
.type QuorlSimSwitch, %function
QuorlSimSwitch:
  sub sp, sp, #160
  stp x19, x20, [sp]
  stp x21, x22, [sp, #16]
  stp x23, x24, [sp, #32]
  stp x25, x26, [sp, #48]
  stp x27, x28, [sp, #64]
  stp x29, x30, [sp, #80]
  stp d8, d9, [sp, #96]
  stp d10, d11, [sp, #112]
  stp d12, d13, [sp, #128]
  stp d14, d15, [sp, #144]
  mov x2, sp
  str x2, [x0]
  mov sp, x1
  ldp x19, x20, [sp]
  ldp x21, x22, [sp, #16]
  ldp x23, x24, [sp, #32]
  ldp x25, x26, [sp, #48]
  ldp x27, x28, [sp, #64]
  ldp x29, x30, [sp, #80]
  ldp d8, d9, [sp, #96]
  ldp d10, d11, [sp, #112]
  ldp d12, d13, [sp, #128]
  ldp d14, d15, [sp, #144]
  add sp, sp, #160
  ret
.size QuorlSimSwitch, .-QuorlSimSwitch
)");
#endif

namespace quorl::sim {

#if QUORL_SIM_OWN_SWITCH

void Context::Prepare(std::span<std::byte> stack, void (*entry)()) {
  // The frame that QuorlSimSwitch takes down, all zeros but for the address that it returns to. On x86-64 two words
  // stand above the saved registers: that address, and an empty return address for `entry`, which ends backtraces and
  // leaves the stack aligned as at any function's entry.
  const uintptr_t top = reinterpret_cast<uintptr_t>(stack.data() + stack.size()) & ~uintptr_t{15};
#if defined(__x86_64__)
  constexpr size_t FRAME_WORDS = 8;
  constexpr size_t RETURN_WORD = 6;
#else
  constexpr size_t FRAME_WORDS = 20;
  constexpr size_t RETURN_WORD = 11;
#endif
  auto* const frame = reinterpret_cast<uintptr_t*>(top) - FRAME_WORDS;
  for (size_t word = 0; word < FRAME_WORDS; ++word) frame[word] = 0;
  frame[RETURN_WORD] = reinterpret_cast<uintptr_t>(entry);
  stackPointer = frame;
}

void Context::Switch(Context& from, Context& to) {
  QuorlSimSwitch(&from.stackPointer, to.stackPointer);
}

#else

void Context::Prepare(std::span<std::byte> stack, void (*entry)()) {
  getcontext(&registers);
  registers.uc_stack.ss_sp = stack.data();
  registers.uc_stack.ss_size = stack.size();
  registers.uc_link = nullptr;
  makecontext(&registers, entry, 0);
}

void Context::Switch(Context& from, Context& to) {
  swapcontext(&from.registers, &to.registers);
}

#endif

}  // namespace quorl::sim
