#pragma once

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

}  // namespace quorl::cli
