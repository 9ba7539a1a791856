// Memory that several hold at once, so that what has been received goes from hand to hand without being copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace quorl {

/// Bytes that live as long as anybody holds them. Who has made them fills them before others see them.
using Slab = std::shared_ptr<uint8_t[]>;

/// Slabs of one size. Those that nobody holds any more are used again: to get as many bytes from the system and give
/// them back costs more than to fill them. Slabs may outlive their pool, and end on any thread.
class SlabPool {
 public:
  explicit SlabPool(size_t bytesEach) : bytesEach(bytesEach) {}

  /// Its bytes hold anything.
  Slab Take() {
    std::unique_ptr<uint8_t[]> bytes = unused->Take();
    if (!bytes) bytes = std::make_unique_for_overwrite<uint8_t[]>(bytesEach);
    return {bytes.release(), [unused = unused](uint8_t* given) { unused->Give(std::unique_ptr<uint8_t[]>(given)); }};
  }

 private:
  class Unused {
   public:
    std::unique_ptr<uint8_t[]> Take() {
      const std::scoped_lock lock(mutex);
      if (slabs.empty()) return nullptr;
      auto slab = std::move(slabs.back());
      slabs.pop_back();
      return slab;
    }
    void Give(std::unique_ptr<uint8_t[]> slab) {
      const std::scoped_lock lock(mutex);
      if (slabs.size() < MOST) slabs.push_back(std::move(slab));
    }

   private:
    static constexpr size_t MOST = 32;

    std::mutex mutex;
    std::vector<std::unique_ptr<uint8_t[]>> slabs;
  };

  const size_t bytesEach;
  const std::shared_ptr<Unused> unused = std::make_shared<Unused>();
};

}  // namespace quorl
