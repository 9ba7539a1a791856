// The C library's own choice is made for speed: a heap for each thread, which grows and is rarely given back.
#include "cli/system/memory.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace quorl::cli {

void KeepMemorySmall() {
#ifdef __GLIBC__
  mallopt(M_ARENA_MAX, 1);
  // Both would grow with what is freed if they were not named. What comes and goes with each group of symbols or with
  // each receive is below.
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  mallopt(M_TRIM_THRESHOLD, 4 << 20);
#endif
}

}  // namespace quorl::cli
