// `quorl receive`: one transfer into one directory, or with --keep one after the other.
#include "cli/commands/receive.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

#include "cli/room/venue.h"
#include "cli/show/escape.h"
#include "cli/show/received.h"
#include "cli/show/units.h"
#include "cli/show/views.h"
#include "cli/system/path.h"
#include "cli/transfer/aftermath.h"
#include "cli/transfer/block_listening.h"
#include "cli/transfer/delivery.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/inventory.h"
#include "cli/transfer/reception.h"
#include "cli/transfer/salvage.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// Between two attempts of a receiver that goes on, when the network does not let it.
constexpr auto NETWORK_PAUSE = 5s;
// After a transfer that could not even begin, which its sender may announce again at once.
constexpr auto FAILURE_PAUSE = 1s;
// Between two looks for an interface.
constexpr auto NETWORK_POLL = 500ms;

using Clock = std::chrono::steady_clock;

class Receiving {
 public:
  Receiving(const Options& options, Reporter& reporter)
      : network(options.network),
        receive(options.receive),
        reporter(reporter),
        sink(OpenSink(options.receive)),
        staging(DirectoryFor(options.receive, sink)),
        venue(LookForVenue(options.network)) {
    // A receiver with --keep outlives an interface that is not there yet; without it a mistyped name is told at once.
    if (!venue.HasInterface() && !network.interface.empty() && !receive.keep) venue = ResolveVenue(network);
    if (!options.keyFile.empty()) key = ReadKeyFile(options.keyFile);
  }

  int Run() {
    // A directory that cannot be written is told now, and not when a network comes.
    staging.Prepare([](const std::string&) { return true; });
    if (!venue.HasInterface()) SayWaiting();
    while (true) {
      if (const int number = FollowNetwork()) return 128 + number;
      Reception reception(
          receive, reporter, inbox, venue, staging, [this, &reception] { Tick(reception); },
          [this] { return watch.HasNews() && IsAnother(LookForVenue(network)); });
      const bool listens = reception.Open();
      SayWaiting();
      if (!listens) {
        if (const int number = WaitForNetwork()) return 128 + number;
        continue;
      }
      if (catalogue && !AnswerCatalogue(reception))
        return Interrupted({.kind = RoundEnd::Kind::Interrupted, .signal = signal});
      const RoundEnd end = reception.Run(catalogue ? round : uint8_t{0});
      if (end.kind == RoundEnd::Kind::Moved) continue;
      if (end.kind == RoundEnd::Kind::TimedOut) throw NobodyCame();
      if (end.kind == RoundEnd::Kind::Interrupted) return Interrupted(end);
      if (end.isTooLate) {
        reporter.Say(Fact("under_way").Add("sender", FormatAddress(end.state.senderAddress)),
                     fmt::format("A transfer from {} is under way; waiting for the next one",
                                 FormatAddress(end.state.senderAddress)));
        continue;
      }
      if (end.IsComplete() && end.about && end.about->purpose == About::Purpose::Catalogue) {
        // A sender that has heard of the end is not told again, and what comes next may begin at once.
        signal = reception.Conclude(StillAtWork{end.about->round});
        if (signal != 0) return Interrupted({.kind = RoundEnd::Kind::Interrupted, .signal = signal});
        TakeCatalogue(*end.about);
        continue;
      }
      const ReceiveResult result = DeliverWhatCame(end);
      const int stop =
          reception.Conclude(result.interrupted ? FinalVerdict{.status = QUORL_STATUS_LEFT} : VerdictFor(result));
      if (result.interrupted) return Interrupted(end);
      ++rounds;
      ForgetCatalogue();
      if (!receive.keep && !result.notMeant) return Finish(result);
      GoOn(result);
      if (stop != 0) return Interrupted({.kind = RoundEnd::Kind::Interrupted, .signal = stop});
      if (const int number = end.announced ? 0 : Pause(FAILURE_PAUSE)) return 128 + number;
    }
  }

 private:
  static std::optional<Sink> OpenSink(const ReceiveOptions& receive) {
    return receive.output.empty() ? std::nullopt : std::optional(Sink::Open(receive.output));
  }

  /// What becomes a file is received beside it.
  static std::string DirectoryFor(const ReceiveOptions& receive, const std::optional<Sink>& sink) {
    std::string directory = receive.directory;
    if (sink && !sink->outlet) directory = PathFrom(receive.output).parent_path().string();
    return directory.empty() ? "." : directory;
  }

  /// Once, and only when a sender that starts now is heard, or there is no network to hear one.
  void SayWaiting() {
    if (std::exchange(waitingSaid, true)) return;
    SayVenue(reporter, venue);
    if (staging.StaleRemoved() > 0) {
      reporter.Say(fmt::format("Removed what {} left behind", staging.StaleRemoved() == 1
                                                                  ? "a receiver that was killed had"
                                                                  : "receivers that were killed had"));
    }
    if (!staging.KeptFiles().files.empty()) {
      const uint64_t bytes = staging.KeptFiles().Bytes();
      reporter.Say(Fact("kept").Add("files", staging.KeptFiles().files.size()).Add("bytes", bytes),
                   fmt::format("Kept       {} of {} from a transfer that broke; the next sending goes on from there",
                               FormatBytes(bytes), Count(staging.KeptFiles().files.size(), "file")));
    }
    Fact fact("waiting");
    fact.Add("directory", staging.Path()).Add("keep", receive.keep);
    const std::string from = receive.from == 0 ? "" : fmt::format(", none but {}", FormatAddress(receive.from));
    reporter.Say(fact, fmt::format("Directory  {}\nWaiting for a sender on {} via {}{}   (Ctrl-C to stop)",
                                   Escape(staging.Path()), venue.GroupText(),
                                   venue.HasInterface() ? venue.InterfaceText() : "the interface to come", from));
  }

  bool IsAnother(const Venue& now) const {
    return now.interface.address != venue.interface.address || now.interface.name != venue.interface.name ||
           now.interface.running != venue.interface.running;
  }

  /// Listens where this machine is to be found now, and waits while that is nowhere. Returns the signal that ended the
  /// wait; throws when it has been too long.
  int FollowNetwork() {
    const auto since = Clock::now();
    for (Venue now = LookForVenue(network); IsAnother(now) || !now.HasInterface(); now = LookForVenue(network)) {
      if (IsAnother(now)) SayMove(now);
      venue = now;
      if (now.HasInterface()) break;
      if (const int number = inbox.SignalWithin(NETWORK_POLL)) return number;
      if (receive.timeout != 0s && Clock::now() - since > receive.timeout) throw NobodyCame();
    }
    return 0;
  }

  /// Once for each change.
  void SayMove(const Venue& now) {
    std::string text = fmt::format("Interface  {} now, {}", now.InterfaceText(), now.interface.reason);
    const bool isSame = now.interface.address == venue.interface.address && now.interface.name == venue.interface.name;
    if (isSame)
      text = fmt::format("Interface  {} has {} link", now.InterfaceText(), now.interface.running ? "its" : "no");
    if (!now.HasInterface()) text = fmt::format("Interface  none any more; {} is gone", venue.InterfaceText());
    reporter.Say(VenueFact(now), text);
  }

  Failure NobodyCame() const {
    return {Exit::Nobody,
            fmt::format("no sender came within {}", FormatDuration(receive.timeout)),
            fmt::format("nothing was announced on {} through {}", venue.GroupText(), venue.InterfaceText()),
            {"Is \"quorl send\" running in the same network, with the same group and port?",
             "\"quorl doctor\" checks this machine."}};
  }

  Failure Deaf() const {
    return {Exit::Other,
            fmt::format("cannot listen on {} through {}", venue.GroupText(), venue.InterfaceText()),
            "a socket could not be opened",
            {"Another program may hold the port; another --port or --interface may help."}};
  }

  /// For a receiver that goes on, a network that is away is a matter of time. Returns the signal that ended the wait.
  int WaitForNetwork() {
    if (!receive.keep || rounds == 0) throw Deaf();
    reporter.Warn(fmt::format("{}; trying again", Deaf().what));
    return Pause(NETWORK_PAUSE);
  }

  int Pause(std::chrono::milliseconds time) { return inbox.SignalWithin(time); }

  int Interrupted(const RoundEnd& end) {
    const int number = end.kind == RoundEnd::Kind::Interrupted ? end.signal : signal;
    const ReceiveResult result = end.announced && !end.IsComplete() ? DeliverWhatCame(end) : ReceiveResult();
    staging.Discard();
    reporter.Result().Add("state", "stopped").Add("signal", number).Add("transfers", rounds);
    reporter.Say(end.announced ? fmt::format("Stopped: {} of {} stored; {}", end.state.blocksStored,
                                             Count(end.state.blocksExpected, "block"),
                                             result.filesKept > 0 ? "the next sending of the same goes on from there"
                                                                  : "nothing was moved")
                 : rounds > 0  ? fmt::format("Stopped after {}", Count(rounds, "transfer"))
                               : "Stopped: no transfer had started");
    return 128 + number;
  }

  ReceiveResult DeliverWhatCame(const RoundEnd& end) {
    listening.reset();
    checkedBytes = 0;
    bytesToCheck = end.state.blocksExpected * BLOCK_SIZE * (sink && sink->outlet ? 2 : 1);
    DeliveryRules rules;
    rules.move = {receive.existing, receive.sync, true};
    rules.catalogue = end.about && end.about->round != 0 && catalogue ? &*catalogue : nullptr;
    rules.inPlace = inventory.inPlace;
    // They are of the first announcement; a sender that began anew has sent something else since.
    rules.arriving = rules.catalogue != nullptr && end.announcements == 1 && arriving ? &*arriving : nullptr;
    rules.allOrNothing = receive.allOrNothing;
    rules.sink = sink ? &*sink : nullptr;
    rules.permissions = receive.permissions;
    rules.key = key ? &*key : nullptr;
    rules.ownAddress = venue.interface.address;
    rules.progress = [this](uint64_t bytes) { return GoOnChecking(bytes); };
    ReceiveResult result = Deliver(staging, end, rules);
    reporter.ClearProgress();
    if (!staging.Discard())
      reporter.Warn(fmt::format("a directory \".quorl-...\" could not be removed from {}", Escape(staging.Path())));
    return result;
  }

  /// What is not well-formed, or by no key of ours, is answered as if nothing were there.
  void TakeCatalogue(const About& about) {
    ForgetCatalogue();
    catalogue = Manifest();
    inventory = Inventory();
    round = about.round;
    // Closed again before it goes; some systems remove nothing that is open.
    if (const auto text = staging.ReadWhole(std::string(CATALOGUE_NAME), MANIFEST_LIMIT)) {
      auto read = ParseCatalogue(*text, key ? &*key : nullptr);
      if (auto* listed = std::get_if<ReadManifest>(&read)) catalogue = std::move(listed->manifest);
      if (catalogue && !receive.permissions) ForgetPermissions(*catalogue);
    }
    staging.Discard();
  }

  void ForgetCatalogue() {
    listening.reset();
    arriving.reset();
    catalogue.reset();
  }

  /// Says what is here of the catalogue. False when a signal ended it.
  bool AnswerCatalogue(Reception& reception) {
    InventoryRules rules;
    rules.quick = receive.quick;
    rules.onlyKept = sink.has_value();
    checkedBytes = 0;
    bytesToCheck = 0;
    for (const ManifestEntry& entry : catalogue->files) bytesToCheck += entry.size;
    rules.progress = [this](uint64_t bytes) { return GoOnChecking(bytes); };
    inventory = TakeInventory(*catalogue, staging, rules);
    reporter.ClearProgress();
    if (!inventory.isWhole) return false;
    SetHeldBlocks(inventory.held.data(), static_cast<uint32_t>(inventory.held.size()));
    staging.UseKept(inventory.used);
    if (!inventory.used.empty()) reception.UseNextStaging();
    listening.reset();
    arriving.emplace(*catalogue, staging.NextPath());
    listening.emplace(*arriving);
    for (size_t i = 0; i < inventory.runs.size(); i += Have::MOST) {
      const size_t count = std::min(Have::MOST, inventory.runs.size() - i);
      const auto first = inventory.runs.begin() + static_cast<std::ptrdiff_t>(i);
      Say(Letter(Have{round, {first, first + static_cast<std::ptrdiff_t>(count)}}));
    }
    Say(Letter(HaveAll{round}));
    return true;
  }

  static FinalVerdict VerdictFor(const ReceiveResult& result) {
    FinalVerdict verdict;
    verdict.status = VerdictOf(result.failure, !result.differences.empty(), !result.moved.taken.empty());
    verdict.files = static_cast<uint32_t>(result.moved.moved.size());
    if (!result.failure) return verdict;
    verdict.text = result.failure->what;
    if (!result.differences.empty()) {
      const Difference& first = result.differences.front();
      verdict.text += fmt::format(": \"{}\" {}", first.name, first.why);
      if (result.differences.size() > 1) verdict.text += fmt::format(" ... and {} more", result.differences.size() - 1);
    } else if (!result.moved.taken.empty()) {
      verdict.text += fmt::format(": \"{}\"", result.moved.taken.front());
    }
    return verdict;
  }

  bool GoOnChecking(uint64_t bytes) {
    if (Clock::now() - saidAt > 1s) {
      saidAt = Clock::now();
      Say(Letter(StillAtWork{}));
    }
    checkedBytes += bytes;
    if (const int number = inbox.SignalWithin(0ms)) signal = number;
    if (signal != 0) return false;
    if (reporter.WantsProgress()) reporter.Progress(CheckingView(checkedBytes, bytesToCheck, reporter.Width()));
    return true;
  }

  /// After the only transfer. Returns the exit code.
  int Finish(const ReceiveResult& result) {
    TellResult(reporter, result);
    AddResult(reporter.Result(), result);
    aftermath.Begin(result, staging);
    while (aftermath.IsBusy()) {
      aftermath.Poll();
      if (const int number = inbox.SignalWithin(50ms)) return 128 + number;
    }
    if (!result.failure && aftermath.HasFailed()) return static_cast<int>(Exit::FollowUp);
    return static_cast<int>(result.Code());
  }

  /// After one of many.
  void GoOn(const ReceiveResult& result) {
    // Once for a transfer with its catalogue.
    if (std::exchange(saidNotMeant, result.notMeant) && result.notMeant) return;
    if (receive.keep) {
      TellResultInALine(reporter, result);
    } else {
      TellResult(reporter, result);
    }
    aftermath.Begin(result, staging);
  }

  void Tick(const Reception& reception) {
    aftermath.Poll();
    const About* const about = reception.Arriving();
    const bool isListed = about != nullptr && about->round != 0 && catalogue && !receive.allOrNothing;
    if (isListed && about->purpose == About::Purpose::Contents) {
      recorder.Note(staging, *catalogue, inventory.inPlace);
    } else {
      recorder = Recorder();
    }
  }

  const NetworkOptions& network;
  const ReceiveOptions& receive;
  Reporter& reporter;
  Aftermath aftermath{receive, reporter};
  Inbox inbox;
  NetworkWatch watch;
  std::optional<Sink> sink;
  Staging staging;
  bool waitingSaid = false;
  Venue venue;
  std::optional<ManifestKey> key;
  uint64_t rounds = 0;
  uint64_t checkedBytes = 0;
  uint64_t bytesToCheck = 0;
  std::optional<Manifest> catalogue;  ///< Of the transfer to come, or under way.
  uint8_t round = 0;
  Inventory inventory;
  Recorder recorder;
  std::optional<ArrivingDigests> arriving;  ///< Of that transfer,
  std::optional<StoreListening> listening;  ///< as it is stored.
  int signal = 0;
  Clock::time_point saidAt{};
  bool saidNotMeant = false;
};

}  // namespace

int RunReceive(const Options& options, Reporter& reporter) {
  const ReceiveOptions& receive = options.receive;
  const char* const excluded = receive.output.empty()  ? nullptr
                               : receive.keep          ? "--keep"
                               : receive.open          ? "--open"
                               : !receive.then.empty() ? "--then"
                               : receive.output != "-" ? nullptr
                               : options.output.json   ? "--json"
                                                       : nullptr;
  if (excluded != nullptr)
    throw Failure{
        Exit::Usage, fmt::format("--output {} and {} exclude each other", Escape(receive.output), excluded), "", {}};
  return Receiving(options, reporter).Run();
}

}  // namespace quorl::cli
