#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "cli/system/files.h"

namespace quorl::cli {

/// BLAKE2b-256.
using Digest = std::array<uint8_t, 32>;

/// What both sides know and nobody else: made from the bytes of a key file.
struct ManifestKey {
  Digest bytes{};
};

/// Reads a key file of 16 bytes to 1 MiB; throws a Failure.
ManifestKey ReadKeyFile(const std::string& path);

/// The digest of `text`, keyed when there is a key.
Digest DigestOf(std::string_view text, const ManifestKey* key = nullptr);

/// Whether two digests are equal, in a time that tells nothing about where they differ.
bool IsSame(const Digest& left, const Digest& right);

/// The digest of what comes in pieces.
class RunningDigest {
 public:
  RunningDigest();
  void Add(std::span<const uint8_t> bytes);
  Digest Finish();

 private:
  struct State;
  std::shared_ptr<State> state;
};

/// The digest of what an open file holds from where it stands to its end, in pieces; `progress` hears of each piece and
/// ends the work by saying false. Nothing when the file cannot be read or the work was ended.
struct FileDigest {
  Digest digest{};
  uint64_t size = 0;
};
using DigestProgress = std::function<bool(uint64_t bytes)>;
std::optional<FileDigest> DigestOfFile(OpenedFile& file, const DigestProgress& progress);

std::string ToHex(const Digest& digest);

/// 64 lowercase hexadecimal digits; nothing for anything else.
std::optional<Digest> FromHex(std::string_view text);

}  // namespace quorl::cli
