// For the thread sanitizer every function of the simulator's machines is compiled with a call of these two around it.
#include "sim/world/fibers/sanitizers.h"

#if QUORL_SIM_TSAN

#include <thread>

extern "C" {

void __cyg_profile_func_enter(void*, void*) {
  quorl::sim::BeginUnwatched();
}

void __cyg_profile_func_exit(void*, void*) {
  quorl::sim::EndUnwatched();
}
}

namespace {

// As long as a process has had one thread only, shared pointers count without the atomic operations that order threads.
const bool HAS_HAD_THREADS = [] {
  std::thread([] {}).join();
  return true;
}();

}  // namespace

#endif
