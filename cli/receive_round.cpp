// One transfer on the receiving side, as far as it concerns the library: listen, follow, hear the end.
#include "cli/receive_round.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "cli/escape.h"
#include "cli/manifest.h"
#include "cli/outcome.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// The first file tells whether there is a manifest, which is not counted among the files. It is on its way.
constexpr auto FIRST_BLOCK_LIMIT = 1s;

// The staging directory stands behind a drive letter, so that its own path takes nothing from the 260 characters that
// a received path may have. Letters in turn: the next transfer is prepared while the last one may be written.
constexpr std::string_view DRIVES = "RSTUVWXY";

QuorlReceiveState State() {
  QuorlReceiveState state{};
  GetReceiveState(&state);
  return state;
}

uint64_t Counted(std::string_view name) {
  std::vector<QuorlCounter> counters(GetCounters(nullptr, 0));
  GetCounters(counters.data(), static_cast<uint32_t>(counters.size()));
  const auto found =
      std::find_if(counters.begin(), counters.end(), [name](const auto& counter) { return counter.name == name; });
  return found == counters.end() ? 0 : found->value;
}

const char* PhaseName(const QuorlReceiveState& state) {
  return state.phase == QUORL_PHASE_REPAIRING ? "repairing" : "receiving";
}

}  // namespace

bool RoundEnd::IsComplete() const {
  return kind == Kind::Over && !stopped && status == 0 && ReceiverExit(state) == Exit::Complete;
}

Reception::Reception(const ReceiveOptions& options, Reporter& reporter, Inbox& inbox, const Network& network,
                     Staging& staging, std::function<void()> tick)
    : options(options), reporter(reporter), inbox(inbox), network(network), staging(staging), tick(std::move(tick)) {}

Reception::~Reception() {
  DeInitClient();
}

RoundEnd Reception::Run() {
  if (!Open()) return {.kind = RoundEnd::Kind::Deaf};
  waitingSince = Clock::now();
  while (true) {
    if (auto end = Step(inbox.Next(100ms))) return Ended(*end);
    tick();
    const bool patient = announced || options.timeout == 0s || Clock::now() - waitingSince < options.timeout;
    if (!patient) return Ended({.kind = RoundEnd::Kind::TimedOut});
    if (!announced) continue;
    const QuorlReceiveState state = State();
    if (!said && (state.blocksStored > 0 || Clock::now() - started > FIRST_BLOCK_LIMIT)) SayTask(state);
    if (said && reporter.WantsProgress()) ShowProgress(state);
  }
}

bool Reception::Open() {
  inbox.Renew();
  SetProfile(1);
  SetSender(options.from);
  UseNextStaging();
  if (InitClient(inbox.Window(), network.group, network.port, network.interface.address) == 0) return false;
  StartReceive();
  return true;
}

void Reception::UseNextStaging() {
  staging.Prepare([letter = DRIVES[staging.Prepared() % DRIVES.size()]](const std::string& path) {
    return MapDrive(letter, path.c_str()) == 1 && SetReceiveRoot(path.c_str()) == 1;
  });
}

/// Handles one event; an end when the transfer is over for this receiver.
std::optional<RoundEnd> Reception::Step(const Event& event) {
  if (event.kind == Event::Kind::Signal) return RoundEnd{.kind = RoundEnd::Kind::Interrupted, .signal = event.signal};
  if (event.kind != Event::Kind::Message) return std::nullopt;
  if (event.message == WM_TASK_INFO) Begin();
  if (event.message != WM_TRANS_STATUS) return std::nullopt;
  const auto status = static_cast<uint32_t>(event.wParam);
  const bool ofOneFile = status == QUORL_STATUS_FILE_UNWRITABLE || status == QUORL_STATUS_PATH_TOO_LONG;
  if (ofOneFile && State().failedFiles > 0) {
    Fact fact("file_failed");
    reporter.Warn(fact.Add("status", status).Add("reason", StatusInWords(status)),
                  fmt::format("{} (status {}); the other files go on", StatusInWords(status), status));
    return std::nullopt;
  }
  const bool stopped = status == QUORL_STATUS_DONE && event.lParam == 0;
  // The stop of somebody else's transfer, or of the one before.
  if (stopped && !announced) return std::nullopt;
  return RoundEnd{.stopped = stopped, .status = status, .suggestedPath = event.text};
}

RoundEnd Reception::Ended(RoundEnd end) {
  end.announced = announced;
  end.state = State();
  if (announced && !said) SayTask(end.state);
  if (announced) end.elapsed = Clock::now() - started;
  end.strangers = Counted("receiver.dropped.stranger");
  end.overflows = Counted("receiver.socket_overflows");
  DeInitClient();
  return end;
}

void Reception::Begin() {
  staging.Begin();
  UseNextStaging();
  announced = true;
  said = false;
  mostMissing = 0;
  meter = RateMeter();
  started = Clock::now();
}

void Reception::SayTask(const QuorlReceiveState& state) {
  said = true;
  const uint32_t files = state.files - (state.files > 0 && staging.Holds(std::string(MANIFEST_NAME)) ? 1 : 0);
  const uint64_t bytes = state.blocksExpected * BLOCK_SIZE;
  const uint64_t free = staging.FreeBytes();
  Fact fact("transfer");
  fact.Add("sender", FormatAddress(state.senderAddress)).Add("files", files).Add("blocks", state.blocksExpected);
  fact.Add("bytes_at_most", bytes).Add("directory", staging.Directory()).Add("bytes_free", free);
  reporter.Say(
      fact, fmt::format("From {}: {}, {} into {}   ({} free)", FormatAddress(state.senderAddress), Count(files, "file"),
                        FormatBytes(bytes), Escape(staging.Directory()), FormatBytes(free)));
  const std::string target = state.askedTarget;
  if (target.empty()) return;
  reporter.Say(Fact("target_ignored").Add("target", target),
               fmt::format("The sender asked for its own folder \"{}\"; ignored, {} is in force.", Escape(target),
                           Escape(staging.Directory())));
}

void Reception::ShowProgress(const QuorlReceiveState& state) {
  const uint64_t bytes = state.blocksExpected * BLOCK_SIZE;
  const uint64_t stored = state.blocksStored * BLOCK_SIZE;
  meter.Add(Clock::now(), stored);
  const bool repairing = state.phase == QUORL_PHASE_REPAIRING;
  if (repairing) mostMissing = std::max(mostMissing, state.blocksMissing);
  const std::string percent = fmt::format("{:3} %", Percent(state.blocksStored, state.blocksExpected));
  const std::string left = fmt::format("{} of {} left", state.blocksMissing, Count(mostMissing, "block"));
  const auto time = meter.TimeFor(bytes - std::min(stored, bytes));
  std::vector<std::string> parts{percent, FormatPart(stored, bytes), FormatRate(meter.PerSecond())};
  if (time) parts.push_back(FormatLeft(*time));

  ProgressView view;
  view.lines.push_back(BarLine(repairing ? "Repairing" : "Receiving",
                               static_cast<double>(state.blocksStored) / static_cast<double>(state.blocksExpected),
                               parts, reporter.Width()));
  view.lines.push_back(
      BelowBar({repairing ? left : ShownName(state.currentFile, reporter.Width() / 2)}, reporter.Width()));
  view.plain = fmt::format("{}{}", fmt::join(parts, "  "), repairing ? "  " + left : "");
  view.fact.Add("phase", PhaseName(state)).Add("blocks_stored", state.blocksStored);
  view.fact.Add("blocks_expected", state.blocksExpected).Add("blocks_missing", state.blocksMissing);
  view.fact.Add("bytes_per_second", static_cast<uint64_t>(meter.PerSecond())).Add("file", state.currentFile);
  reporter.Progress(view);
}

}  // namespace quorl::cli
