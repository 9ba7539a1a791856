// The allocation of the program and the library, which runs out for a thread where a test says so. In a file of its
// own: a compiler that sees these where they are called takes them apart.
#include <cstdlib>
#include <new>

thread_local int allocationsLeft = -1;

void* operator new(size_t size) {
  if (allocationsLeft == 0) throw std::bad_alloc();
  if (allocationsLeft > 0) --allocationsLeft;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
