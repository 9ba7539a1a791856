// The library's threads may go on when a transfer is over for everybody who takes part: what they call outlives all
// else.
#include "cli/transfer/block_listening.h"

#include <quorl/host.h>

#include <deque>
#include <mutex>

#include "cli/show/views.h"

namespace quorl::cli {
namespace {

template <typename Digests>
class DigestsGate {
 public:
  void Open(Digests& next) {
    const std::scoped_lock locked(lock);
    digests = &next;
  }
  void Close() {
    const std::scoped_lock locked(lock);
    digests = nullptr;
  }
  template <typename... Arguments>
  void Pass(Arguments&&... arguments) {
    const std::scoped_lock locked(lock);
    if (digests != nullptr) digests->Take(std::forward<Arguments>(arguments)...);
  }

 private:
  std::mutex lock;
  Digests* digests = nullptr;  ///< Null: nobody listens any more.
};

/// One for each transfer of this process.
template <typename Gate>
Gate& MakeGate() {
  static std::deque<Gate> all;
  return all.emplace_back();
}

}  // namespace

struct BlockListening::Gate : DigestsGate<StreamDigests> {
  static void Hear(void* context, uint32_t file, uint32_t block, const uint8_t* bytes, uint32_t length) {
    static_cast<Gate*>(context)->Pass(file, block, std::span(bytes, length));
  }
};

BlockListening::BlockListening(StreamDigests& digests) : gate(MakeGate<Gate>()) {
  gate.Open(digests);
  SetBlockListener(&Gate::Hear, &gate);
}

BlockListening::~BlockListening() {
  gate.Close();
}

struct StoreListening::Gate : DigestsGate<ArrivingDigests> {
  static void Hear(void* context, uint32_t file, const char* name, uint32_t first, const uint8_t* bytes,
                   uint32_t length) {
    static_cast<Gate*>(context)->Pass(file, LocalName(name), first * BLOCK_SIZE, std::span(bytes, length));
  }
};

StoreListening::StoreListening(ArrivingDigests& digests) : gate(MakeGate<Gate>()) {
  gate.Open(digests);
  SetStoreListener(&Gate::Hear, &gate);
}

StoreListening::~StoreListening() {
  SetStoreListener(nullptr, nullptr);
  gate.Close();
}

}  // namespace quorl::cli
