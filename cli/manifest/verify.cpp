// The receiver's side of the manifest: is what arrived what was sent? Every file is read once more, from where it was
// received, before any of it gets its name.
#include "cli/manifest/verify.h"

#include <algorithm>

#include "cli/manifest/links.h"
#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

class Verifier {
 public:
  Verifier(const Directory& staging, const StagedTree& tree, const InPlace& inPlace, const DigestProgress& progress)
      : staging(staging), tree(tree), inPlace(inPlace), progress(progress), listed(tree.files.size()) {}

  std::optional<Verification> Run(const Manifest& manifest) {
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
    const auto read = file ? DigestOfFile(file, [this](uint64_t bytes) { return Continue(bytes); }) : std::nullopt;
    if (ended) return;
    if (!read) return Differ(entry.name, file.Why().text);
    if (!IsSame(read->digest, entry.digest)) return Differ(entry.name, "has another content");
    if (const SystemError error = file.Describe(entry.written, entry.executable, entry.permissions))
      return Differ(entry.name, error.text);
    result.verified.files.push_back(*found);
  }

  bool Continue(uint64_t bytes) {
    ended = progress && !progress(bytes);
    return !ended;
  }

  void Differ(const std::string& name, const std::string& why) { result.differences.push_back({name, why}); }

  const Directory& staging;
  const StagedTree& tree;
  const InPlace& inPlace;
  const DigestProgress& progress;
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
                                       const InPlace& inPlace, const DigestProgress& progress) {
  return Verifier(staging, tree, inPlace, progress).Run(manifest);
}

}  // namespace quorl::cli
