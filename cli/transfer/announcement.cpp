#include "cli/transfer/announcement.h"

#include <fmt/format.h>

#include <string_view>

#include "cli/manifest/manifest.h"
#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/show/units.h"
#include "cli/show/views.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// The first file tells whether there is a manifest, which is not counted among the files. It is on its way.
constexpr auto FIRST_BLOCK_LIMIT = 1s;

// Enough for some ten thousand files.
constexpr uint64_t SHORT_MANIFEST = uint64_t{4} << 20;

}  // namespace

void Announcement::Begin(const std::optional<About>& transfer) {
  about = transfer;
  bytes = about ? about->bytes : 0;
  said = false;
  failedFiles.clear();
  started = Clock::now();
}

void Announcement::SayOnceKnown(const QuorlReceiveState& state) {
  if (!said && IsKnown(state)) Say(state);
}

uint64_t Announcement::Bytes(const QuorlReceiveState& state) {
  LookForSizes(state);
  return bytes;
}

void Announcement::SayFailedFiles() const {
  for (const auto& [status, count] : failedFiles) {
    if (count > 1) reporter.Warn(fmt::format("{}: {} in all", StatusInWords(status), Count(count, "file")));
  }
}

/// Blocks tell how much it is at most; how much it is, the manifest, which comes first. Its seal shows whether it is
/// whole already; a long one is not read again and again.
void Announcement::LookForSizes(const QuorlReceiveState& state) {
  const bool isOver = state.blocksStored > 0 && LocalName(state.currentFile) != MANIFEST_NAME;
  if (bytes != 0 || !isOver) return;
  const auto manifest = staging.ReadWhole(std::string(MANIFEST_NAME), SHORT_MANIFEST);
  if (!manifest) return;
  const auto read = ParseManifest(*manifest, nullptr);
  if (const auto* known = std::get_if<ReadManifest>(&read)) {
    for (const ManifestEntry& file : known->manifest.files) bytes += file.size;
  }
}

/// Whether the size of the transfer can be told: the manifest, if there is one, has come, or will not in good time.
bool Announcement::IsKnown(const QuorlReceiveState& state) {
  LookForSizes(state);
  const bool hasFiles = state.blocksStored > 0 && !staging.Holds(std::string(MANIFEST_NAME));
  return bytes != 0 || hasFiles || Clock::now() - started > FIRST_BLOCK_LIMIT;
}

void Announcement::Say(const QuorlReceiveState& state) {
  said = true;
  const bool hasManifest = state.files > 0 && staging.Holds(std::string(MANIFEST_NAME));
  const uint32_t files = about ? about->files : state.files - (hasManifest ? 1 : 0);
  LookForSizes(state);
  const uint64_t most = state.blocksExpected * BLOCK_SIZE;
  const std::string size = bytes == 0 ? "at most " + FormatBytes(most) : FormatBytes(bytes);
  const uint64_t free = staging.Target().FreeBytes();
  Fact fact("transfer");
  fact.Add("sender", FormatAddress(state.senderAddress)).Add("files", files).Add("blocks", state.blocksExpected);
  if (bytes != 0) fact.Add("bytes", bytes);
  fact.Add("bytes_at_most", most).Add("directory", staging.Path()).Add("bytes_free", free);
  reporter.Say(fact, fmt::format("From {}: {}, {} into {}   ({} free)", FormatAddress(state.senderAddress),
                                 Count(files, "file"), size, Escape(staging.Path()), FormatBytes(free)));
  const std::string target = state.askedTarget;
  if (target.empty()) return;
  reporter.Say(Fact("target_ignored").Add("target", target),
               fmt::format("The sender asked for its own folder \"{}\"; ignored, {} is in force.", Escape(target),
                           Escape(staging.Path())));
}

/// One cause is told once; how often it came, at the end.
void Announcement::NoteFailedFile(uint32_t status) {
  Fact fact("file_failed");
  fact.Add("status", status).Add("reason", StatusInWords(status));
  const std::string text = fmt::format("{} (status {}); the other files go on", StatusInWords(status), status);
  if (failedFiles[status]++ == 0) {
    reporter.Warn(fact, text);
  } else {
    reporter.Say(Level::Files, fact, "  " + text);
  }
}

}  // namespace quorl::cli
