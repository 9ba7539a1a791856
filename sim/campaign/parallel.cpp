#include "sim/campaign/parallel.h"

#include <atomic>
#include <thread>
#include <vector>

namespace quorl::sim {

void ForEachNumber(unsigned threads, const std::function<bool(uint64_t)>& isOver,
                   const std::function<void(uint64_t)>& work) {
  std::atomic<uint64_t> next = 0;
  const auto run = [&] {
    for (uint64_t number = next++; !isOver(number); number = next++) work(number);
  };
  std::vector<std::jthread> others;
  for (unsigned i = 1; i < threads; ++i) others.emplace_back(run);
  run();
}

}  // namespace quorl::sim
