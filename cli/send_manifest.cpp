#include "cli/send_manifest.h"

#include <quorl/host.h>

#include <fmt/format.h>

#include <algorithm>
#include <variant>

#include "cli/progress.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// Selections begin at D:.
constexpr char MANIFEST_DRIVE = 'B';

ProgressView ReadingView(uint64_t done, uint64_t total, const RateMeter& meter, size_t width) {
  uint32_t percent = std::min(Percent(done, total), 99u);
  auto left = meter.TimeFor(total - std::min(total, done));
  std::string part = FormatPart(done, total);
  std::string rest = left ? FormatLeft(*left) : "";
  double share = total == 0 ? 0 : static_cast<double>(done) / static_cast<double>(total);
  ProgressView view;
  view.lines = {BarLine("Reading", share, {fmt::format("{:2} %", percent), part, rest}, width)};
  view.plain = fmt::format("reading for the manifest, {} %  {}  {}", percent, part, rest);
  view.fact.Add("phase", "read").Add("bytes_done", done).Add("bytes_total", total);
  return view;
}

}  // namespace

SendManifest::SendManifest(const Selection& selection, const std::string& keyFile) : selection(selection) {
  if (!keyFile.empty()) key = ReadKeyFile(keyFile);
}

int SendManifest::Read(Inbox& inbox, Reporter& reporter) {
  ManifestSources sources;
  sources.emptyDirectories = selection.emptyDirectories;
  for (const PlannedFile& one : selection.files) sources.files.push_back({selection.PathOf(one), one.name});
  uint64_t done = 0;
  int signal = 0;
  RateMeter meter;
  const auto progress = [&](uint64_t bytes) {
    done += bytes;
    if (reporter.WantsProgress()) {
      meter.Add(RateMeter::Clock::now(), done);
      reporter.Progress(ReadingView(done, selection.bytes, meter, reporter.Width()));
    }
    Event event = inbox.Next(0ms);
    if (event.kind == Event::Kind::Signal) signal = event.signal;
    return signal == 0;
  };
  auto text = BuildManifest(sources, key ? &*key : nullptr, progress);
  reporter.ClearProgress();
  if (!text) return signal;
  manifest = std::get<ReadManifest>(ParseManifest(*text, key ? &*key : nullptr)).manifest;
  return 0;
}

std::string SendManifest::Write(const std::vector<uint32_t>& onlyFor) {
  manifest.onlyFor = onlyFor;
  file.reset();
  file.emplace(FormatManifest(manifest, key ? &*key : nullptr));
  MapDrive(MANIFEST_DRIVE, file->Directory().c_str());
  return fmt::format("{}:\\{}", MANIFEST_DRIVE, MANIFEST_NAME);
}

}  // namespace quorl::cli
