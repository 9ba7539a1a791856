// The receivers of a transfer: waiting for them, showing them, asking whether to begin.
#include "cli/room/gathering.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/show/units.h"
#include "cli/show/views.h"
#include "cli/system/terminal.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds DEFAULT_WAIT = 30s;
constexpr std::chrono::seconds LONG_TRANSFER = 120s;
constexpr std::chrono::milliseconds BETWEEN_QUESTIONS = 1500ms;
constexpr size_t LINES_OF_RECEIVERS = 4;
constexpr int QUIT = 130;

}  // namespace

bool MustAsk(const SendOptions& options) {
  return !options.yes && options.waitFor == 0 && options.only.everyone && !options.dryRun;
}

std::chrono::seconds Gathering::Patience() const {
  if (options.wait.count() >= 0) return options.wait;
  return options.waitFor > 0 || !options.only.everyone ? DEFAULT_WAIT : 0s;
}

/// Before anybody has answered. Whose name alone is known may be at any address.
Expected Gathering::WhoIsExpected() const {
  if (options.only.everyone) return {.count = options.waitFor};
  if (!options.only.names.empty()) return {};
  return {.addresses = options.only.addresses};
}

Attendance Gathering::WhoIsThere() const {
  Attendance attendance;
  if (options.only.everyone) {
    attendance.there = listeners.There();
    return attendance;
  }
  for (uint32_t address : options.only.addresses) {
    if (listeners.Has(address)) {
      attendance.there.push_back(address);
    } else {
      attendance.missing.push_back(FormatAddress(address));
    }
  }
  for (const std::string& name : options.only.names) {
    const auto bearers = listeners.Named(name);
    attendance.there.insert(attendance.there.end(), bearers.begin(), bearers.end());
    if (bearers.empty()) attendance.missing.push_back(name);
  }
  return attendance;
}

bool Gathering::IsReady() const {
  const Attendance attendance = WhoIsThere();
  return attendance.missing.empty() && attendance.there.size() >= std::max(options.waitFor, 1u);
}

/// After the wait: whether to start with the receivers that have come.
bool Gathering::IsEnough() const {
  return options.yes && options.waitFor == 0 && !WhoIsThere().there.empty();
}

int Gathering::First(uint64_t blocks) {
  if (int code = Wait()) return code;
  SayRoom();
  if (options.rateGiven || !listeners.TakeSymbols()) SayStreamTime(reporter, options, blocks);
  return MustAsk(options) ? AskToStart() : 0;
}

int Gathering::Wait() {
  auto deadline = Clock::now() + Patience();
  uint64_t known = ~uint64_t{0};
  const auto tell = [this](const std::string& who) {
    reporter.Say(Fact("busy").Add("text", who), fmt::format("Waiting    {}", who));
  };
  for (;;) {
    if (const int signal = listeners.LookWhenFree(WhoIsExpected(), deadline, tell)) return 128 + signal;
    if (IsReady()) return 0;
    if (Clock::now() >= deadline && IsEnough()) return 0;
    if (Clock::now() >= deadline) throw listeners.TooFew(std::max(options.waitFor, 1u), WhoIsThere().missing);
    if (known != listeners.There().size()) SayWaiting();
    known = listeners.There().size();
    listeners.Leave();
    if (const int signal = inbox.SignalWithin(0ms)) return 128 + signal;
  }
}

void Gathering::SayWaiting() {
  const std::vector<std::string> missing = WhoIsThere().missing;
  std::string wanted = missing.empty() ? Count(std::max(options.waitFor, 1u), "receiver")
                                       : fmt::format("{} to come", fmt::join(missing, ","));
  reporter.Say(listeners.AsFact(), fmt::format("Waiting    {} there, for {}", listeners.There().size(), wanted));
}

void Gathering::SayRoom() {
  bool asks = MustAsk(options);
  std::string list = listeners.Listing(reporter.Width(), asks ? 1 : LINES_OF_RECEIVERS, asks ? " (l: list)" : "");
  reporter.Say(listeners.AsFact(),
               fmt::format("\nReceivers  {}{}{}", listeners.There().size(), list.empty() ? "" : "\n", list));
  if (options.only.everyone) return;
  const std::vector<uint32_t> meant = WhoIsThere().there;
  for (uint32_t address : listeners.There()) {
    if (std::find(meant.begin(), meant.end(), address) != meant.end()) continue;
    reporter.Say(Fact("listener").Add("address", FormatAddress(address)).Add("meant", false),
                 fmt::format("  {} listens too; {}", listeners.Names().Label(address),
                             options.manifest ? "\"quorl receive\" there throws away what is not for it"
                                              : "without a manifest it keeps what is sent"));
  }
}

int Gathering::AskToStart() {
  const KeyMode keys(KeyMode::Input::Each);
  while (true) {
    bool anyone = !listeners.There().empty();
    reporter.Ask(anyone ? "[Enter] send   [r] look again   [l] list   [q] quit " : "[r] look again   [q] quit ");
    InboxEvent event = inbox.NextOrKey(BETWEEN_QUESTIONS);
    if (event.kind == InboxEvent::Kind::Nothing) {
      LookAgain();
      continue;
    }
    reporter.ClearProgress();
    if (event.kind == InboxEvent::Kind::Signal) return 128 + event.signal;
    if (event.kind != InboxEvent::Kind::Key) continue;
    if ((event.key == '\n' || event.key == '\r') && anyone) {
      // The receivers of this moment get it.
      LookAgain();
      if (!listeners.There().empty()) return 0;
    }
    if (event.key == 'r') {
      listeners.Look();
      SayRoom();
      KeyMode::Forget();
    }
    if (event.key == 'l') reporter.Say(listeners.AsFact(), listeners.Listing(1, MOST_RECEIVERS, ""));
    if (event.key == 'q' || event.key == END_OF_INPUT) {
      reporter.Say(Fact("quit"), "Nothing has been sent.");
      return QUIT;
    }
  }
}

/// The room stays as it is shown: receivers that have come or gone since are told.
void Gathering::LookAgain() {
  const std::vector<uint32_t> before = listeners.There();
  listeners.Look({.addresses = before});
  const auto tell = [&](const std::vector<uint32_t>& some, const std::vector<uint32_t>& others, const char* what) {
    for (const uint32_t address : some) {
      if (std::find(others.begin(), others.end(), address) != others.end()) continue;
      reporter.ClearProgress();
      reporter.Say(Fact("listener").Add("address", FormatAddress(address)).Add("event", what),
                   fmt::format("  {} has {}; {}", listeners.Names().Label(address), what,
                               Count(listeners.There().size(), "receiver")));
    }
  };
  tell(listeners.There(), before, "come");
  tell(before, listeners.There(), "gone");
}

int Gathering::Again(const std::vector<uint32_t>& failed) {
  listeners.Leave();
  inbox.Renew();
  reporter.Say(Fact("retry").Add("count", failed.size()),
               fmt::format("Retry      for {}", Count(failed.size(), "receiver")));
  auto deadline = Clock::now() + (options.wait.count() >= 0 ? options.wait : DEFAULT_WAIT);
  const Expected expected{.addresses = failed};
  for (listeners.Look(expected); !listeners.MissingOf(failed).empty() && Clock::now() < deadline;
       listeners.Look(expected)) {
    if (const int signal = inbox.SignalWithin(0ms)) return 128 + signal;
  }
  return 0;
}

void SayStreamTime(Reporter& reporter, const SendOptions& options, uint64_t blocks) {
  // Nobody knows it then.
  if (options.adaptsRate || options.rate == FULL_SPEED) return;
  auto time = StreamTime(blocks, options.rate);
  std::string hint;
  if (!options.rateGiven && time > LONG_TRANSFER) {
    hint = "\nWhere the network and the disks can take more: --rate 400M, for example.";
  }
  reporter.Say(
      Fact("estimate").Add("rate_bits", uint64_t{options.rate} * 1000).Add("stream_ms", time.count()),
      fmt::format("At {} this takes {} {} plus repairs.{}", FormatLinkRate(options.rate),
                  options.rate == 0 ? "at least" : "about", time < 1s ? "a second" : FormatDuration(time), hint));
}

}  // namespace quorl::cli
