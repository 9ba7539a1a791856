#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/talk/messages.h"

namespace quorl::cli {

/// The digests of files as they are streamed: of the very bytes that leave.
class StreamDigests {
 public:
  struct Source {
    /// Why file `index` is not what it was; empty: it is.
    std::function<std::string(size_t index)> changeOf;
    /// Called once, when nothing of the manifest is unknown any more; on the stream's thread.
    std::function<void()> complete;
  };

  /// Fills in what `manifest` lacks, whose files are in the order of the transfer. `isStreamed`: of each, whether any
  /// of it travels.
  StreamDigests(Manifest& manifest, const std::vector<bool>& isStreamed, Source source);

  /// A block of the stream; `file` counts from 1.
  void Take(uint32_t file, uint32_t block, std::span<const uint8_t> bytes);

  /// The next ones that have become known, as many as one word holds. Any thread.
  std::vector<RunningDigests::One> TakeNews();

 private:
  Manifest& manifest;
  const Source source;
  std::vector<bool> wanted;
  size_t open = 0;
  RunningDigest digest{manifest.kind};
  std::mutex lock;
  std::deque<uint32_t> news;  ///< Numbers of files; their digests do not change any more.
};

}  // namespace quorl::cli
