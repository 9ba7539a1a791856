// The receiver's side of the manifest: is what arrived what was sent? Every file is read once more, from where it was
// received, before any of it gets its name.
#include "cli/manifest_verify.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace quorl::cli {
namespace {

constexpr mode_t EVERYONE_READS = S_IRUSR | S_IRGRP | S_IROTH;

/// Receivers delete these from the names of files.
std::string StoredName(std::string name) {
  std::erase_if(name, [](char c) { return std::string_view("*?><").find(c) != std::string_view::npos; });
  return name;
}

bool Describe(int file, const ManifestEntry& entry) {
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT},
                                      timespec{entry.seconds, static_cast<long>(entry.nanoseconds)}};
  struct stat status {};
  if (fstat(file, &status) != 0) return false;
  // Who may read it may run it.
  const mode_t mode = (status.st_mode & 0777) | (entry.executable ? (status.st_mode & EVERYONE_READS) >> 2 : 0);
  return fchmod(file, mode) == 0 && futimens(file, times.data()) == 0;
}

class Verifier {
 public:
  Verifier(int staging, const StagedTree& tree, const DigestProgress& progress)
      : staging(staging), tree(tree), progress(progress), listed(tree.files.size()) {}

  std::optional<Verification> Run(const Manifest& manifest) {
    for (const ManifestEntry& entry : manifest.files) {
      Check(entry);
      if (ended) return std::nullopt;
    }
    for (size_t i = 0; i < tree.files.size(); ++i) {
      if (!listed[i] && tree.files[i].name != MANIFEST_NAME) Differ(tree.files[i].name, "is not in the manifest");
    }
    for (const std::string& name : tree.strange) Differ(name, "is neither a file nor a directory");
    if (!tree.readable) Differ(".", "cannot be read");
    // Their announcements may have been lost; the manifest was not.
    result.verified.emptyDirectories = manifest.emptyDirectories;
    return std::move(result);
  }

 private:
  void Check(const ManifestEntry& entry) {
    const std::string name = StoredName(entry.name);
    const auto found = std::lower_bound(tree.files.begin(), tree.files.end(), name,
                                        [](const auto& file, const std::string& wanted) { return file.name < wanted; });
    if (found == tree.files.end() || found->name != name) return Differ(entry.name, "is missing");
    const auto index = static_cast<size_t>(found - tree.files.begin());
    if (listed[index]) return Differ(entry.name, "has the name of another file once * ? > < are deleted from it");
    listed[index] = true;
    if (found->size != entry.size) return Differ(entry.name, "has another size");
    const FileHandle file = OpenFileBeneath(staging, name);
    const auto read =
        file ? DigestOfFile(file.Get(), [this](uint64_t bytes) { return Continue(bytes); }) : std::nullopt;
    if (ended) return;
    if (!read) return Differ(entry.name, std::strerror(errno));
    if (!IsSame(read->digest, entry.digest)) return Differ(entry.name, "has another content");
    if (!Describe(file.Get(), entry)) return Differ(entry.name, std::strerror(errno));
    result.verified.files.push_back(*found);
  }

  bool Continue(uint64_t bytes) {
    ended = progress && !progress(bytes);
    return !ended;
  }

  void Differ(const std::string& name, const std::string& why) { result.differences.push_back({name, why}); }

  const int staging;
  const StagedTree& tree;
  const DigestProgress& progress;
  std::vector<bool> listed;
  bool ended = false;
  Verification result;
};

}  // namespace

std::optional<std::variant<ReadManifest, std::string>> FindManifest(int staging, const StagedTree& tree,
                                                                    const ManifestKey* key) {
  const auto found = std::find_if(tree.files.begin(), tree.files.end(),
                                  [](const StagedTree::File& file) { return file.name == MANIFEST_NAME; });
  if (found == tree.files.end()) return std::nullopt;
  if (found->size > MANIFEST_LIMIT) return "the manifest is too large";
  const FileHandle file = OpenFileBeneath(staging, found->name);
  std::string text(found->size, '\0');
  size_t done = 0;
  while (file && done < text.size()) {
    const ssize_t count = pread(file.Get(), text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (count == 0 || (count < 0 && errno != EINTR)) break;
    if (count > 0) done += static_cast<size_t>(count);
  }
  if (done < text.size()) return "the manifest cannot be read";
  return ParseManifest(text, key);
}

std::optional<Verification> VerifyTree(int staging, const StagedTree& tree, const Manifest& manifest,
                                       const DigestProgress& progress) {
  return Verifier(staging, tree, progress).Run(manifest);
}

}  // namespace quorl::cli
