// Digests and the key. Everything that knows the libraries that compute them is here.
#include "cli/manifest/digest.h"

#include <fmt/format.h>
#include <sodium.h>
#include <xxhash.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <variant>
#include <vector>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

constexpr size_t PIECE = size_t{64} << 10;  // Of a file; small files are read as often as large ones.
constexpr size_t SHORTEST_KEY = 16;
constexpr size_t LONGEST_KEY = size_t{1} << 20;
constexpr std::string_view HEX_DIGITS = "0123456789abcdef";

class Blake2bHash {
 public:
  explicit Blake2bHash(const ManifestKey* key = nullptr) {
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

class Xxh3Hash {
 public:
  Xxh3Hash() {
    if (!state) throw std::bad_alloc();
    XXH3_128bits_reset(state.get());
  }
  void Add(const void* bytes, size_t count) { XXH3_128bits_update(state.get(), bytes, count); }
  Digest Finish() {
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(state.get()));
    Digest digest{};
    std::copy(std::begin(bytes.digest), std::end(bytes.digest), digest.begin());
    return digest;
  }

 private:
  struct Free {
    void operator()(XXH3_state_t* unused) const { XXH3_freeState(unused); }
  };
  std::unique_ptr<XXH3_state_t, Free> state{XXH3_createState()};
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
  Blake2bHash hash(key);
  hash.Add(text.data(), text.size());
  return hash.Finish();
}

Digest DigestOf(std::string_view text, DigestKind kind) {
  RunningDigest digest(kind);
  digest.Add({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  return digest.Finish();
}

bool IsSame(const Digest& left, const Digest& right) {
  return sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

struct RunningDigest::State {
  std::variant<Blake2bHash, Xxh3Hash> hash;
};

RunningDigest::RunningDigest(DigestKind kind) : state(std::make_shared<State>()) {
  if (kind == DigestKind::Xxh3) state->hash.emplace<Xxh3Hash>();
}

void RunningDigest::Add(std::span<const uint8_t> bytes) {
  std::visit([&](auto& hash) { hash.Add(bytes.data(), bytes.size()); }, state->hash);
}

Digest RunningDigest::Finish() {
  return std::visit([](auto& hash) { return hash.Finish(); }, state->hash);
}

std::optional<FileDigest> DigestOfFile(OpenedFile& file, DigestKind kind, const DigestProgress& progress) {
  RunningDigest digest(kind);
  const auto room = std::make_unique_for_overwrite<char[]>(PIECE);
  const std::span<char> piece(room.get(), PIECE);
  uint64_t size = 0;
  while (true) {
    const auto count = file.Read(piece);
    if (!count) return std::nullopt;
    digest.Add({reinterpret_cast<const uint8_t*>(piece.data()), *count});
    size += *count;
    if (progress && !progress(*count)) return std::nullopt;
    if (*count < piece.size()) return FileDigest{digest.Finish(), size};
  }
}

size_t HexLength(DigestKind kind) {
  return 2 * (kind == DigestKind::Xxh3 ? sizeof(XXH128_canonical_t) : sizeof(Digest));
}

std::string ToHex(const Digest& digest, DigestKind kind) {
  std::string text(HexLength(kind), '\0');
  for (size_t i = 0; i < text.size(); ++i) text[i] = HEX_DIGITS[digest[i / 2] >> (i % 2 == 0 ? 4 : 0) & 0xf];
  return text;
}

std::optional<Digest> FromHex(std::string_view text, DigestKind kind) {
  Digest digest{};
  if (text.size() != HexLength(kind)) return std::nullopt;
  for (size_t i = 0; i < text.size(); ++i) {
    const size_t value = HEX_DIGITS.find(text[i]);
    if (value == std::string_view::npos) return std::nullopt;
    digest[i / 2] = static_cast<uint8_t>(16 * digest[i / 2] + value);
  }
  return digest;
}

}  // namespace quorl::cli
