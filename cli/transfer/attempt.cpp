#include "cli/transfer/attempt.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "cli/manifest/stream_digests.h"
#include "cli/outcome/exits.h"
#include "cli/room/library_state.h"
#include "cli/show/escape.h"
#include "cli/show/units.h"
#include "cli/talk/messages.h"
#include "cli/transfer/agreement.h"
#include "cli/transfer/block_listening.h"
#include "cli/transfer/send_run.h"

namespace quorl::cli {
namespace {

constexpr uint32_t SLOWEST_RATE = 1000;  // kbit/s; of repetitions.
constexpr uint32_t TARGET_IS_A_PATH = QUORL_TARGET_IS_PATH;
// Bytes. What takes a moment takes less than to ask.
constexpr uint64_t WORTH_AGREEING = 32'000'000;
constexpr size_t MOST_NAMED = 5;  // receivers, in one line

bool AllAreAbleTo(Capability capability) {
  const auto rows = RowsNow();
  return std::all_of(rows.begin(), rows.end(), [=](const auto& row) { return (row.capabilities & capability) != 0; });
}

/// Whether the catalogue travels first and the manifest last. With anybody in the room who does not know that,
/// everything is read before, and streamed.
bool AllTakeCatalogue() {
  return AllAreAbleTo(TAKES_CATALOGUE);
}

DigestKind KindForAll() {
  return AllAreAbleTo(TAKES_XXH3) ? DigestKind::Xxh3 : DigestKind::Blake2b;
}

}  // namespace

Attempts::Attempts(const SendPlan& plan, const SendOptions& send, const std::string& keyFile, const Where& where,
                   std::function<SendPlan()> look)
    : plan(plan),
      send(send),
      listeners(where.listeners),
      venue(where.venue),
      inbox(where.inbox),
      reporter(where.reporter),
      look(std::move(look)) {
  if (send.manifest) manifest.emplace(plan, keyFile, send.permissions);
}

bool Attempts::ReadsFirst() const {
  return manifest && !AllTakeCatalogue();
}

int Attempts::ReadAll() {
  watch.Begin();
  manifest->List(watch, KindForAll());
  return manifest->ReadAll(inbox, reporter);
}

/// Whether it pays to ask what is there already: somebody has something, or the next one may go on from here.
bool Attempts::IsWorthAgreeing() const {
  const auto rows = RowsNow();
  return plan.bytes >= WORTH_AGREEING ||
         std::any_of(rows.begin(), rows.end(), [](const auto& row) { return (row.capabilities & HAS_SOMETHING) != 0; });
}

/// An older receiver would throw away everything, as it cannot read such a manifest.
void Attempts::RequireLinksTaken(const std::vector<uint32_t>& only) {
  if (plan.links.empty() && !send.permissions) return;
  std::vector<std::string> unable;
  for (const QuorlReceiverState& row : RowsNow()) {
    const bool isFor = only.empty() || std::find(only.begin(), only.end(), row.address) != only.end();
    if (isFor && (row.capabilities & TAKES_LINKS) == 0) unable.push_back(listeners.Names().Label(row.address));
  }
  if (unable.empty()) return;
  throw Failure{Exit::Other,
                fmt::format("{} cannot take links or permissions", fmt::join(unable, ", ")),
                "an older version runs there",
                {"Nothing has been sent. Without --links keep and --perms it can take the files.",
                 "To leave it out: --only names the others."}};
}

void Attempts::Run(const std::vector<uint32_t>& only, SendTally& tally) {
  RequireLinksTaken(only);
  const bool manifestLast = manifest && AllTakeCatalogue();
  Agreed agreed = Agreement::Everything(plan);
  // For the catalogue as well: of very many files it is long.
  SetRate();
  watch.Begin();
  if (manifestLast) {
    manifest->List(watch, KindForAll());
    if (IsWorthAgreeing()) agreed = Agreement(plan, *manifest, inbox, reporter).Reach(only);
  } else if (manifest) {
    agreed.signal = ReadAll();
  }
  if (agreed.signal != 0) {
    tally.Add({.signal = agreed.signal, .rows = RowsNow(), .state = SendStateNow()}, only);
    return;
  }
  if (manifestLast) CheckSelection();
  SayStart(agreed, only);
  streamed = agreed.contents.Bytes();
  std::optional<StreamDigests> digests;
  std::optional<BlockListening> listening;
  if (!Select(only, manifestLast)) tally.NoteLeftOut();
  if (manifestLast) {
    digests.emplace(
        manifest->Listed(), agreed.isStreamed,
        StreamDigests::Source{[this](size_t file) { return watch.ChangeOf(file); }, [this] { manifest->Complete(); }});
    SetSkippedBlocks(agreed.skipped.data(), static_cast<uint32_t>(agreed.skipped.size()));
    listening.emplace(*digests);
  }
  Say(About{.purpose = About::Purpose::Contents,
            .round = agreed.rounds,
            .files = static_cast<uint32_t>(plan.files.size()),
            .bytes = plan.bytes,
            .manifestLast = manifestLast,
            .onlyFor = manifest ? only : std::vector<uint32_t>()});
  const SendJob job{.watch = watch,
                    .only = only,
                    .contents = agreed.contents,
                    .before = manifest && !manifestLast ? 1u : 0u,
                    .skipped = agreed.skippedBlocks,
                    .digests = digests ? &*digests : nullptr,
                    .rate = rateControl && !libraryFindsRate ? &*rateControl : nullptr};
  tally.Add(SendRun(inbox, reporter, listeners.Names(), job).Run(), only);
}

/// What was agreed on goes by the places of the files in the selection.
void Attempts::CheckSelection() {
  const SendPlan planNow = look();
  // It stays: the library goes by what the latest plan excludes.
  exclusion = planNow.exclusion;
  const auto& files = planNow.files;
  const bool isSame = std::equal(files.begin(), files.end(), plan.files.begin(), plan.files.end(),
                                 [](const auto& one, const auto& other) { return one.name == other.name; });
  if (isSame) return;
  throw Failure{Exit::LocalFiles,
                "the selection is not what it was",
                "files have come or gone since it was looked through",
                {"Nothing has been sent. Send again when nobody works on it."}};
}

void Attempts::SlowDown() {
  if (rate >= 2 * SLOWEST_RATE) rate /= 2;
}

void Attempts::SetRate() {
  libraryFindsRate = (!send.rateGiven || send.adaptsRate) && listeners.TakeSymbols();
  if (libraryFindsRate) return static_cast<void>(SetSendRate(0));
  if (!send.adaptsRate) return static_cast<void>(SetSendRate(rate));
  if (!rateControl) rateControl = RateControl::For(venue.interface.name, RowsNow());
  SetSendRate(rateControl->Rate(std::chrono::steady_clock::now(), 0));
}

// Once: the whole room does without symbols for the sake of these.
void Attempts::SayWhoTakesNoSymbols() {
  if (!send.coded || std::exchange(saidWhoTakesNoSymbols, true)) return;
  std::string who;
  size_t count = 0;
  for (const auto& row : RowsNow()) {
    if ((row.capabilities & QUORL_TAKES_SYMBOLS) != 0 || ++count > MOST_NAMED) continue;
    who += (who.empty() ? "" : ", ") + listeners.Names().Label(row.address);
  }
  if (count == 0) return;
  if (count > MOST_NAMED) who += fmt::format(" and {} more", count - MOST_NAMED);
  reporter.Say(fmt::format("Without coded symbols: {} cannot take them: {}", Count(count, "receiver"), who));
}

std::string Attempts::RateText() const {
  if (libraryFindsRate) return "the rate that all take";
  return rateControl ? "up to " + FormatLinkRate(rateControl->Most()) : FormatLinkRate(rate);
}

void Attempts::SayStart(const Agreed& agreed, const std::vector<uint32_t>& only) {
  SayWhoTakesNoSymbols();
  if (agreed.skippedBlocks > 0) {
    Fact fact("agreed");
    fact.Add("files", agreed.contents.Files())
        .Add("bytes", agreed.contents.Bytes())
        .Add("blocks_skipped", agreed.skippedBlocks);
    reporter.Say(fact,
                 fmt::format("Already there  {} of {}; {} to send", FormatBytes(plan.bytes - agreed.contents.Bytes()),
                             FormatBytes(plan.bytes), FormatBytes(agreed.contents.Bytes())));
  }
  const size_t receivers = only.empty() ? listeners.There().size() : only.size() - listeners.MissingOf(only).size();
  Fact fact("start");
  fact.Add("receivers", receivers).Add("files", agreed.contents.Files()).Add("bytes", agreed.contents.Bytes());
  std::string text =
      fmt::format("Sending    {}, {} to {} at {} via {}", Count(agreed.contents.Files(), "file"),
                  FormatBytes(agreed.contents.Bytes()), Count(receivers, "receiver"), RateText(), venue.interface.name);
  reporter.Say(fact.Add("blocks", plan.blocks - agreed.skippedBlocks), reporter.HasBlock() ? "" : text);
}

bool Attempts::Select(const std::vector<uint32_t>& only, bool manifestLast) {
  for (const DriveMapping& drive : plan.drives) {
    if (MapDrive(drive.letter, drive.directory.c_str()) == 0) {
      throw Failure{Exit::LocalFiles,
                    fmt::format("\"{}\" cannot be used", Escape(drive.directory)),
                    "it is no directory any more",
                    {"Nothing has been sent."}};
    }
  }
  SetSubDirTrans(send.subdirectories ? 1 : 0);
  SetTargetPath(send.target.empty() ? 0 : TARGET_IS_A_PATH, send.target.c_str());
  std::string manifestPath = manifest ? manifest->Write(only) : "";
  std::vector<const char*> paths;
  if (manifest && !manifestLast) paths.push_back(manifestPath.c_str());
  for (const std::string& path : plan.paths) paths.push_back(path.c_str());
  if (manifestLast) paths.push_back(manifestPath.c_str());
  int32_t answer = SetSelectFiles(paths.data(), static_cast<uint32_t>(paths.size()), send.openName.c_str());
  if (answer == 7) {
    if (plan.leftOut.empty()) reporter.Warn("at least one file is skipped: its name cannot travel");
    if (!send.openName.empty()) reporter.Warn("--open-name has no effect when a name cannot travel");
  } else if (answer != 1) {
    throw Failure{Exit::Other,
                  "the selection was refused",
                  fmt::format("answer {} of the library", answer),
                  {"Nothing has been sent."}};
  }
  return answer == 1;
}

}  // namespace quorl::cli
