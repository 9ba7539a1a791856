#include "cli/manifest/stream_digests.h"

#include <utility>

#include "cli/show/views.h"

namespace quorl::cli {

StreamDigests::StreamDigests(Manifest& manifest, const std::vector<bool>& isStreamed, Source source)
    : manifest(manifest), source(std::move(source)) {
  for (size_t i = 0; i < manifest.files.size(); ++i) {
    wanted.push_back(isStreamed[i] && manifest.files[i].digest == Digest{});
    open += wanted.back() ? 1 : 0;
  }
  if (open == 0) this->source.complete();
}

void StreamDigests::Take(uint32_t file, uint32_t block, std::span<const uint8_t> bytes) {
  const size_t index = file - 1;
  if (index >= wanted.size() || !wanted[index]) return;
  ManifestEntry& entry = manifest.files[index];
  if (block == 0) digest = RunningDigest(manifest.kind);
  digest.Add(bytes);
  if (block != entry.size / BLOCK_SIZE) return;
  wanted[index] = false;
  // Whoever got it has a mixture, perhaps.
  if (source.changeOf(index).empty()) {
    entry.digest = digest.Finish();
    const std::scoped_lock locked(lock);
    news.push_back(file);
  }
  if (--open == 0) source.complete();
}

std::vector<RunningDigests::One> StreamDigests::TakeNews() {
  std::vector<RunningDigests::One> taken;
  const std::scoped_lock locked(lock);
  for (; !news.empty() && taken.size() < RunningDigests::MOST; news.pop_front())
    taken.push_back({news.front(), manifest.files[news.front() - 1].digest});
  return taken;
}

}  // namespace quorl::cli
