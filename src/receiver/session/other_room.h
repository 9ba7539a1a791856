#pragma once

#include <atomic>
#include <cstdint>

#include "platform/time.h"

namespace quorl {

/// A transfer that this receiver hears and takes no part in: it came after the collection, or missed the announcement.
/// Any thread may use it.
class OtherRoom {
 public:
  void Hear(uint32_t sender, Moment now) {
    heardAt = now;
    address = sender;
  }
  void Forget() { address = 0; }

  /// Whose it is, network byte order; 0 when nothing has been heard of late.
  uint32_t Sender(Moment now) const {
    const uint32_t sender = address;
    return now - heardAt.load() <= REMEMBERED ? sender : 0;
  }

 private:
  /// A little more than two heartbeats.
  static constexpr Duration REMEMBERED = std::chrono::milliseconds(12000);

  std::atomic<uint32_t> address = 0;
  std::atomic<Moment> heardAt{};
};

}  // namespace quorl
