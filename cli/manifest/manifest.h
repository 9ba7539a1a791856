#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cli/manifest/digest.h"

namespace quorl::cli {

/// The list of what a transfer holds, which travels with it as an ordinary file: the first one, beside the others.
inline constexpr std::string_view MANIFEST_NAME = ".quorl-manifest";

/// The list that travels before a transfer, alone: what is coming, with digests as far as they are known.
inline constexpr std::string_view CATALOGUE_NAME = ".quorl-catalogue";

/// A manifest has at most so many bytes; enough for half a million files.
inline constexpr size_t MANIFEST_LIMIT = size_t{64} << 20;

struct ManifestEntry {
  std::string name;  ///< As it travels, with "/" between components and none at the beginning.
  uint64_t size = 0;
  Digest digest{};  ///< Zeroes: not known, or of no use since the file changed while it was sent.
  FileTime written;
  bool executable = false;
  std::optional<uint16_t> permissions;  ///< Who may read, write and run it, 9 bits; nothing: up to the receiver.
};

/// A symbolic link. It travels in the manifest alone.
struct ManifestLink {
  std::string name;
  std::string leadsTo;  ///< As it stands in the link.
};

struct Manifest {
  DigestKind kind = DigestKind::Blake2b;
  std::vector<uint32_t> onlyFor;  ///< Network byte order; empty: for everyone.
  std::vector<ManifestEntry> files;
  std::vector<std::string> emptyDirectories;  ///< Names as those of files.
  std::vector<ManifestLink> links;            ///< No name is beneath one of them.
};

/// The text of a manifest:
///
///   quorl-manifest 1
///   only 192.168.1.31 192.168.1.44
///   file <size> <seconds>.<nanoseconds> <x, - or permissions> <digest> <name>
///   dir <name>
///   link <name>//<what it leads to>
///   seal keyed <digest>
///
/// with one "file" line for each file, one "dir" line for each directory without files and one "link" line for each
/// symbolic link, each kind in the order of the names, byte by byte, and "only" only when it is not for everyone.
/// Permissions are three octal digits. In names, control bytes and backslashes are written as \xNN. The seal, "plain"
/// without a key, is the digest of all lines above it. Digests are BLAKE2b; in a manifest that begins with
/// "quorl-manifest 2 xxh3" they are XXH3 of 128 bits, the seal's as well, and there is no key.
std::string FormatManifest(const Manifest& manifest, const ManifestKey* key);

/// The same in the order in which the files travel, and with "quorl-catalogue" in the first line.
std::string FormatCatalogue(const Manifest& catalogue, const ManifestKey* key);

/// A catalogue without a key, of files that need not all be in memory.
class CatalogueText {
 public:
  CatalogueText();
  void Add(const std::string& name, uint64_t size, FileTime written);
  /// To be called once.
  std::string Finish();

 private:
  std::string text;
};

/// The name under which a receiver stores a file: some characters are deleted from it.
std::string StoredName(std::string name);

/// As if none had been sent.
void ForgetPermissions(Manifest& manifest);

/// Something that is not as a manifest has it.
struct Difference {
  std::string name;
  std::string why;
};

/// Whether every name can stand in a manifest, and none comes twice.
bool IsWellFormed(const Manifest& manifest);

/// How far a seal can be trusted.
enum class Seal {
  Plain,      ///< Right, and anyone could have made it.
  Keyed,      ///< Right, by the key that was given.
  Unchecked,  ///< Keyed, and no key was given to check it.
};

/// A manifest as it was read.
struct ReadManifest {
  Manifest manifest;
  Seal seal = Seal::Plain;
};

/// Reads a manifest that anyone may have written. The text says why it is none, or why its seal is wrong; with a key a
/// seal without one is wrong.
std::variant<ReadManifest, std::string> ParseManifest(std::string_view text, const ManifestKey* key);
std::variant<ReadManifest, std::string> ParseCatalogue(std::string_view text, const ManifestKey* key);

}  // namespace quorl::cli
