// One transfer of a sender, on the main thread: the library's threads do the work and speak through the inbox.
#include "cli/transfer.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/outcome.h"
#include "cli/progress.h"
#include "cli/room.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

QuorlSendState StateNow() {
  QuorlSendState state{};
  GetSendState(&state);
  return state;
}

std::vector<QuorlReceiverState> RowsNow() {
  std::vector<QuorlReceiverState> rows(MOST_RECEIVERS);
  rows.resize(std::min<size_t>(GetReceiverStates(rows.data(), MOST_RECEIVERS), MOST_RECEIVERS));
  return rows;
}

}  // namespace

TransferEnd Transfer::Run() {
  started = Clock::now();
  StartSend();
  Follow();
  reporter.ClearProgress();
  end.elapsed = Clock::now() - started;
  if (end.streaming.count() == 0) end.streaming = end.elapsed;
  end.rows = RowsNow();
  end.state = StateNow();
  return std::move(end);
}

/// Until the transfer is over: by a status, by a signal, or because its announcement could not be sent.
void Transfer::Follow() {
  while (true) {
    Event event = inbox.Next(100ms);
    if (event.kind == Event::Kind::Signal) return Stop(event.signal);
    if (Take(event)) return;
    if (!announced && Clock::now() - started > 2s) {
      throw Failure{Exit::Other,
                    "the transfer could not be announced",
                    "the network refused to send",
                    {"\"quorl doctor\" checks this machine."}};
    }
    NotePhase();
    if (announced && reporter.WantsProgress()) ShowProgress();
  }
}

/// Whether it was the end.
bool Transfer::Take(const Event& event) {
  if (event.kind == Event::Kind::File) SayFile(event.text);
  if (event.kind != Event::Kind::Message) return false;
  if (event.message == WM_TASK_INFO) announced = true;
  if (event.message == WM_CLIENT_ERR) SayReceiverError(event);
  if (event.message != WM_TRANS_STATUS) return false;
  end.status = static_cast<uint32_t>(event.wParam);
  TakeLastStatus();
  return true;
}

/// A stop with a reason comes as two messages, 0 and then the reason.
void Transfer::TakeLastStatus() {
  auto deadline = Clock::now() + 300ms;
  while (end.status == 0 && Clock::now() < deadline) {
    Event event = inbox.Next(50ms);
    if (event.kind == Event::Kind::File) SayFile(event.text);
    if (event.kind != Event::Kind::Message) continue;
    if (event.message == WM_TRANS_STATUS) end.status = static_cast<uint32_t>(event.wParam);
    if (event.message == WM_CLIENT_ERR) SayReceiverError(event);
  }
}

void Transfer::Stop(int signal) {
  end.signal = signal;
  reporter.Say(Fact("stopping").Add("signal", signal), "Stopping   the receivers are told (again: leave at once)");
  StopSend();
  auto deadline = Clock::now() + 2s;
  while (Clock::now() < deadline && StateNow().phase != QUORL_PHASE_OVER) inbox.Next(50ms);
}

void Transfer::NotePhase() {
  QuorlSendState state = StateNow();
  if (state.phase > QUORL_PHASE_STREAMING && end.streaming.count() == 0) end.streaming = Clock::now() - started;
  if (state.phase != phase) {
    phase = state.phase;
    const char* text = phase == QUORL_PHASE_STREAMING   ? "every block travels once"
                       : phase == QUORL_PHASE_FINISHING ? "the receivers count what they miss"
                       : phase == QUORL_PHASE_REPAIRING ? "missing blocks travel again"
                                                        : "the transfer is over";
    reporter.Say(Level::Protocol, Fact("phase").Add("text", text), fmt::format("  phase: {}", text));
  }
  if (phase != QUORL_PHASE_REPAIRING) return;
  for (const QuorlReceiverState& row : RowsNow()) {
    if (row.state != QUORL_RECEIVER_MASTER || row.address == master) continue;
    master = row.address;
    reporter.Say(Level::Protocol,
                 Fact("repair").Add("address", FormatAddress(row.address)).Add("blocks_missing", row.missing),
                 fmt::format("  repair: {} missed {}", names.Label(row.address), Count(row.missing, "block")));
  }
}

void Transfer::SayReceiverError(const Event& event) {
  QuorlReceiverState row{static_cast<uint32_t>(event.lParam), QUORL_RECEIVER_FAILED,
                         static_cast<uint32_t>(event.wParam), 0};
  reporter.Say(RowFact(row, names), fmt::format("{} failed: {}", names.Label(row.address), RowInWords(row)));
}

void Transfer::SayFile(const std::string& name) {
  reporter.Say(Level::Files, Fact("file").Add("name", LocalName(name)), "  " + ShownName(name, name.size() * 4));
}

void Transfer::ShowProgress() {
  auto rows = RowsNow();
  reporter.Progress(
      view.Show({Clock::now(), StateNow(), rows, inbox.CurrentFile(), inbox.FilesBefore()}, reporter.Width()));
}

}  // namespace quorl::cli
