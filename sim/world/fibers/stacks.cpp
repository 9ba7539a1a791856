#include "sim/world/fibers/stacks.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <vector>

#include "sim/world/fibers/sanitizers.h"

namespace quorl::sim {

namespace {

// The sanitizers make frames several times as large. Untouched pages cost nothing.
constexpr size_t STACK_BYTES = (IS_SANITIZED ? 1024 : 256) * 1024;

// A campaign of many small worlds would otherwise spend much of its time mapping and faulting in fresh pages.
constexpr size_t KEPT_STACKS = 64;

size_t PageBytes() {
  static const size_t bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

void Unmap(std::span<std::byte> stack) {
  munmap(stack.data() - PageBytes(), stack.size() + PageBytes());
}

struct Kept {
  std::vector<std::span<std::byte>> stacks;

  ~Kept() {
    for (const auto& stack : stacks) Unmap(stack);
  }
};

thread_local Kept kept;

}  // namespace

std::span<std::byte> TakeStack() {
  if (!kept.stacks.empty()) {
    const auto stack = kept.stacks.back();
    kept.stacks.pop_back();
    return stack;
  }
  void* const memory =
      mmap(nullptr, PageBytes() + STACK_BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  mprotect(memory, PageBytes(), PROT_NONE);
  return {static_cast<std::byte*>(memory) + PageBytes(), STACK_BYTES};
}

void GiveStackBack(std::span<std::byte> stack) {
  // The last frame of the fiber was left without returning.
  UnpoisonMemory(stack.data(), stack.size());
  if (kept.stacks.size() < KEPT_STACKS) {
    kept.stacks.push_back(stack);
  } else {
    Unmap(stack);
  }
}

}  // namespace quorl::sim
