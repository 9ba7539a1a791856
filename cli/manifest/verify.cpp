// The receiver's side of the manifest: is what arrived what was sent? A file of which nobody has made the digest while
// it was written is read once more, from where it was received, before it gets its name.
#include "cli/manifest/verify.h"

#include <algorithm>

#include "cli/manifest/links.h"
#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

class Verifier {
 public:
  Verifier(const Directory& staging, const StagedTree& tree, const Manifest& manifest, const InPlace& inPlace,
           const DigestProgress& progress, const ArrivingDigests* arrived)
      : staging(staging),
        tree(tree),
        manifest(manifest),
        inPlace(inPlace),
        progress(progress),
        arrived(arrived != nullptr && arrived->Kind() == manifest.kind ? arrived : nullptr),
        listed(tree.files.size()) {}

  std::optional<Verification> Run() {
    for (const ManifestEntry& entry : manifest.files) {
      Check(entry);
      if (ended) return std::nullopt;
    }
    for (size_t i = 0; i < tree.files.size(); ++i) {
      if (!listed[i] && !IsReservedName(tree.files[i].name)) Differ(tree.files[i].name, "is not in the manifest");
    }
    for (const std::string& name : tree.strange) Differ(name, "is neither a file nor a directory");
    if (!tree.readable) Differ(".", "cannot be read");
    result.verified.links = LinksOf(manifest);
    // Their announcements may have been lost; the manifest was not.
    result.verified.emptyDirectories = manifest.emptyDirectories;
    return std::move(result);
  }

 private:
  void Check(const ManifestEntry& entry) {
    const std::string name = StoredName(entry.name);
    const auto found = std::lower_bound(tree.files.begin(), tree.files.end(), name,
                                        [](const auto& file, const std::string& wanted) { return file.name < wanted; });
    if (found == tree.files.end() || found->name != name) {
      const auto there = inPlace.find(entry.name);
      if (there == inPlace.end()) return Differ(entry.name, "is missing");
      const bool isRight = there->second == Digest{} || IsSame(there->second, entry.digest);
      if (!isRight) return Differ(entry.name, "has another content in its place");
      ++result.inPlace;
      return;
    }
    const auto index = static_cast<size_t>(found - tree.files.begin());
    if (listed[index]) return Differ(entry.name, "has the name of another file once * ? > < are deleted from it");
    listed[index] = true;
    if (entry.digest == Digest{}) return Differ(entry.name, "changed while it was sent");
    if (found->size != entry.size) return Differ(entry.name, "has another size");
    OpenedFile file = staging.Read(name);
    if (!file) return Differ(entry.name, file.Why().text);
    if (!HasArrivedAs(entry) && !IsReadAs(entry, file)) return;
    if (const SystemError error = file.Describe(entry.written, entry.executable, entry.permissions))
      return Differ(entry.name, error.text);
    result.verified.files.push_back(*found);
  }

  bool HasArrivedAs(const ManifestEntry& entry) {
    const auto digest = arrived != nullptr ? arrived->Find(entry.name) : std::nullopt;
    return digest && IsSame(*digest, entry.digest) && Continue(entry.size);
  }

  bool IsReadAs(const ManifestEntry& entry, OpenedFile& file) {
    if (ended) return false;
    const auto read = DigestOfFile(file, manifest.kind, [this](uint64_t bytes) { return Continue(bytes); });
    if (ended) return false;
    const bool isRight = read && IsSame(read->digest, entry.digest);
    if (!isRight) Differ(entry.name, read ? "has another content" : file.Why().text);
    return isRight;
  }

  bool Continue(uint64_t bytes) {
    ended = progress && !progress(bytes);
    return !ended;
  }

  void Differ(const std::string& name, const std::string& why) { result.differences.push_back({name, why}); }

  const Directory& staging;
  const StagedTree& tree;
  const Manifest& manifest;
  const InPlace& inPlace;
  const DigestProgress& progress;
  const ArrivingDigests* const arrived;
  std::vector<bool> listed;
  bool ended = false;
  Verification result;
};

}  // namespace

std::optional<std::variant<ReadManifest, std::string>> FindManifest(const Directory& staging, const StagedTree& tree,
                                                                    const ManifestKey* key) {
  const auto found = std::find_if(tree.files.begin(), tree.files.end(),
                                  [](const StagedTree::File& file) { return file.name == MANIFEST_NAME; });
  if (found == tree.files.end()) return std::nullopt;
  if (found->size > MANIFEST_LIMIT) return "the manifest is too large";
  OpenedFile file = staging.Read(found->name);
  std::string text(static_cast<size_t>(found->size), '\0');
  if (!file || file.Read(text) != text.size()) return "the manifest cannot be read";
  return ParseManifest(text, key);
}

std::optional<Verification> VerifyTree(const Directory& staging, const StagedTree& tree, const Manifest& manifest,
                                       const InPlace& inPlace, const DigestProgress& progress,
                                       const ArrivingDigests* arrived) {
  return Verifier(staging, tree, manifest, inPlace, progress, arrived).Run();
}

}  // namespace quorl::cli
