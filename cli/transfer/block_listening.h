#pragma once

#include "cli/manifest/arriving_digests.h"
#include "cli/manifest/stream_digests.h"

namespace quorl::cli {

/// Lets digests hear the blocks of the transfer that is started next, as long as this lives.
class BlockListening {
 public:
  explicit BlockListening(StreamDigests& digests);
  ~BlockListening();
  BlockListening(const BlockListening&) = delete;
  BlockListening& operator=(const BlockListening&) = delete;

 private:
  struct Gate;
  Gate& gate;
};

/// Lets digests hear what is stored of the transfer that is announced next, as long as this lives.
class StoreListening {
 public:
  explicit StoreListening(ArrivingDigests& digests);
  ~StoreListening();
  StoreListening(const StoreListening&) = delete;
  StoreListening& operator=(const StoreListening&) = delete;

 private:
  struct Gate;
  Gate& gate;
};

}  // namespace quorl::cli
