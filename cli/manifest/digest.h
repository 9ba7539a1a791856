// What tells the contents of files apart, and the key that a manifest is sealed with.
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

/// How digests are made. All of one manifest are of one kind.
enum class DigestKind : uint8_t {
  Blake2b,  ///< BLAKE2b-256: against people, too. The only one that goes with a key, and that older peers know.
  Xxh3,     ///< XXH3 of 128 bits: against faults, at a tenth of the cost. Fills the first half of a Digest.
};

using Digest = std::array<uint8_t, 32>;

/// What both sides know and nobody else: made from the bytes of a key file.
struct ManifestKey {
  Digest bytes{};
};

/// Reads a key file of 16 bytes to 1 MiB; throws a Failure.
ManifestKey ReadKeyFile(const std::string& path);

/// BLAKE2b of `text`, keyed when there is a key.
Digest DigestOf(std::string_view text, const ManifestKey* key = nullptr);
Digest DigestOf(std::string_view text, DigestKind kind);

/// Whether two digests are equal, in a time that tells nothing about where they differ.
bool IsSame(const Digest& left, const Digest& right);

/// The digest of what comes in pieces.
class RunningDigest {
 public:
  explicit RunningDigest(DigestKind kind);
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
std::optional<FileDigest> DigestOfFile(OpenedFile& file, DigestKind kind, const DigestProgress& progress);

/// As many lowercase hexadecimal digits as the kind has: 64 or 32.
size_t HexLength(DigestKind kind);
std::string ToHex(const Digest& digest, DigestKind kind = DigestKind::Blake2b);

/// Nothing for anything but those.
std::optional<Digest> FromHex(std::string_view text, DigestKind kind);

}  // namespace quorl::cli
