// Who is to receive: waiting, showing, asking.
#include "cli/gathering.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/send_view.h"
#include "cli/terminal.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds DEFAULT_WAIT = 30s;
constexpr std::chrono::seconds LONG_TRANSFER = 120s;
constexpr size_t LINES_OF_RECEIVERS = 4;
constexpr int QUIT = 130;

}  // namespace

bool MustAsk(const SendOptions& options) {
  return !options.yes && options.waitFor == 0 && options.only.empty() && !options.dryRun;
}

std::chrono::seconds Gathering::Patience() const {
  if (options.wait.count() >= 0) return options.wait;
  return options.waitFor > 0 || !options.only.empty() ? DEFAULT_WAIT : 0s;
}

bool Gathering::IsReady() const {
  if (!options.only.empty() && !room.MissingOf(options.only).empty()) return false;
  return room.There().size() >= std::max(options.waitFor, 1u);
}

int Gathering::First(uint64_t blocks) {
  if (int code = Wait()) return code;
  SayRoom();
  SayStreamTime(reporter, options, blocks);
  return MustAsk(options) ? AskToStart() : 0;
}

int Gathering::Wait() {
  auto deadline = Clock::now() + Patience();
  uint64_t known = ~uint64_t{0};
  for (room.Look(); !IsReady(); room.Look()) {
    if (Clock::now() >= deadline) throw room.TooFew(std::max(options.waitFor, 1u), options.only);
    if (known != room.There().size()) SayWaiting();
    known = room.There().size();
    room.Leave();
    Event event = inbox.Next(0ms);
    if (event.kind == Event::Kind::Signal) return 128 + event.signal;
  }
  return 0;
}

void Gathering::SayWaiting() {
  std::string wanted = options.only.empty() ? Count(std::max(options.waitFor, 1u), "receiver")
                                            : AddressList(room.MissingOf(options.only)) + " to come";
  reporter.Say(room.AsFact(), fmt::format("Waiting    {} there, for {}", room.There().size(), wanted));
}

void Gathering::SayRoom() {
  bool asks = MustAsk(options);
  std::string list = room.Listing(reporter.Width(), asks ? 1 : LINES_OF_RECEIVERS, asks ? " (l: list)" : "");
  reporter.Say(room.AsFact(), fmt::format("\nReceivers  {}{}{}", room.There().size(), list.empty() ? "" : "\n", list));
  if (options.only.empty()) return;
  for (uint32_t address : room.There()) {
    if (IsMeant(address)) continue;
    reporter.Say(Fact("listener").Add("address", FormatAddress(address)).Add("meant", false),
                 fmt::format("  {} listens too; {}", room.Names().Label(address),
                             options.manifest ? "\"quorl receive\" there throws away what is not for it"
                                              : "without a manifest it keeps what is sent"));
  }
}

bool Gathering::IsMeant(uint32_t address) const {
  return options.only.empty() || std::find(options.only.begin(), options.only.end(), address) != options.only.end();
}

int Gathering::AskToStart() {
  KeyMode keys;
  while (true) {
    bool anyone = !room.There().empty();
    reporter.Ask(anyone ? "[Enter] send   [r] look again   [l] list   [q] quit " : "[r] look again   [q] quit ");
    Event event = inbox.NextOrKey(1h);
    reporter.ClearProgress();
    if (event.kind == Event::Kind::Signal) return 128 + event.signal;
    if (event.kind != Event::Kind::Key) continue;
    if ((event.key == '\n' || event.key == '\r') && anyone) return 0;
    if (event.key == 'r') {
      room.Look();
      SayRoom();
      KeyMode::Forget();
    }
    if (event.key == 'l') reporter.Say(room.AsFact(), room.Listing(1, MOST_RECEIVERS, ""));
    if (event.key == 'q' || event.key == END_OF_INPUT) {
      reporter.Say(Fact("quit"), "Nothing has been sent.");
      return QUIT;
    }
  }
}

int Gathering::Again(const std::vector<uint32_t>& failed) {
  room.Leave();
  inbox.Renew();
  reporter.Say(Fact("retry").Add("count", failed.size()),
               fmt::format("Retry      for {}", Count(failed.size(), "receiver")));
  auto deadline = Clock::now() + (options.wait.count() >= 0 ? options.wait : DEFAULT_WAIT);
  for (room.Look(); !room.MissingOf(failed).empty() && Clock::now() < deadline; room.Look()) {
    Event event = inbox.Next(0ms);
    if (event.kind == Event::Kind::Signal) return 128 + event.signal;
  }
  return 0;
}

void SayStreamTime(Reporter& reporter, const SendOptions& options, uint64_t blocks) {
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
