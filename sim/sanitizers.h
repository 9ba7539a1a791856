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
#include <sanitizer/tsan_interface.h>
#else
#define QUORL_SIM_TSAN 0
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

inline void SwitchSanitizerThread([[maybe_unused]] void* thread) {
#if QUORL_SIM_TSAN
  __tsan_switch_to_fiber(thread, 0);
#endif
}

}  // namespace quorl::sim
