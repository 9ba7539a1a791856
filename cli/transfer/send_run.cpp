// One transfer of a sender, on the main thread: the library's threads do the work and speak through the inbox.
#include "cli/transfer/send_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "cli/outcome/exits.h"
#include "cli/room/library_state.h"
#include "cli/room/listeners.h"
#include "cli/show/escape.h"
#include "cli/show/sent.h"
#include "cli/show/units.h"
#include "cli/talk/messages.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto BETWEEN_DIGESTS = 100ms;

}  // namespace

/// What is left out of the stream is no part of what is to be done.
QuorlSendState SendRun::State() const {
  QuorlSendState state = SendStateNow();
  state.blocksTotal -= std::min(state.blocksTotal, job.skipped);
  return state;
}

/// Those that it is for. Who came while it was being agreed on, and left since it came too late for it, is no part of
/// it.
std::vector<QuorlReceiverState> SendRun::Rows() const {
  auto rows = RowsNow();
  std::erase_if(rows, [this](const QuorlReceiverState& row) {
    return !IsFor(row.address, job.only) || (row.status == QUORL_STATUS_LEFT && !present.contains(row.address));
  });
  return rows;
}

SendEnd SendRun::Run() {
  started = Clock::now();
  for (const QuorlReceiverState& row : RowsNow()) present.insert(row.address);
  StartSend();
  Follow();
  reporter.ClearProgress();
  // At once: a receiver that has been told to stop does not listen for long.
  NoteChanges();
  if (end.streaming.count() == 0) end.streaming = Clock::now() - started;
  end.rows = Rows();
  end.state = State();
  end.filesChanged = !changed.empty();
  Say(Over{});
  if (end.signal == 0) verdicts.Await(end, job.only);
  if (end.filesChanged) {
    for (const QuorlReceiverState& row : end.rows) {
      if (row.state != QUORL_RECEIVER_COMPLETE && row.status != QUORL_STATUS_LEFT)
        end.reasons.emplace(row.address, "lacks what changed on this machine while it was sent");
    }
  }
  return std::move(end);
}

/// Until the transfer is over: by a status, by a signal, or because its announcement could not be sent.
void SendRun::Follow() {
  while (true) {
    InboxEvent event = inbox.Next(100ms);
    if (event.kind == InboxEvent::Kind::Signal) return Stop(event.signal);
    if (Take(event)) return;
    if (!announced && Clock::now() - started > 2s) {
      throw Failure{Exit::Other,
                    "the transfer could not be announced",
                    "the network refused to send",
                    {"\"quorl doctor\" checks this machine."}};
    }
    NotePhase();
    SayDigests();
    KeepRate();
    if (announced && reporter.WantsProgress()) ShowProgress();
  }
}

/// Whether it was the end.
bool SendRun::Take(const InboxEvent& event) {
  if (event.kind == InboxEvent::Kind::File) SayFile(event.text);
  if (event.kind != InboxEvent::Kind::Message) return false;
  if (event.message == WM_TASK_INFO) announced = true;
  if (event.message == WM_CLIENT_ERR) SayReceiverError(event);
  if (event.message != WM_TRANS_STATUS) return false;
  end.status = static_cast<uint32_t>(event.wParam);
  TakeLastStatus();
  return true;
}

/// A stop with a reason comes as two messages, 0 and then the reason. When everybody has everything there is none.
void SendRun::TakeLastStatus() {
  const auto rows = RowsNow();
  const auto isComplete = [](const auto& row) { return row.state == QUORL_RECEIVER_COMPLETE; };
  if (!rows.empty() && std::all_of(rows.begin(), rows.end(), isComplete)) return;
  auto deadline = Clock::now() + 300ms;
  while (end.status == 0 && Clock::now() < deadline) {
    InboxEvent event = inbox.Next(50ms);
    if (event.kind == InboxEvent::Kind::File) SayFile(event.text);
    if (event.kind != InboxEvent::Kind::Message) continue;
    if (event.message == WM_TRANS_STATUS) end.status = static_cast<uint32_t>(event.wParam);
    if (event.message == WM_CLIENT_ERR) SayReceiverError(event);
  }
}

void SendRun::Stop(int signal) {
  end.signal = signal;
  reporter.Say(Fact("stopping").Add("signal", signal), "Stopping   the receivers are told (again: leave at once)");
  StopSend();
  auto deadline = Clock::now() + 2s;
  while (Clock::now() < deadline && State().phase != QUORL_PHASE_OVER) inbox.Next(50ms);
}

void SendRun::NotePhase() {
  QuorlSendState state = State();
  if (state.phase > QUORL_PHASE_STREAMING && end.streaming.count() == 0) end.streaming = Clock::now() - started;
  if (state.phase != phase) {
    if (phase == QUORL_PHASE_STREAMING) NoteChanges();
    phase = state.phase;
    const char* text = phase == QUORL_PHASE_STREAMING   ? "every block travels once"
                       : phase == QUORL_PHASE_FINISHING ? "the receivers count what they miss"
                       : phase == QUORL_PHASE_REPAIRING ? "missing blocks travel again"
                                                        : "the transfer is over";
    reporter.Say(Level::Protocol, Fact("phase").Add("text", text), fmt::format("  phase: {}", text));
  }
  if (phase != QUORL_PHASE_REPAIRING) return;
  const auto rows = Rows();
  NoteSilence(rows);
  for (const QuorlReceiverState& row : rows) {
    if (row.state != QUORL_RECEIVER_MASTER || row.address == master) continue;
    master = row.address;
    reporter.Say(Level::Protocol,
                 Fact("repair").Add("address", FormatAddress(row.address)).Add("blocks_missing", row.missing),
                 fmt::format("  repair: {} missed {}", names.Label(row.address), Count(row.missing, "block")));
  }
}

/// Says which files are not what they were when the transfer began, to people and to receivers.
void SendRun::NoteChanges() {
  for (const Remark& change : job.watch.Changes()) {
    if (!changed.insert(change.path).second) continue;
    reporter.Warn(Fact("changed").Add("path", change.path).Add("reason", change.why),
                  fmt::format("\"{}\" {}", Escape(change.path), change.why));
    Say(Changed{change.path});
  }
}

/// Goes by what the receivers say of the stream.
void SendRun::KeepRate() {
  if (job.rate == nullptr || phase != QUORL_PHASE_STREAMING) return;
  while (auto heard = NextLetter()) {
    if (const auto* intake = std::get_if<Intake>(&heard->letter)) {
      if (IsFor(heard->address, job.only)) job.rate->Take(heard->address, *intake);
    } else {
      verdicts.Hear(std::move(*heard));
    }
  }
  const uint32_t rate = job.rate->Rate(Clock::now(), State().blocksSent);
  if (rate == std::exchange(rateNow, rate)) return;
  SetSendRate(rate);
  reporter.Say(Level::Protocol, Fact("rate").Add("rate_bits", uint64_t{rate} * 1000),
               fmt::format("  rate: {}", FormatLinkRate(rate)));
}

/// Digests of files that are out, so that what has arrived can be checked also when the end never comes. A word takes
/// its time; of very many files not all are told of.
void SendRun::SayDigests() {
  if (job.digests == nullptr || Clock::now() - digestsSaid < BETWEEN_DIGESTS) return;
  RunningDigests word{job.digests->TakeNews()};
  if (word.digests.empty()) return;
  Say(word);
  digestsSaid = Clock::now();
}

/// Once for each: it may be heard again later.
void SendRun::NoteSilence(const std::vector<QuorlReceiverState>& rows) {
  for (QuorlReceiverState row : rows) {
    if (row.state != QUORL_RECEIVER_SILENT || !silent.insert(row.address).second) continue;
    reporter.Say(RowFact(row, names), fmt::format("{} {}", names.Label(row.address), RowInWords(row)));
  }
}

void SendRun::SayReceiverError(const InboxEvent& event) {
  const auto address = static_cast<uint32_t>(event.lParam);
  if (!IsFor(address, job.only) || (event.wParam == QUORL_STATUS_LEFT && !present.contains(address))) return;
  QuorlReceiverState row{
      .address = address, .state = QUORL_RECEIVER_FAILED, .status = static_cast<uint32_t>(event.wParam)};
  reporter.Say(RowFact(row, names), fmt::format("{} failed: {}", names.Label(row.address), RowInWords(row)));
}

void SendRun::SayFile(const std::string& name) {
  reporter.Say(Level::Files, Fact("file").Add("name", LocalName(name)), "  " + ShownName(name, name.size() * 4));
}

void SendRun::ShowProgress() {
  const auto rows = Rows();
  reporter.Progress(
      view.Show({Clock::now(), State(), rows, inbox.CurrentFile(), inbox.FilesBefore()}, reporter.Width()));
}

}  // namespace quorl::cli
