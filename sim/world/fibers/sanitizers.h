// What the sanitizers want to know about fibers, as functions that are empty in other builds.
#pragma once

#include <cstddef>

#if defined(__has_feature)
#define QUORL_SIM_HAS_FEATURE(FEATURE) __has_feature(FEATURE)
#else
#define QUORL_SIM_HAS_FEATURE(FEATURE) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || QUORL_SIM_HAS_FEATURE(address_sanitizer)
#define QUORL_SIM_ASAN 1
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#else
#define QUORL_SIM_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__) || QUORL_SIM_HAS_FEATURE(thread_sanitizer)
#define QUORL_SIM_TSAN 1
#define QUORL_SIM_UNWATCHED [[gnu::no_sanitize("thread")]]
#include <sanitizer/tsan_interface.h>
extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
}
#else
#define QUORL_SIM_TSAN 0
#define QUORL_SIM_UNWATCHED
#endif

namespace quorl::sim {

inline constexpr bool IS_SANITIZED = QUORL_SIM_ASAN || QUORL_SIM_TSAN;

/// Before a switch to the stack at `bottom`. `fakeStack` receives what FinishStackSwitch wants when the flow that is
/// left goes on; nullptr when it never does.
inline void StartStackSwitch([[maybe_unused]] void** fakeStack, [[maybe_unused]] const void* bottom,
                             [[maybe_unused]] size_t size) {
#if QUORL_SIM_ASAN
  __sanitizer_start_switch_fiber(fakeStack, bottom, size);
#endif
}

/// After a switch, on the stack that goes on; tells which one was left.
inline void FinishStackSwitch([[maybe_unused]] void* fakeStack, [[maybe_unused]] const void** leftBottom,
                              [[maybe_unused]] size_t* leftSize) {
#if QUORL_SIM_ASAN
  __sanitizer_finish_switch_fiber(fakeStack, leftBottom, leftSize);
#endif
}

inline void UnpoisonMemory([[maybe_unused]] void* memory, [[maybe_unused]] size_t size) {
#if QUORL_SIM_ASAN
  __asan_unpoison_memory_region(memory, size);
#endif
}

inline void* CurrentSanitizerThread() {
#if QUORL_SIM_TSAN
  return __tsan_get_current_fiber();
#else
  return nullptr;
#endif
}

inline void* MakeSanitizerThread() {
#if QUORL_SIM_TSAN
  return __tsan_create_fiber(0);
#else
  return nullptr;
#endif
}

inline void DestroySanitizerThread([[maybe_unused]] void* thread) {
#if QUORL_SIM_TSAN
  __tsan_destroy_fiber(thread);
#endif
}

/// The fibers take turns, but what they do is not in order by that: only what real threads have, such as a mutex or an
/// event, puts it in order.
inline void SwitchSanitizerThread([[maybe_unused]] void* thread) {
#if QUORL_SIM_TSAN
  __tsan_switch_to_fiber(thread, __tsan_switch_to_fiber_no_sync);
#endif
}

/// Everything before a HappensBefore comes before what follows a later HappensAfter of the same place.
inline void HappensBefore([[maybe_unused]] void* place) {
#if QUORL_SIM_TSAN
  __tsan_release(place);
#endif
}
inline void HappensAfter([[maybe_unused]] void* place) {
#if QUORL_SIM_TSAN
  __tsan_acquire(place);
#endif
}

/// How deep in the simulator the current thread is; each fiber has its own.
QUORL_SIM_UNWATCHED inline int& UnwatchedDepth() {
  thread_local int depth = 0;
  return depth;
}

QUORL_SIM_UNWATCHED inline void SwapUnwatchedDepth(int& other) {
  const int mine = UnwatchedDepth();
  UnwatchedDepth() = other;
  other = mine;
}

inline void SetWatched([[maybe_unused]] bool watched) {
#if QUORL_SIM_TSAN
  if (watched) {
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
  } else {
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
  }
#endif
}

/// From here on the current thread works for the simulator, whose parts need no locks, since its threads take turns.
QUORL_SIM_UNWATCHED inline void BeginUnwatched() {
  if (QUORL_SIM_TSAN && UnwatchedDepth()++ == 0) SetWatched(false);
}
QUORL_SIM_UNWATCHED inline void EndUnwatched() {
  if (QUORL_SIM_TSAN && --UnwatchedDepth() == 0) SetWatched(true);
}

/// While it lives, what the current thread does is looked at again, in the midst of the simulator.
class Watched {
 public:
  QUORL_SIM_UNWATCHED Watched() : depth(UnwatchedDepth()) {
    UnwatchedDepth() = 0;
    SetWatched(true);
  }
  QUORL_SIM_UNWATCHED ~Watched() {
    UnwatchedDepth() = depth;
    SetWatched(false);
  }
  Watched(const Watched&) = delete;
  Watched& operator=(const Watched&) = delete;

 private:
  const int depth;
};

}  // namespace quorl::sim
