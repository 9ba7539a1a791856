// `quorl receive`: one transfer into one directory, or with --keep one after the other.
#include "cli/receive.h"

#include <fmt/format.h>

#include <optional>

#include "cli/escape.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/progress.h"
#include "cli/receive_delivery.h"
#include "cli/receive_open.h"
#include "cli/receive_round.h"
#include "cli/receive_tell.h"
#include "cli/then.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// Between two attempts of a receiver that goes on, when the network does not let it.
constexpr auto NETWORK_PAUSE = 5s;
// After a transfer that could not even begin, which its sender may announce again at once.
constexpr auto FAILURE_PAUSE = 1s;

class Receiving {
 public:
  Receiving(const Options& options, Reporter& reporter)
      : receive(options.receive),
        reporter(reporter),
        staging(receive.directory.empty() ? "." : receive.directory),
        network(ResolveNetwork(options.network)) {
    if (!options.keyFile.empty()) key = ReadKeyFile(options.keyFile);
    if (!receive.then.empty()) followUp.emplace(receive.then);
  }

  int Run() {
    SayWaiting();
    while (true) {
      Reception reception(receive, reporter, inbox, network, staging, [this] { PollPrograms(); });
      const RoundEnd end = reception.Run();
      if (end.kind == RoundEnd::Kind::TimedOut) throw NobodyCame();
      if (end.kind == RoundEnd::Kind::Interrupted) return Interrupted(end);
      if (end.kind == RoundEnd::Kind::Deaf) {
        if (const int number = WaitForNetwork()) return 128 + number;
        continue;
      }
      const ReceiveResult result = DeliverWhatCame(end);
      if (result.interrupted) return Interrupted(end);
      ++rounds;
      if (!receive.keep && !result.notMeant) return Finish(result);
      GoOn(result);
      if (const int number = end.announced ? 0 : Pause(FAILURE_PAUSE)) return 128 + number;
    }
  }

 private:
  void SayWaiting() {
    SayNetwork(reporter, network);
    if (staging.StaleRemoved() > 0) {
      reporter.Say(fmt::format("Removed what {} left behind", staging.StaleRemoved() == 1
                                                                  ? "a receiver that was killed had"
                                                                  : "receivers that were killed had"));
    }
    Fact fact("waiting");
    fact.Add("directory", staging.Directory()).Add("keep", receive.keep);
    const std::string from = receive.from == 0 ? "" : fmt::format(", none but {}", FormatAddress(receive.from));
    reporter.Say(fact, fmt::format("Directory  {}\nWaiting for a sender on {} via {}{}   (Ctrl-C to stop)",
                                   Escape(staging.Directory()), network.GroupText(), network.InterfaceText(), from));
  }

  Failure NobodyCame() const {
    return {Exit::Nobody,
            fmt::format("no sender came within {}", FormatDuration(receive.timeout)),
            fmt::format("nothing was announced on {} through {}", network.GroupText(), network.InterfaceText()),
            {"Is \"quorl send\" running in the same network, with the same group and port?",
             "\"quorl doctor\" checks this machine."}};
  }

  Failure Deaf() const {
    return {Exit::Other,
            fmt::format("cannot listen on {} through {}", network.GroupText(), network.InterfaceText()),
            "a socket could not be opened",
            {"Another program may hold the port; another --port or --interface may help."}};
  }

  /// For a receiver that goes on, a network that is away is a matter of time. Returns the signal that ended the wait.
  int WaitForNetwork() {
    if (!receive.keep || rounds == 0) throw Deaf();
    reporter.Warn(fmt::format("{}; trying again", Deaf().what));
    return Pause(NETWORK_PAUSE);
  }

  int Pause(std::chrono::milliseconds time) {
    const Event event = inbox.Next(time);
    return event.kind == Event::Kind::Signal ? event.signal : 0;
  }

  int Interrupted(const RoundEnd& end) {
    const int number = end.kind == RoundEnd::Kind::Interrupted ? end.signal : signal;
    staging.Discard();
    reporter.Result().Add("state", "stopped").Add("signal", number).Add("transfers", rounds);
    reporter.Say(end.announced ? fmt::format("Stopped: {} of {} stored; nothing was moved", end.state.blocksStored,
                                             Count(end.state.blocksExpected, "block"))
                 : rounds > 0  ? fmt::format("Stopped after {}", Count(rounds, "transfer"))
                               : "Stopped: no transfer had started");
    return 128 + number;
  }

  ReceiveResult DeliverWhatCame(const RoundEnd& end) {
    checkedBytes = 0;
    bytesToCheck = end.state.blocksExpected * BLOCK_SIZE;
    DeliveryRules rules;
    rules.move = {receive.existing, receive.sync, true};
    rules.key = key ? &*key : nullptr;
    rules.ownAddress = network.interface.address;
    rules.progress = [this](uint64_t bytes) { return GoOnChecking(bytes); };
    ReceiveResult result = Deliver(staging, end, rules);
    reporter.ClearProgress();
    if (!staging.Discard())
      reporter.Warn(
          fmt::format("a directory \".quorl-...\" could not be removed from {}", Escape(staging.Directory())));
    return result;
  }

  bool GoOnChecking(uint64_t bytes) {
    checkedBytes += bytes;
    if (const Event event = inbox.Next(0ms); event.kind == Event::Kind::Signal) signal = event.signal;
    if (signal != 0) return false;
    if (reporter.WantsProgress()) {
      const uint32_t percent = Percent(checkedBytes, bytesToCheck);
      ProgressView view;
      const std::vector<std::string> parts{fmt::format("{:3} %", percent), FormatPart(checkedBytes, bytesToCheck)};
      view.lines.push_back(BarLine("Checking", percent / 100.0, parts, reporter.Width()));
      view.plain = fmt::format("checking {}", fmt::join(parts, "  "));
      view.fact.Add("phase", "checking").Add("bytes_checked", checkedBytes);
      reporter.Progress(view);
    }
    return true;
  }

  /// After the only transfer. Returns the exit code.
  int Finish(const ReceiveResult& result) {
    TellResult(reporter, result);
    AddResult(reporter.Result(), result);
    OpenSuggestion(result);
    RunThen(result);
    while (followUp && followUp->IsBusy()) {
      PollPrograms();
      if (const Event event = inbox.Next(50ms); event.kind == Event::Kind::Signal) return 128 + event.signal;
    }
    return static_cast<int>(result.code);
  }

  /// After one of many.
  void GoOn(const ReceiveResult& result) {
    if (receive.keep) {
      TellResultInALine(reporter, result);
    } else {
      TellResult(reporter, result);
    }
    OpenSuggestion(result);
    RunThen(result);
  }

  void OpenSuggestion(const ReceiveResult& result) {
    if (result.suggested.empty()) {
      if (!result.end.suggestedPath.empty() && result.code == Exit::Complete && !result.notMeant)
        reporter.Say("  The sender suggests to open a file that is not among those received; not opened.");
      return;
    }
    const std::string name = Escape(result.suggested);
    Fact fact("suggestion");
    fact.Add("name", result.suggested);
    const std::string why = receive.open ? WhyNotOpened(staging.Target(), result.suggested) : "--open would";
    if (!why.empty()) {
      reporter.Say(fact.Add("opened", false).Add("reason", why),
                   fmt::format("  The sender suggests to open \"{}\"; not opened ({}).", name, why));
      return;
    }
    reporter.Say(fact.Add("opened", true), fmt::format("  Opening \"{}\", as the sender suggests.", name));
    opener.Want(staging.Directory() + "/" + result.suggested);
    PollPrograms();
  }

  void RunThen(const ReceiveResult& result) {
    if (!followUp || result.notMeant) return;
    if (result.code == Exit::Complete && result.verified) {
      followUp->Want(staging.Directory());
    } else {
      reporter.Warn(fmt::format("\"{}\" is not run: {}", Escape(receive.then),
                                result.verified ? "the transfer did not end well" : "nothing was verified"));
    }
    PollPrograms();
  }

  void PollPrograms() {
    if (const auto ended = opener.Poll(); ended && ended->startError != 0)
      reporter.Warn(fmt::format("xdg-open {}", InWords(*ended)));
    const auto ended = followUp ? followUp->Poll() : std::nullopt;
    if (!ended) return;
    Fact fact("then");
    fact.Add("program", receive.then).Add("exit", ended->exitCode).Add("signal", ended->signal);
    reporter.Say(fact.Add("start_error", ended->startError),
                 fmt::format("  \"{}\" {}", Escape(receive.then), InWords(*ended)));
  }

  const ReceiveOptions& receive;
  Reporter& reporter;
  Inbox inbox;
  Staging staging;
  Network network;
  std::optional<ManifestKey> key;
  std::optional<FollowUp> followUp;
  FollowUp opener{"xdg-open"};
  uint64_t rounds = 0;
  uint64_t checkedBytes = 0;
  uint64_t bytesToCheck = 0;
  int signal = 0;
};

}  // namespace

int RunReceive(const Options& options, Reporter& reporter) {
  return Receiving(options, reporter).Run();
}

}  // namespace quorl::cli
