// One transfer on the receiving side, as far as it concerns the library: listen, follow, hear the end.
#include "cli/transfer/reception.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "cli/manifest/manifest.h"
#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/show/units.h"
#include "cli/transfer/stored_blocks.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// What the sender has to say of a transfer that it has ended.
constexpr auto LAST_WORDS = 500ms;

// What has come may still be on its way to the disk when the sender says that nothing more comes.
constexpr auto LAST_WRITES = 2s;

// A sender that waits for the verdict answers within a moment.
constexpr auto LONGEST_CONCLUSION = 3s;

constexpr size_t MOST_CHANGED = 100;

// The staging directory stands behind a drive letter, so that its own path takes nothing from the 260 characters that
// a received path may have. Letters in turn: the next transfer is prepared while the last one may be written.
constexpr std::string_view DRIVES = "RSTUVWXY";

QuorlReceiveState State() {
  QuorlReceiveState state{.size = sizeof state};
  GetReceiveState(&state);
  return state;
}

uint64_t Counted(std::string_view name) {
  std::vector<QuorlCounter> counters(GetCounters(nullptr, 0), {.size = sizeof(QuorlCounter)});
  GetCounters(counters.data(), static_cast<uint32_t>(counters.size()));
  const auto found =
      std::find_if(counters.begin(), counters.end(), [name](const auto& counter) { return counter.name == name; });
  return found == counters.end() ? 0 : found->value;
}

}  // namespace

Reception::Reception(const ReceiveOptions& options, Reporter& reporter, Inbox& inbox, const Venue& venue,
                     Staging& staging, std::function<void()> tick, std::function<bool()> hasMoved)
    : options(options),
      reporter(reporter),
      inbox(inbox),
      venue(venue),
      staging(staging),
      announcement(reporter, staging),
      tick(std::move(tick)),
      hasMoved(std::move(hasMoved)) {}

Reception::~Reception() {
  DeInitClient();
}

RoundEnd Reception::Run(uint8_t agreedRound) {
  agreed = agreedRound;
  waitingSince = Clock::now();
  while (true) {
    if (auto end = Step(inbox.Next(100ms))) return Ended(*end);
    tick();
    const bool patient = announced || options.timeout == 0s || Clock::now() - waitingSince < options.timeout;
    if (!patient) return Ended({.kind = RoundEnd::Kind::TimedOut});
    TakeWords();
    const QuorlReceiveState state = State();
    if (!announced) SayOtherTransfer(state);
    if (!announced && hasMoved()) return Ended({.kind = RoundEnd::Kind::Moved});
    if (!announced) continue;
    intake.Tell(Clock::now(), state, Overflows());
    if (over && Clock::now() - *over > LAST_WRITES) return Ended({.kind = RoundEnd::Kind::Over});
    if (about && about->purpose == About::Purpose::Catalogue) continue;
    announcement.SayOnceKnown(state);
    if (announcement.IsSaid() && reporter.WantsProgress())
      reporter.Progress(view.Show(Clock::now(), state, announcement.Bytes(state), reporter.Width()));
  }
}

bool Reception::Open() {
  inbox.Renew();
  SetProfile(options.coded ? 2 : 1);
  SetSender(options.from);
  const bool hasSomething = !staging.Target().Names().value_or(std::vector<std::string>()).empty();
  SetCapabilities(TELLS_VERDICT | TAKES_CATALOGUE | TAKES_LINKS | TELLS_INTAKE | TAKES_XXH3 |
                  (hasSomething ? uint32_t{HAS_SOMETHING} : 0));
  UseNextStaging();
  if (InitClient(inbox.Window(), venue.group, venue.port, venue.interface.address) == 0) return false;
  StartReceive();
  return true;
}

void Reception::UseNextStaging() {
  staging.Prepare([letter = DRIVES[staging.Prepared() % DRIVES.size()]](const std::string& path) {
    return MapDrive(letter, path.c_str()) == 1 && SetReceiveRoot(path.c_str()) == 1;
  });
}

/// Handles one event; an end when the transfer is over for this receiver.
std::optional<RoundEnd> Reception::Step(const InboxEvent& event) {
  if (event.kind == InboxEvent::Kind::Signal)
    return RoundEnd{.kind = RoundEnd::Kind::Interrupted, .signal = event.signal};
  if (event.kind != InboxEvent::Kind::Message) return std::nullopt;
  if (event.message == WM_TASK_INFO) return Begin();
  if (event.message != WM_TRANS_STATUS) return std::nullopt;
  const auto status = static_cast<uint32_t>(event.wParam);
  const bool ofOneFile = status == QUORL_STATUS_FILE_UNWRITABLE || status == QUORL_STATUS_PATH_TOO_LONG;
  if (ofOneFile && State().failedFiles > 0) {
    announcement.NoteFailedFile(status);
    return std::nullopt;
  }
  const bool stopped = status == QUORL_STATUS_DONE && event.lParam == 0;
  // The stop of somebody else's transfer, or of the one before.
  if (stopped && !announced) return std::nullopt;
  return RoundEnd{.stopped = stopped, .status = status, .suggestedPath = event.text};
}

/// By this machine, of any program; it grows.
uint64_t Reception::FragmentsRefused() {
  const auto reassembly = ReadReassembly();
  return reassembly ? reassembly->refused : 0;
}

/// Datagrams that this receiver's buffers had no room for, and fragments that the system's memory had none for.
uint64_t Reception::Overflows() {
  return Counted("receiver.socket_overflows") + FragmentsRefused();
}

/// The blocks that are still to come have to have room there.
RoomOnDisk Reception::LookAtDisk(const QuorlReceiveState& state) {
  const uint64_t most = state.blocksMissing * BLOCK_SIZE;
  const uint64_t bytes = announcement.Bytes(state);
  const uint64_t known = bytes - std::min(bytes, state.bytesStored);
  return {bytes == 0 ? most : std::min(most, known), staging.Target().FreeBytes(), state.files,
          staging.Target().FreeNames()};
}

/// While everything goes well the receiver stays open: its sender is still to hear what became of it.
RoundEnd Reception::Ended(RoundEnd end) {
  end.announced = announced;
  end.announcements = announcements;
  end.state = State();
  const auto patience = Clock::now() + LAST_WORDS;
  const bool mayLearnWhy =
      announced && !end.isForOthers && !end.isTooLate && end.kind == RoundEnd::Kind::Over && !end.IsComplete();
  do TakeWords();
  while (mayLearnWhy && State().senderCapabilities != 0 && changed.empty() && Clock::now() < patience &&
         (end.signal = inbox.SignalWithin(20ms)) == 0);
  if (end.kind == RoundEnd::Kind::Over && end.signal != 0) end.kind = RoundEnd::Kind::Interrupted;
  end.changed = changed;
  end.about = about;
  end.digests = std::move(digests);
  end.state = State();
  end.room = LookAtDisk(end.state);
  announcement.SayFailedFiles();
  const bool isContents = !about || about->purpose == About::Purpose::Contents;
  if (announced && !announcement.IsSaid() && isContents && !end.isForOthers && !end.isTooLate)
    announcement.Say(end.state);
  if (announced) end.elapsed = Clock::now() - started;
  end.strangers = Counted("receiver.dropped.stranger");
  end.overflows = Counted("receiver.socket_overflows");
  end.fragments = announced ? FragmentsRefused() - fragmentsBefore : 0;
  if (!end.IsComplete()) {
    DeInitClient();
    end.stored = StoredBlocks();
  }
  announced = false;
  return end;
}

int Reception::Conclude(const Letter& letter) {
  if ((State().senderCapabilities & TELLS_VERDICT) != 0) Say(letter);
  const auto patience = Clock::now() + LONGEST_CONCLUSION;
  int signal = 0;
  while (GetLettersOnTheirWay() > 0 && Clock::now() < patience && signal == 0) {
    signal = inbox.SignalWithin(10ms);
    tick();
  }
  DeInitClient();
  return signal;
}

void Reception::TakeWords() {
  while (const auto word = NextWord()) {
    if (const auto* transfer = std::get_if<About>(&*word)) next = *transfer;
    if (const auto* running = std::get_if<RunningDigests>(&*word)) {
      for (const RunningDigests::One& one : running->digests)
        if (digests.size() < State().files) digests[one.file] = one.digest;
    }
    if (std::holds_alternative<Over>(*word)) over = Clock::now();
    if (const auto* one = std::get_if<Changed>(&*word); one && changed.size() < MOST_CHANGED)
      changed.push_back(one->name);
  }
}

void Reception::SayOtherTransfer(const QuorlReceiveState& state) {
  if (otherSaid || state.underWay == 0) return;
  otherSaid = true;
  const std::string sender = FormatAddress(state.otherSender);
  const uint32_t percent = std::min(Percent(state.underWaySent, state.underWayTotal), 99u);
  reporter.Say(Fact("under_way").Add("sender", sender).Add("percent", percent),
               fmt::format("A transfer from {} is under way ({} %); waiting for the next one", sender, percent));
}

/// An end when this receiver has no part in it.
std::optional<RoundEnd> Reception::Begin() {
  TakeWords();
  about = std::exchange(next, std::nullopt);
  staging.Begin();
  UseNextStaging();
  announced = true;
  ++announcements;
  announcement.Begin(about);
  changed.clear();
  over.reset();
  digests.clear();
  fragmentsBefore = FragmentsRefused();
  intake.Begin(Overflows());
  started = Clock::now();
  view = ReceiveView(started);
  if (!about) return std::nullopt;
  const auto& meant = about->onlyFor;
  const bool isForUs = meant.empty() || std::find(meant.begin(), meant.end(), venue.interface.address) != meant.end();
  if (!isForUs) return RoundEnd{.isForOthers = true};
  const bool isContents = about->purpose == About::Purpose::Contents;
  // What others had already is not streamed.
  if (isContents && about->round != 0 && about->round != agreed) return RoundEnd{.isTooLate = true};
  return std::nullopt;
}

}  // namespace quorl::cli
