// Digests and the key. Everything that knows the library that computes them is here.
#include "cli/manifest/digest.h"

#include <fmt/format.h>
#include <sodium.h>

#include <stdexcept>
#include <vector>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

constexpr size_t PIECE = size_t{1} << 20;
constexpr size_t SHORTEST_KEY = 16;
constexpr size_t LONGEST_KEY = PIECE;

class Hash {
 public:
  explicit Hash(const ManifestKey* key) {
    if (sodium_init() < 0) throw std::runtime_error("the cryptographic library cannot be used");
    crypto_generichash_init(&state, key != nullptr ? key->bytes.data() : nullptr,
                            key != nullptr ? key->bytes.size() : 0, Digest{}.size());
  }
  void Add(const void* bytes, size_t count) {
    crypto_generichash_update(&state, static_cast<const unsigned char*>(bytes), count);
  }
  Digest Finish() {
    Digest digest{};
    crypto_generichash_final(&state, digest.data(), digest.size());
    return digest;
  }

 private:
  crypto_generichash_state state{};
};

Failure BadKey(const std::string& path, const std::string& why) {
  return {Exit::LocalFiles,
          fmt::format("the key file \"{}\" cannot be used", Escape(path)),
          why,
          {"A key file holds 16 or more bytes that nobody can guess, the same on both sides:",
           "head -c 32 /dev/urandom > quorl.key"}};
}

}  // namespace

ManifestKey ReadKeyFile(const std::string& path) {
  OpenedFile file = OpenedFile::Open(path);
  std::vector<char> text(LONGEST_KEY + 1);
  const auto length = file ? file.Read(text) : std::nullopt;
  if (!length) throw BadKey(path, file.Why().text);
  if (*length < SHORTEST_KEY) throw BadKey(path, "it is too short");
  if (*length > LONGEST_KEY) throw BadKey(path, "it is longer than 1 MiB");
  return {DigestOf({text.data(), *length})};
}

Digest DigestOf(std::string_view text, const ManifestKey* key) {
  Hash hash(key);
  hash.Add(text.data(), text.size());
  return hash.Finish();
}

bool IsSame(const Digest& left, const Digest& right) {
  return sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

struct RunningDigest::State {
  Hash hash{nullptr};
};

RunningDigest::RunningDigest() : state(std::make_shared<State>()) {}

void RunningDigest::Add(std::span<const uint8_t> bytes) {
  state->hash.Add(bytes.data(), bytes.size());
}

Digest RunningDigest::Finish() {
  return state->hash.Finish();
}

std::optional<FileDigest> DigestOfFile(OpenedFile& file, const DigestProgress& progress) {
  Hash hash(nullptr);
  std::vector<char> piece(PIECE);
  uint64_t size = 0;
  while (true) {
    const auto count = file.Read(piece);
    if (!count) return std::nullopt;
    hash.Add(piece.data(), *count);
    size += *count;
    if (progress && !progress(*count)) return std::nullopt;
    if (*count < piece.size()) return FileDigest{hash.Finish(), size};
  }
}

std::string ToHex(const Digest& digest) {
  std::string text;
  for (const uint8_t byte : digest) text += fmt::format("{:02x}", byte);
  return text;
}

std::optional<Digest> FromHex(std::string_view text) {
  Digest digest{};
  if (text.size() != 2 * digest.size()) return std::nullopt;
  for (size_t i = 0; i < text.size(); ++i) {
    const size_t value = std::string_view("0123456789abcdef").find(text[i]);
    if (value == std::string_view::npos) return std::nullopt;
    digest[i / 2] = static_cast<uint8_t>(16 * digest[i / 2] + value);
  }
  return digest;
}

}  // namespace quorl::cli
