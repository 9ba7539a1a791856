#pragma once

#include <cstddef>
#include <functional>
#include <span>

#include "sim/world/fibers/context.h"

namespace quorl::sim {

/// A flow of execution with a stack of its own, which runs only while somebody resumes it. Any number of fibers take
/// turns in one thread of the operating system; a fiber stays in the thread that first resumed it.
class Fiber {
 public:
  /// Nothing runs before the first Resume.
  explicit Fiber(std::function<void()> body);

  /// The body has returned, or was never resumed.
  ~Fiber();

  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Runs the body until it suspends or returns. To be called outside every fiber. An exception that leaves the body
  /// ends the program, as in a thread.
  void Resume();

  /// Returns from Resume; comes back when the fiber is resumed again. To be called on this fiber.
  void Suspend();

  /// For the thread sanitizer: what fibers have done up to here comes before what follows outside them.
  static void OutsideSeesAll();

  /// The body has returned and what it held is destroyed.
  bool HasEnded() const { return ended; }

 private:
  // What the C++ runtime keeps for a thread about exceptions under way; each fiber needs its own.
  struct Exceptions {
    void* caught = nullptr;
    unsigned int uncaught = 0;
  };

  static void Enter() noexcept;
  void SwapThreadState();

  std::function<void()> body;
  bool ended = false;
  bool begun = false;
  std::span<std::byte> stack;
  Context inside;
  Context outside;
  Exceptions exceptions;

  // For the sanitizers, which must be told of each change of stacks.
  void* insideFakeStack = nullptr;
  void* outsideFakeStack = nullptr;
  const void* outsideBottom = nullptr;
  size_t outsideSize = 0;
  int unwatchedDepth = 0;
  void* insideThread = nullptr;
  void* outsideThread = nullptr;
};

}  // namespace quorl::sim
