// The stream may go on when a transfer is over for everybody who takes part: what its thread calls outlives all else.
#include "cli/transfer/block_listening.h"

#include <quorl/host.h>

#include <deque>
#include <mutex>

namespace quorl::cli {

struct BlockListening::Gate {
  std::mutex lock;
  StreamDigests* digests = nullptr;  ///< Null: nobody listens any more.

  /// One for each transfer of this process.
  static Gate& Make() {
    static std::deque<Gate> all;
    return all.emplace_back();
  }

  static void Hear(void* context, uint32_t file, uint32_t block, const uint8_t* bytes, uint32_t length) {
    auto& gate = *static_cast<Gate*>(context);
    const std::scoped_lock locked(gate.lock);
    if (gate.digests != nullptr) gate.digests->Take(file, block, std::span(bytes, length));
  }
};

BlockListening::BlockListening(StreamDigests& digests) : gate(Gate::Make()) {
  gate.digests = &digests;
  SetBlockListener(&Gate::Hear, &gate);
}

BlockListening::~BlockListening() {
  const std::scoped_lock locked(gate.lock);
  gate.digests = nullptr;
}

}  // namespace quorl::cli
