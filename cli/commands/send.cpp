// `quorl send`: survey, see who is there, ask, send, tell, and repeat for those that failed. Everything runs on the
// main thread.
#include "cli/commands/send.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>

#include "cli/room/gathering.h"
#include "cli/room/listeners.h"
#include "cli/room/venue.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/show/selection.h"
#include "cli/show/sent.h"
#include "cli/show/units.h"
#include "cli/system/terminal.h"
#include "cli/talk/messages.h"
#include "cli/transfer/attempt.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/piped.h"
#include "cli/transfer/send_plan.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds LONG_READING = 5s;

bool IsInput(const SendOptions& send) {
  return std::find(send.paths.begin(), send.paths.end(), "-") != send.paths.end();
}

class Sending {
 public:
  Sending(const Options& options, Reporter& reporter)
      : options(options),
        send(options.send),
        reporter(reporter),
        piped(PipedInput(options.send, reporter)),
        paths(piped ? std::vector{piped->Path()} : send.paths),
        plan(PlanSending(paths, Rules())),
        venue(options.network.interface.empty() ? LookForVenue(options.network) : ResolveVenue(options.network)),
        inbox(options.output.verbosity > 0),
        listeners(venue, inbox),
        gathering(send, listeners, inbox, reporter),
        attempts(plan, send, options.keyFile, {listeners, venue, inbox, reporter},
                 [this] { return PlanSending(paths, Rules()); }) {}

  int Run() {
    SayVenue(reporter, venue);
    TellSelection(reporter, plan);
    RejectUnfit(reporter, plan);
    CheckOpenName();
    if (send.dryRun) return ListOnly();
    // Until they have it, those that it is meant for have not: whatever ends this early, no older list is left there.
    if (!WriteFailed(MeantTexts())) ThrowUnwritable();
    if (!send.only.everyone && MeantTexts().empty()) return SayNobody();
    if (!venue.HasInterface()) venue = ResolveVenue(options.network);
    if (int code = gathering.First(plan.blocks)) return code;
    if (int code = Prepare()) return code;
    started = Clock::now();
    const Attendance attendance = gathering.WhoIsThere();
    tally.NoteAbsent(attendance.missing);
    attempts.Run(send.only.everyone ? std::vector<uint32_t>{} : attendance.there, tally);
    for (uint32_t i = 0; i < send.retries && !tally.WasStopped() && !tally.Failed().empty(); ++i) {
      auto failed = tally.Failed();
      if (int code = gathering.Again(failed)) {
        Finish();
        return code;
      }
      if (listeners.MissingOf(failed).size() == failed.size()) break;
      if (IsTooFast(tally.Rows(), plan.blocks)) attempts.SlowDown();
      attempts.Run(failed, tally);
    }
    return Finish();
  }

 private:
  static std::optional<Piped> PipedInput(const SendOptions& send, Reporter& reporter) {
    if (!IsInput(send)) return std::nullopt;
    return std::optional<Piped>(std::in_place, send.inputName.empty() ? "stdin" : send.inputName, reporter);
  }

  PlanRules Rules() const {
    return {send.subdirectories, send.exclude, send.skipUnreadable, send.links, piped.has_value()};
  }

  int ListOnly() {
    ListSelection(reporter, plan);
    if (send.rateGiven || !send.coded) SayStreamTime(reporter, send, plan.blocks);
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

  /// Reads everything for a manifest that travels first. That may take long; who is there is asked once more then.
  int Prepare() {
    if (!attempts.ReadsFirst()) return 0;
    auto began = Clock::now();
    if (int signal = attempts.ReadAll()) return 128 + signal;
    return Clock::now() - began > LONG_READING ? gathering.Wait() : 0;
  }

  int Finish() {
    if (plan.lost != 0) tally.NoteLeftOut();
    TellSent(reporter, listeners.Names(), tally,
             {plan.bytes, attempts.Streamed(), plan.files.size(), plan.blocks, attempts.FixedRate()},
             Clock::now() - started);
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
  std::optional<Piped> piped;
  std::vector<std::string> paths;
  SendPlan plan;
  Venue venue;
  Inbox inbox;  // From here on Ctrl-C is an event.
  Listeners listeners;
  Gathering gathering;
  Attempts attempts;
  SendTally tally;
  Clock::time_point started;
};

}  // namespace

int RunSend(const Options& options, Reporter& reporter) {
  if (!options.keyFile.empty() && !options.send.manifest) {
    throw Failure{
        Exit::Usage, "--key-file and --no-manifest exclude each other", "it is the manifest that the key seals", {}};
  }
  if (!options.send.manifest && (options.send.permissions || options.send.links == Links::Keep)) {
    throw Failure{
        Exit::Usage,
        fmt::format("{} and --no-manifest exclude each other", options.send.permissions ? "--perms" : "--links keep"),
        "it is the manifest that they travel in",
        {}};
  }
  if (options.send.links != Links::Follow && !HasLinks())
    throw Failure{Exit::Usage, "--links cannot be taken", "this system has no links of that kind", {}};
  if (IsInput(options.send) && options.send.paths.size() > 1)
    throw Failure{Exit::Usage, "standard input is sent alone", "\"-\" stands among other paths", {}};
  if (!IsInput(options.send) && !options.send.inputName.empty())
    throw Failure{Exit::Usage, "--as is for standard input", "no \"-\" is sent", {}};
  if (MustAsk(options.send) && (options.output.json || !CanAsk())) {
    throw Failure{Exit::Usage,
                  "nobody can be asked whether to start",
                  options.output.json ? "--json is for programs" : "this is no terminal",
                  {"--yes starts as soon as somebody is there, --wait-for N when N receivers are."}};
  }
  // The fixed pace is one of blocks.
  const bool isCompatible = options.send.rateGiven && options.send.rate == 0;
  SetProfile(options.send.coded && !isCompatible ? 2 : 1);
  SetCapabilities(TELLS_VERDICT | TAKES_CATALOGUE | (options.send.adaptsRate ? uint32_t{HEARS_INTAKE} : 0));
  return Sending(options, reporter).Run();
}

}  // namespace quorl::cli
