#pragma once

#include <cstddef>
#include <span>

#if defined(_WIN32)
#define QUORL_SIM_OWN_SWITCH 0
#elif defined(__x86_64__) && !defined(__ILP32__)
#define QUORL_SIM_OWN_SWITCH 1
#elif defined(__aarch64__)
#define QUORL_SIM_OWN_SWITCH 1
#else
#define QUORL_SIM_OWN_SWITCH 0
#include <ucontext.h>
#endif

namespace quorl::sim {

/// A place where execution on some stack stands still.
class Context {
 public:
  /// The first switch to this context calls `entry`, which never returns, on `stack`.
  void Prepare(std::span<std::byte> stack, void (*entry)());

  /// Stands still in `from` and goes on in `to`. Returns when somebody switches to `from` again.
  static void Switch(Context& from, Context& to);

#if defined(_WIN32)
  Context() = default;
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
#endif

 private:
#if defined(_WIN32)
  void* fiber = nullptr;  // The system's own, with a stack that the system makes.
  bool owned = false;
#elif QUORL_SIM_OWN_SWITCH
  void* stackPointer = nullptr;
#else
  ucontext_t registers{};
#endif
};

}  // namespace quorl::sim
