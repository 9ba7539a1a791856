// Digests and the key. Everything that knows the library that computes them is here.
#include "cli/manifest_digest.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "cli/escape.h"
#include "cli/outcome.h"
#include "cli/staging_files.h"

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

/// Reads until `into` is full or the file ends; -1 and errno on failure.
ssize_t ReadFully(int descriptor, std::vector<char>& into) {
  size_t done = 0;
  while (done < into.size()) {
    const ssize_t count = read(descriptor, into.data() + done, into.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

Failure BadKey(const std::string& path, const std::string& why) {
  return {Exit::LocalFiles,
          fmt::format("the key file \"{}\" cannot be used", Escape(path)),
          why,
          {"A key file holds 16 or more bytes that nobody can guess, the same on both sides:",
           "head -c 32 /dev/urandom > quorl.key"}};
}

}  // namespace

ManifestKey ReadKeyFile(const std::string& path) {
  const FileHandle file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.Get(), &status) != 0) throw BadKey(path, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) throw BadKey(path, "it is not a regular file");
  std::vector<char> text(LONGEST_KEY + 1);
  const ssize_t length = ReadFully(file.Get(), text);
  if (length < 0) throw BadKey(path, std::strerror(errno));
  if (static_cast<size_t>(length) < SHORTEST_KEY) throw BadKey(path, "it is too short");
  if (static_cast<size_t>(length) > LONGEST_KEY) throw BadKey(path, "it is longer than 1 MiB");
  return {DigestOf({text.data(), static_cast<size_t>(length)})};
}

Digest DigestOf(std::string_view text, const ManifestKey* key) {
  Hash hash(key);
  hash.Add(text.data(), text.size());
  return hash.Finish();
}

bool IsSame(const Digest& left, const Digest& right) {
  return sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

std::optional<FileDigest> DigestOfFile(int descriptor, const DigestProgress& progress) {
  Hash hash(nullptr);
  std::vector<char> piece(PIECE);
  uint64_t size = 0;
  while (true) {
    const ssize_t count = ReadFully(descriptor, piece);
    if (count < 0) return std::nullopt;
    hash.Add(piece.data(), static_cast<size_t>(count));
    size += static_cast<uint64_t>(count);
    if (progress && !progress(static_cast<uint64_t>(count))) return std::nullopt;
    if (static_cast<size_t>(count) < piece.size()) return FileDigest{hash.Finish(), size};
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
