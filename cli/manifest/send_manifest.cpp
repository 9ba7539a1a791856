// The sender's side of the manifest: what is listed, which files are read for it and when, and the files that travel.
#include "cli/manifest/send_manifest.h"

#include <quorl/host.h>

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <numeric>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/views.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// Selections begin at D:.
constexpr char MANIFEST_DRIVE = 'B';

Failure CannotList(const std::string& path, const std::string& why) {
  return {Exit::LocalFiles, fmt::format("\"{}\" cannot be sent", Escape(path)), why, {"Nothing has been sent."}};
}

Failure NoManifest(const std::string& why) {
  return {Exit::LocalFiles,
          "no manifest can be made of the selection",
          why,
          {"Nothing has been sent. To send it without: --no-manifest"}};
}

}  // namespace

std::optional<ManifestEntry> ReadEntry(const ManifestSource& source, DigestKind kind, const DigestProgress& progress) {
  OpenedFile file = OpenedFile::Open(source.path);
  if (file.Why().kind == SystemError::Kind::NotAFile)
    throw CannotList(source.path, "it is not a regular file any more");
  const auto before = file ? file.Stamp() : std::nullopt;
  if (!before) throw CannotList(source.path, file.Why().text);
  bool ended = false;
  const auto read = DigestOfFile(file, kind, [&](uint64_t bytes) {
    ended = progress && !progress(bytes);
    return !ended;
  });
  if (ended) return std::nullopt;
  if (!read) throw CannotList(source.path, file.Why().text);
  if (file.Stamp() != before || read->size != before->size)
    throw CannotList(source.path, "it changes while it is being read");
  return ManifestEntry{source.name, read->size, read->digest, before->written, before->executable, {}};
}

SendManifest::SendManifest(const SendPlan& plan, const std::string& keyFile, bool permissions)
    : plan(plan), permissions(permissions) {
  if (!keyFile.empty()) key = ReadKeyFile(keyFile);
}

void SendManifest::List(const SourceWatch& watch, DigestKind kind) {
  Manifest next;
  next.kind = key ? DigestKind::Blake2b : kind;
  next.emptyDirectories = plan.emptyDirectories;
  next.links = plan.links;
  // In the order of a manifest already, where files are in that of the transfer.
  std::sort(next.emptyDirectories.begin(), next.emptyDirectories.end());
  std::sort(next.links.begin(), next.links.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  next.files.reserve(plan.files.size());
  for (size_t i = 0; i < plan.files.size(); ++i) {
    const auto stamp = watch.StampOf(i);
    if (!stamp) throw CannotList(plan.PathOf(plan.files[i]), watch.ChangeOf(i));
    ManifestEntry entry{plan.files[i].name, stamp->size, Digest{}, stamp->written, stamp->executable, {}};
    if (permissions) entry.permissions = stamp->permissions;
    const ManifestEntry* const last = i < manifest.files.size() ? &manifest.files[i] : nullptr;
    const bool isAsItWas = last != nullptr && last->size == entry.size && last->written == entry.written;
    if (isAsItWas && manifest.kind == next.kind) entry.digest = last->digest;
    next.files.push_back(std::move(entry));
  }
  // What a receiver would not accept is better found here.
  if (!IsWellFormed(next)) throw NoManifest("the manifest is not well-formed");
  manifest = std::move(next);
}

int SendManifest::Read(const std::vector<size_t>& files, Inbox& inbox, Reporter& reporter) {
  uint64_t bytes = 0;
  for (const size_t file : files) bytes += manifest.files[file].size;
  int signal = 0;
  ReadingView view(bytes);
  for (const size_t file : files) {
    ManifestEntry& entry = manifest.files[file];
    if (entry.digest != Digest{}) continue;
    auto read = ReadEntry({plan.PathOf(plan.files[file]), entry.name}, manifest.kind, [&](uint64_t count) {
      view.Add(count);
      if (reporter.WantsProgress()) reporter.Progress(view.Show(reporter.Width()));
      signal = inbox.SignalWithin(0ms);
      return signal == 0;
    });
    if (!read) break;
    read->permissions = entry.permissions;
    entry = *read;
  }
  reporter.ClearProgress();
  return signal;
}

int SendManifest::ReadAll(Inbox& inbox, Reporter& reporter) {
  std::vector<size_t> files(plan.files.size());
  std::iota(files.begin(), files.end(), size_t{0});
  return Read(files, inbox, reporter);
}

std::string SendManifest::Write(const std::vector<uint32_t>& onlyFor) {
  manifest.onlyFor = onlyFor;
  return Place(MANIFEST_NAME, FormatManifest(manifest, key ? &*key : nullptr));
}

std::string SendManifest::WriteCatalogue(const std::vector<uint32_t>& onlyFor) {
  manifest.onlyFor = onlyFor;
  return Place(CATALOGUE_NAME, FormatCatalogue(manifest, key ? &*key : nullptr));
}

void SendManifest::Complete() const {
  const std::string text = FormatManifest(manifest, key ? &*key : nullptr);
  std::ofstream(PathFrom(place->Path()) / MANIFEST_NAME, std::ios::binary | std::ios::in | std::ios::out) << text;
}

std::string SendManifest::Place(std::string_view name, const std::string& text) {
  if (text.size() > MANIFEST_LIMIT) throw NoManifest("the manifest is too large");
  place.emplace("quorl-");
  SystemError error = place->Why();
  if (!error) error = Directory::Open(place->Path()).Write(std::string(name), text);
  if (error) {
    throw Failure{Exit::LocalFiles,
                  fmt::format("the manifest cannot be written to \"{}\"", Escape(place->Path())),
                  error.text,
                  {"Another TMPDIR, or --no-manifest."}};
  }
  MapDrive(MANIFEST_DRIVE, place->Path().c_str());
  return fmt::format("{}:\\{}", MANIFEST_DRIVE, name);
}

}  // namespace quorl::cli
