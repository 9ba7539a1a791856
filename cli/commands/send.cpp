// `quorl send`: survey, see who is there, ask, send, tell, and repeat for those that failed. Everything runs on the
// main thread.
#include "cli/commands/send.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <span>

#include "cli/manifest/send_manifest.h"
#include "cli/manifest/stream_digests.h"
#include "cli/room/gathering.h"
#include "cli/room/listeners.h"
#include "cli/room/venue.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/show/sent.h"
#include "cli/show/units.h"
#include "cli/system/terminal.h"
#include "cli/talk/messages.h"
#include "cli/transfer/agreement.h"
#include "cli/transfer/block_listening.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/library_state.h"
#include "cli/transfer/send_plan.h"
#include "cli/transfer/send_run.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t TARGET_IS_A_PATH = QUORL_TARGET_IS_PATH;
constexpr size_t MOST_SHOWN = 5;
constexpr size_t MOST_UNFIT = 20;
// Bytes. What takes a moment takes less than to ask.
constexpr uint64_t WORTH_AGREEING = 32'000'000;
constexpr uint32_t SLOWEST_RATE = 1000;  // kbit/s; of repetitions.
constexpr std::chrono::seconds LONG_READING = 5s;

class Sending {
 public:
  Sending(const Options& options, Reporter& reporter)
      : options(options),
        send(options.send),
        reporter(reporter),
        plan(PlanSending(send.paths, {send.subdirectories, send.exclude, send.skipUnreadable})),
        venue(options.network.interface.empty() ? LookForVenue(options.network) : ResolveVenue(options.network)),
        inbox(options.output.verbosity > 0),
        listeners(venue, inbox),
        gathering(send, listeners, inbox, reporter) {
    if (send.manifest) manifest.emplace(plan, options.keyFile);
  }

  int Run() {
    SayPlan();
    RejectUnfit();
    CheckOpenName();
    if (send.dryRun) return ListOnly();
    // Until they have it, those that it is meant for have not: whatever ends this early, no older list is left there.
    if (!WriteFailed(MeantTexts())) ThrowUnwritable();
    if (!send.only.everyone && MeantTexts().empty()) return SayNobody();
    if (!venue.HasInterface()) venue = ResolveVenue(options.network);
    SetSendRate(send.rate);
    if (int code = gathering.First(plan.blocks)) return code;
    if (int code = Prepare()) return code;
    started = Clock::now();
    const Attendance attendance = gathering.WhoIsThere();
    tally.NoteAbsent(attendance.missing);
    Attempt(send.only.everyone ? std::vector<uint32_t>{} : attendance.there);
    for (uint32_t i = 0; i < send.retries && !tally.WasStopped() && !tally.Failed().empty(); ++i) {
      auto failed = tally.Failed();
      if (int code = gathering.Again(failed)) {
        Finish();
        return code;
      }
      if (listeners.MissingOf(failed).size() == failed.size()) break;
      if (!rateControl) {
        if (IsTooFast(tally.Rows(), plan.blocks) && rate >= 2 * SLOWEST_RATE) rate /= 2;
        SetSendRate(rate);
      }
      Attempt(failed);
    }
    return Finish();
  }

 private:
  void SayPlan() {
    SayVenue(reporter, venue);
    Fact fact("selection");
    fact.Add("files", plan.files.size()).Add("directories", plan.directories).Add("bytes", plan.bytes);
    fact.Add("blocks", plan.blocks).Add("skipped", plan.leftOut.size());
    std::string folders = plan.directories == 0 ? "" : fmt::format(" in {}", Count(plan.directories, "folder"));
    reporter.Say(
        fact, fmt::format("Selection  {}{}, {}", Count(plan.files.size(), "file"), folders, FormatBytes(plan.bytes)));
    SayRemarks("skipped", plan.leftOut);
    SayExcluded();
    SayRemarks("renamed", plan.renamed);
  }

  void SayRemarks(const char* title, const std::vector<Remark>& remarks) {
    for (size_t i = 0; i < remarks.size(); ++i) {
      const Remark& remark = remarks[i];
      Fact fact(title);
      fact.Add("path", remark.path).Add("reason", remark.why);
      bool shown = i < MOST_SHOWN || options.output.verbosity > 0;
      reporter.Say(fact, shown             ? fmt::format("  {}: \"{}\" ({})", title, Escape(remark.path), remark.why)
                         : i == MOST_SHOWN ? fmt::format("  ... and {} more", remarks.size() - MOST_SHOWN)
                                           : "");
    }
  }

  void SayExcluded() {
    if (!plan.excluded.empty() && options.output.verbosity == 0) {
      reporter.Say(
          fmt::format("  left out, as --exclude wants it: {} (-v lists)", Count(plan.excluded.size(), "name")));
    }
    for (const Remark& remark : plan.excluded) {
      Fact fact("excluded");
      reporter.Say(Level::Files, fact.Add("path", remark.path), fmt::format("  excluded: \"{}\"", Escape(remark.path)));
    }
  }

  /// All of it at once, so that nobody has to come back for each.
  void RejectUnfit() {
    if (plan.unfit.empty()) return;
    Failure failure{Exit::LocalFiles, fmt::format("{} cannot be sent", Count(plan.unfit.size(), "name")), "", {}};
    const size_t most = options.output.verbosity > 0 ? plan.unfit.size() : MOST_UNFIT;
    for (const Remark& remark : plan.unfit) {
      reporter.Say(Fact("unfit").Add("path", remark.path).Add("reason", remark.why), "");
      if (failure.next.size() < most)
        failure.next.push_back(fmt::format("\"{}\": {}", Escape(remark.path), remark.why));
    }
    if (plan.unfit.size() > most)
      failure.next.push_back(fmt::format("... and {} more; -v lists all", plan.unfit.size() - most));
    failure.next.push_back(plan.unreadable == plan.unfit.size()
                               ? "Nothing has been sent. To send the rest: --skip-unreadable"
                               : "Nothing has been sent.");
    throw Failure(failure);
  }

  int ListOnly() {
    for (const PlannedFile& file : plan.files) {
      Fact fact("file");
      fact.Add("name", file.name).Add("bytes", file.size).Add("blocks", file.blocks);
      reporter.Say(fact, fmt::format("  {:>9}  {}", FormatBytes(file.size), Escape(file.name)));
    }
    for (const std::string& name : plan.emptyDirectories) {
      reporter.Say(Fact("folder").Add("name", name), fmt::format("  {:>9}  {}/", "folder", Escape(name)));
    }
    SayStreamTime(reporter, send, plan.blocks);
    reporter.Say(Level::Always, Fact("dry_run"),
                 fmt::format("Nothing has been sent (--dry-run). It would be {}, {}.", Count(plan.blocks, "block"),
                             FormatBytes(plan.bytes)));
    reporter.Result().Add("files", plan.files.size()).Add("bytes", plan.bytes);
    return 0;
  }

  void CheckOpenName() const {
    const std::string name = LocalName(send.openName);
    std::string near;
    for (const PlannedFile& file : plan.files) {
      if (name.empty() || file.name == name) return;
      if (file.name.ends_with("/" + name)) near = file.name;
    }
    Failure failure{Exit::Usage, "--open-name cannot be taken", "no file that travels has that name", {}};
    if (!near.empty()) failure.next.push_back(fmt::format("Did you mean \"{}\"?", Escape(near)));
    if (!name.empty()) throw Failure(failure);
  }

  /// The words of --only.
  std::vector<std::string> MeantTexts() const {
    std::vector<std::string> texts = send.only.names;
    for (uint32_t address : send.only.addresses) texts.push_back(FormatAddress(address));
    return texts;
  }

  int SayNobody() {
    reporter.Say(Level::Always, Fact("nobody_meant"), "Nothing has been sent: the list of --only is empty.");
    return 0;
  }

  bool WriteFailed(const std::vector<std::string>& whom) const {
    if (send.failedTo.empty()) return true;
    std::ofstream file(send.failedTo, std::ios::trunc);
    for (const std::string& one : whom) file << one << '\n';
    return !file.flush().fail();
  }

  void ThrowUnwritable() const {
    throw Failure{Exit::LocalFiles,
                  fmt::format("\"{}\" cannot be written", Escape(send.failedTo)),
                  "--failed-to names it for the addresses of those that fail",
                  {"Nothing has been sent."}};
  }

  /// Whether everybody takes the catalogue first and the manifest last. With anybody else in the room everything is
  /// read before, and streamed.
  static bool AllTakeCatalogue() {
    const auto rows = RowsNow();
    return std::all_of(rows.begin(), rows.end(),
                       [](const auto& row) { return (row.capabilities & TAKES_CATALOGUE) != 0; });
  }

  /// Whether it pays to ask what is there already: somebody has something, or the next one may go on from here.
  bool IsWorthAgreeing() const {
    const auto rows = RowsNow();
    return plan.bytes >= WORTH_AGREEING || std::any_of(rows.begin(), rows.end(), [](const auto& row) {
             return (row.capabilities & HAS_SOMETHING) != 0;
           });
  }

  int ReadAll() {
    watch.Begin();
    manifest->List(watch);
    return manifest->ReadAll(inbox, reporter);
  }

  /// Reads everything for a manifest that travels first. That may take long; who is there is asked once more then.
  int Prepare() {
    if (!manifest || AllTakeCatalogue()) return 0;
    auto began = Clock::now();
    if (int signal = ReadAll()) return 128 + signal;
    return Clock::now() - began > LONG_READING ? gathering.Wait() : 0;
  }

  void Attempt(const std::vector<uint32_t>& only) {
    const bool manifestLast = manifest && AllTakeCatalogue();
    Agreed agreed = Agreement::Everything(plan);
    watch.Begin();
    if (manifestLast) {
      manifest->List(watch);
      if (IsWorthAgreeing()) agreed = Agreement(plan, *manifest, inbox, reporter).Reach(only);
    } else if (manifest) {
      agreed.signal = ReadAll();
    }
    if (agreed.signal != 0) {
      tally.Add({.signal = agreed.signal, .rows = RowsNow(), .state = SendStateNow()}, only);
      return;
    }
    if (manifestLast) CheckSelection();
    AdaptRate();
    SayStart(agreed, only);
    streamed = agreed.contents.Bytes();
    std::optional<StreamDigests> digests;
    std::optional<BlockListening> listening;
    Select(only, manifestLast);
    if (manifestLast) {
      digests.emplace(manifest->Listed(), agreed.isStreamed,
                      StreamDigests::Source{[this](size_t file) { return watch.ChangeOf(file); },
                                            [this] { manifest->Complete(); }});
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
                      .rate = rateControl ? &*rateControl : nullptr};
    tally.Add(SendRun(inbox, reporter, listeners.Names(), job).Run(), only);
  }

  /// From the second attempt on with what the first has taught.
  void AdaptRate() {
    if (!send.adaptsRate || rateControl) return;
    rateControl = RateControl::For(venue.interface.name, RowsNow());
    rate = rateControl->Most();
    SetSendRate(rateControl->Rate(Clock::now(), 0));
  }

  /// What was agreed on goes by the places of the files in the selection.
  void CheckSelection() {
    // It stays: the library goes by what the latest plan excludes.
    planNow = PlanSending(send.paths, {send.subdirectories, send.exclude, send.skipUnreadable});
    const auto& files = planNow->files;
    const bool isSame = std::equal(files.begin(), files.end(), plan.files.begin(), plan.files.end(),
                                   [](const auto& one, const auto& other) { return one.name == other.name; });
    if (isSame) return;
    throw Failure{Exit::LocalFiles,
                  "the selection is not what it was",
                  "files have come or gone since it was looked through",
                  {"Nothing has been sent. Send again when nobody works on it."}};
  }

  void SayStart(const Agreed& agreed, const std::vector<uint32_t>& only) {
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
    std::string text = fmt::format("Sending    {}, {} to {} at {} via {}", Count(agreed.contents.Files(), "file"),
                                   FormatBytes(agreed.contents.Bytes()), Count(receivers, "receiver"),
                                   (rateControl ? "up to " : "") + FormatLinkRate(rate), venue.interface.name);
    reporter.Say(fact.Add("blocks", plan.blocks - agreed.skippedBlocks), reporter.HasBlock() ? "" : text);
  }

  /// The manifest travels first or last.
  void Select(const std::vector<uint32_t>& only, bool manifestLast) {
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
      tally.NoteLeftOut();
    } else if (answer != 1) {
      throw Failure{Exit::Other,
                    "the selection was refused",
                    fmt::format("tally {} of the library", answer),
                    {"Nothing has been sent."}};
    }
  }

  int Finish() {
    if (plan.lost != 0) tally.NoteLeftOut();
    TellSent(reporter, listeners.Names(), tally,
             {plan.bytes, streamed, plan.files.size(), plan.blocks, rateControl ? 0 : rate}, Clock::now() - started);
    std::vector<std::string> failed = tally.Absent();
    for (uint32_t address : tally.Failed()) failed.push_back(FormatAddress(address));
    if (!WriteFailed(failed)) reporter.Warn(fmt::format("\"{}\" could not be written", Escape(send.failedTo)));
    if (!failed.empty() && !tally.WasStopped()) {
      const std::string list = send.failedTo.empty() ? fmt::format("{}", fmt::join(failed, ",")) : "@" + send.failedTo;
      reporter.Say(Fact("again").Add("addresses", failed),
                   fmt::format("Again for those that failed:  {} --only {}", send.again, list));
    }
    return tally.ExitCode();
  }

  const Options& options;
  const SendOptions& send;
  Reporter& reporter;
  SendPlan plan;
  Venue venue;
  Inbox inbox;  // From here on Ctrl-C is an event.
  Listeners listeners;
  Gathering gathering;
  std::optional<SendManifest> manifest;
  std::optional<SendPlan> planNow;  ///< Looked through once more before it travels.
  SourceWatch watch{plan};
  uint64_t streamed = 0;  ///< Bytes of contents, the last time.
  SendTally tally;
  uint32_t rate = send.rate;  ///< Of the latest attempt, or what it began with.
  std::optional<RateControl> rateControl;
  Clock::time_point started;
};

}  // namespace

int RunSend(const Options& options, Reporter& reporter) {
  if (!options.keyFile.empty() && !options.send.manifest) {
    throw Failure{
        Exit::Usage, "--key-file and --no-manifest exclude each other", "it is the manifest that the key seals", {}};
  }
  if (MustAsk(options.send) && (options.output.json || !CanAsk())) {
    throw Failure{Exit::Usage,
                  "nobody can be asked whether to start",
                  options.output.json ? "--json is for programs" : "this is no terminal",
                  {"--yes starts as soon as somebody is there, --wait-for N when N receivers are."}};
  }
  SetProfile(1);
  SetCapabilities(TELLS_VERDICT | TAKES_CATALOGUE | (options.send.adaptsRate ? uint32_t{HEARS_INTAKE} : 0));
  return Sending(options, reporter).Run();
}

}  // namespace quorl::cli
