// The sender's side of the manifest: read everything once before it travels.
#include "cli/manifest_build.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cli/escape.h"
#include "cli/outcome.h"

namespace quorl::cli {
namespace {

Failure CannotList(const std::string& path, const std::string& why) {
  return {Exit::LocalFiles, fmt::format("\"{}\" cannot be sent", Escape(path)), why, {"Nothing has been sent."}};
}

bool IsUnchanged(const struct stat& before, const struct stat& after) {
  return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
         before.st_mtim.tv_nsec == after.st_mtim.tv_nsec && before.st_ctim.tv_sec == after.st_ctim.tv_sec &&
         before.st_ctim.tv_nsec == after.st_ctim.tv_nsec;
}

/// Nothing when `progress` ended the work.
std::optional<ManifestEntry> EntryFor(const ManifestSources::File& source, const DigestProgress& progress) {
  const FileHandle file(open(source.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat before {};
  struct stat after {};
  if (!file || fstat(file.Get(), &before) != 0) throw CannotList(source.path, std::strerror(errno));
  if (!S_ISREG(before.st_mode)) throw CannotList(source.path, "it is not a regular file any more");
  posix_fadvise(file.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  bool ended = false;
  const auto watched = [&](uint64_t bytes) {
    ended = progress && !progress(bytes);
    return !ended;
  };
  errno = 0;
  const auto read = DigestOfFile(file.Get(), watched);
  if (ended) return std::nullopt;
  if (!read || fstat(file.Get(), &after) != 0) throw CannotList(source.path, std::strerror(errno));
  if (!IsUnchanged(before, after) || read->size != static_cast<uint64_t>(after.st_size))
    throw CannotList(source.path, "it changes while it is being read");
  return ManifestEntry{source.name,
                       read->size,
                       read->digest,
                       after.st_mtim.tv_sec,
                       static_cast<uint32_t>(after.st_mtim.tv_nsec),
                       (after.st_mode & S_IXUSR) != 0};
}

}  // namespace

std::optional<std::string> BuildManifest(const ManifestSources& sources, const ManifestKey* key,
                                         const DigestProgress& progress) {
  Manifest manifest;
  manifest.onlyFor = sources.onlyFor;
  manifest.emptyDirectories = sources.emptyDirectories;
  for (const ManifestSources::File& source : sources.files) {
    auto entry = EntryFor(source, progress);
    if (!entry) return std::nullopt;
    manifest.files.push_back(std::move(*entry));
  }
  std::string text = FormatManifest(std::move(manifest), key);
  // What a receiver would not accept is better found here.
  if (const auto parsed = ParseManifest(text, key); const auto* why = std::get_if<std::string>(&parsed)) {
    throw Failure{Exit::LocalFiles,
                  "no manifest can be made of the selection",
                  *why,
                  {"Nothing has been sent. To send it without: --no-manifest"}};
  }
  return text;
}

ManifestFile::ManifestFile(std::string_view text) {
  std::error_code error;
  std::string pattern = (std::filesystem::temp_directory_path(error) / "quorl-XXXXXX").native();
  const auto failed = [](const std::string& path) {
    return Failure{Exit::LocalFiles,
                   fmt::format("the manifest cannot be written to \"{}\"", Escape(path)),
                   std::strerror(errno),
                   {"Another TMPDIR, or --no-manifest."}};
  };
  if (mkdtemp(pattern.data()) == nullptr) throw failed(pattern);
  directory = pattern;
  const std::string path = directory + "/" + std::string(MANIFEST_NAME);
  const FileHandle file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  while (file && !text.empty()) {
    const ssize_t count = write(file.Get(), text.data(), text.size());
    if (count < 0 && errno != EINTR) break;
    if (count > 0) text.remove_prefix(static_cast<size_t>(count));
  }
  if (file && text.empty()) return;
  const Failure failure = failed(path);
  std::filesystem::remove_all(directory, error);
  throw failure;
}

ManifestFile::~ManifestFile() {
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

}  // namespace quorl::cli
