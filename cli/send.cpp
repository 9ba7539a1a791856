// `quorl send`: survey, collect, send, follow, tell. Everything runs on the main thread; the library's threads speak
// through the inbox.
#include "cli/send.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/escape.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/progress.h"
#include "cli/selection.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t TARGET_IS_A_PATH = 0xFFFFFFFF;
constexpr size_t MOST_RECEIVERS = 200;
constexpr size_t MOST_SHOWN = 5;

struct Ending {
  uint32_t status = 0;
  int signal = 0;
};

class Sending {
 public:
  Sending(const Options& options, Reporter& reporter)
      : options(options),
        reporter(reporter),
        selection(SurveySelection(options.send.paths, options.send.subdirectories)),
        network(ResolveNetwork(options.network)) {}
  ~Sending() { DeInitServer(); }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  int Run() {
    SayPlan();
    SetProfile(1);
    SetSendRate(options.send.rate);
    if (int signal = Collect()) return 128 + signal;
    Select();
    started = Clock::now();
    StartSend();
    Ending ending = Follow();
    return Finish(ending);
  }

 private:
  void SayPlan() {
    SayNetwork(reporter, network);
    reporter.Say(
        fmt::format("Selection  {} in {}, {}", Count(selection.files, "file"),
                    selection.directories == 1 ? "1 directory" : fmt::format("{} directories", selection.directories),
                    FormatBytes(selection.bytes)));
    reporter.Say(fmt::format("Rate       {}{}", FormatLinkRate(options.send.rate), EstimatedTime()));
    SayRemarks("left out", selection.leftOut);
    SayRemarks("renamed", selection.renamed);
  }

  std::string EstimatedTime() const {
    if (options.send.rate == 0) return "";
    std::chrono::duration<double> stream(static_cast<double>(selection.bytes) * 8 / (options.send.rate * 1000.0));
    return fmt::format(", about {} and what repairs take",
                       FormatDuration(std::chrono::duration_cast<std::chrono::nanoseconds>(stream)));
  }

  void SayRemarks(const char* title, const std::vector<Remark>& remarks) {
    for (size_t i = 0; i < std::min(remarks.size(), MOST_SHOWN); ++i) {
      reporter.Warn(fmt::format("  {}: \"{}\", {}", title, Escape(remarks[i].path), remarks[i].why));
    }
    if (remarks.size() > MOST_SHOWN) reporter.Warn(fmt::format("  ... and {} more", remarks.size() - MOST_SHOWN));
  }

  /// Asks until enough receivers have answered. Returns the signal that ended it, or 0.
  int Collect() {
    auto deadline = Clock::now() + (options.send.wait.count() >= 0 ? options.send.wait
                                    : options.send.waitFor > 0     ? 30s
                                                                   : 0s);
    uint32_t asked = 0;
    uint32_t known = 0;
    while (true) {
      if (InitServer(inbox.Window(), network.group, network.port, network.interface.address) == 0) throw SetUpFailure();
      ++asked;
      uint32_t found = GetReceivers(nullptr, 0);
      if (found >= std::max(options.send.waitFor, 1u)) break;
      if (Clock::now() >= deadline) throw NobodyFailure(found, asked);
      if (found != known || asked == 1) {
        reporter.Say(fmt::format("Waiting    {} of {} there", found, Count(options.send.waitFor, "receiver")));
        known = found;
      }
      Event event = inbox.Next(0ms);
      DeInitServer();
      if (event.kind == Event::Kind::Signal) return event.signal;
    }
    std::vector<uint32_t> addresses(MOST_RECEIVERS);
    addresses.resize(std::min<size_t>(GetReceivers(addresses.data(), MOST_RECEIVERS), MOST_RECEIVERS));
    std::string list;
    for (uint32_t address : addresses) list += "  " + FormatAddress(address);
    reporter.Say(fmt::format("Receivers  {}:{}", addresses.size(), list));
    return 0;
  }

  Failure SetUpFailure() {
    Event event = inbox.Next(300ms);
    if (event.kind == Event::Kind::Message && event.message == WM_TRANS_STATUS &&
        event.wParam == QUORL_STATUS_GROUP_BUSY) {
      return {Exit::GroupBusy,
              fmt::format("another sender is active on {}", network.GroupText()),
              "one group carries one transfer at a time",
              {"Wait for its end, or use another --port on both sides."}};
    }
    return {Exit::Other,
            fmt::format("no sender could be set up on {} through {}", network.GroupText(), network.InterfaceText()),
            "a socket could not be opened, or nothing could be sent",
            {"Another program may hold the ports; another --port or --interface may help."}};
  }

  Failure NobodyFailure(uint32_t found, uint32_t asked) {
    std::string next =
        "Is \"quorl receive\" running on the other machines, in the same network?\n"
        "  Firewalls must let UDP " +
        std::to_string(network.port) + " in on receivers and UDP " + std::to_string(network.port + 2) +
        " in on this machine.";
    if (found > 0)
      next += fmt::format("\n  Nothing has been sent. To send to those who answered: --wait-for {}", found);
    if (!network.interface.others.empty()) {
      next += fmt::format("\n  This machine also has {}; to use another: --interface NAME",
                          fmt::join(network.interface.others, " and "));
    }
    return {Exit::Nobody,
            found == 0 ? "no receiver answered"
                       : fmt::format("only {} of {} answered", found, Count(options.send.waitFor, "receiver")),
            fmt::format("{} was asked {} through {}", network.GroupText(), Count(uint64_t{3} * asked, "time"),
                        network.InterfaceText()),
            {next}};
  }

  void Select() {
    for (const DriveMapping& drive : selection.drives) {
      if (MapDrive(drive.letter, drive.directory.c_str()) == 0) {
        throw Failure{Exit::LocalFiles,
                      fmt::format("\"{}\" cannot be used", Escape(drive.directory)),
                      "it is no directory any more",
                      {"Nothing has been sent."}};
      }
    }
    SetSubDirTrans(options.send.subdirectories ? 1 : 0);
    SetTargetPath(options.send.target.empty() ? 0 : TARGET_IS_A_PATH, options.send.target.c_str());
    std::vector<const char*> paths;
    for (const std::string& path : selection.paths) paths.push_back(path.c_str());
    int32_t result = SetSelectFiles(paths.data(), static_cast<uint32_t>(paths.size()), options.send.openName.c_str());
    if (result == 7) {
      if (selection.leftOut.empty()) reporter.Warn("  left out: at least one file whose name cannot travel");
      if (!options.send.openName.empty()) reporter.Warn("  --open-name has no effect when a name cannot travel");
      leftOut = true;
    } else if (result != 1) {
      throw Failure{Exit::Other,
                    "the selection was refused",
                    fmt::format("result {} of the library", result),
                    {"Nothing has been sent."}};
    }
  }

  /// Until the transfer is over: by a status, by a signal, or because its announcement could not be sent.
  Ending Follow() {
    bool announced = false;
    while (true) {
      Event event = inbox.Next(100ms);
      if (event.kind == Event::Kind::Signal) return Stop(event.signal);
      if (event.kind == Event::Kind::Message && event.message == WM_TASK_INFO) announced = true;
      if (event.kind == Event::Kind::Message && event.message == WM_CLIENT_ERR) SayReceiverError(event);
      if (event.kind == Event::Kind::Message && event.message == WM_TRANS_STATUS) return {LastStatus(event), 0};
      if (!announced && Clock::now() - started > 2s) {
        throw Failure{Exit::Other, "the transfer could not be announced", "the network refused to send", {}};
      }
      if (reporter.WantsProgress()) ShowProgress();
    }
  }

  /// A stop with a reason comes as two messages, 0 and then the reason.
  uint32_t LastStatus(const Event& first) {
    auto status = static_cast<uint32_t>(first.wParam);
    auto deadline = Clock::now() + 300ms;
    while (status == 0 && Clock::now() < deadline) {
      Event event = inbox.Next(50ms);
      if (event.kind == Event::Kind::Message && event.message == WM_TRANS_STATUS)
        status = static_cast<uint32_t>(event.wParam);
      if (event.kind == Event::Kind::Message && event.message == WM_CLIENT_ERR) SayReceiverError(event);
    }
    return status;
  }

  Ending Stop(int signal) {
    reporter.ClearProgress();
    reporter.Say("Stopping   the receivers are told");
    StopSend();
    auto deadline = Clock::now() + 2s;
    while (Clock::now() < deadline && SendState().phase != QUORL_PHASE_OVER) inbox.Next(50ms);
    return {0, signal};
  }

  void SayReceiverError(const Event& event) {
    auto status = static_cast<uint32_t>(event.wParam);
    reporter.Say(fmt::format("  {} {} (status {})", FormatAddress(static_cast<uint32_t>(event.lParam)),
                             StatusInWords(status), status));
  }

  void ShowProgress() {
    QuorlSendState state = SendState();
    double share =
        state.blocksTotal == 0 ? 0 : static_cast<double>(state.blocksSent) / static_cast<double>(state.blocksTotal);
    meter.Add(Clock::now(), static_cast<uint64_t>(share * static_cast<double>(selection.bytes)));
    auto rows = Rows();
    auto complete =
        std::count_if(rows.begin(), rows.end(), [](const auto& row) { return row.state == QUORL_RECEIVER_COMPLETE; });
    std::string rate = FormatRate(meter.PerSecond());
    std::string percent = fmt::format("{} %", Percent(state.blocksSent, state.blocksTotal));
    std::string there = fmt::format("{} of {} complete", complete, Count(rows.size(), "receiver"));
    reporter.Progress({{BarLine("Sending", share, {percent, rate, there}, reporter.Width())}, percent + "  " + there});
  }

  int Finish(const Ending& ending) {
    auto elapsed = Clock::now() - started;
    auto rows = Rows();
    for (const QuorlReceiverState& row : rows) SayRow(row);
    auto complete =
        std::count_if(rows.begin(), rows.end(), [](const auto& row) { return row.state == QUORL_RECEIVER_COMPLETE; });
    QuorlSendState state = SendState();
    double seconds = std::chrono::duration<double>(elapsed).count();
    reporter.Say(fmt::format("{} in {}: {} of {} complete, {}, {} on average, {} sent again",
                             ending.signal != 0   ? "Stopped"
                             : ending.status != 0 ? "Ended"
                                                  : "Done",
                             FormatDuration(elapsed), complete, Count(rows.size(), "receiver"),
                             FormatBytes(selection.bytes), FormatRate(static_cast<double>(selection.bytes) / seconds),
                             Count(state.blocksResent, "block")));
    if (state.shrunkFiles != 0) {
      reporter.Warn(fmt::format("warning: {} became shorter while being sent; no receiver has them whole",
                                Count(state.shrunkFiles, "file")));
    }
    if (ending.status != 0) {
      reporter.Complain({Exit::Other,
                         "the transfer was ended before everyone was complete",
                         fmt::format("{} (status {})", StatusInWords(ending.status), ending.status),
                         {}});
    }
    if (ending.signal != 0) return 128 + ending.signal;
    bool partly = leftOut || !selection.leftOut.empty() || state.shrunkFiles != 0;
    return static_cast<int>(SenderExit(ending.status, rows, partly));
  }

  void SayRow(const QuorlReceiverState& row) {
    std::string end = "not complete";
    if (row.state == QUORL_RECEIVER_COMPLETE)
      end = row.missing == 0 ? "complete" : fmt::format("complete, {} repaired", Count(row.missing, "block"));
    if (row.state == QUORL_RECEIVER_FAILED)
      end = fmt::format("failed: {} (status {})", StatusInWords(row.status), row.status);
    reporter.Say(fmt::format("  {:<15}  {}", FormatAddress(row.address), end));
  }

  static QuorlSendState SendState() {
    QuorlSendState state{};
    GetSendState(&state);
    return state;
  }

  static std::vector<QuorlReceiverState> Rows() {
    std::vector<QuorlReceiverState> rows(MOST_RECEIVERS);
    rows.resize(std::min<size_t>(GetReceiverStates(rows.data(), MOST_RECEIVERS), MOST_RECEIVERS));
    return rows;
  }

  const Options& options;
  Reporter& reporter;
  Inbox inbox;
  Selection selection;
  Network network;
  RateMeter meter;
  Clock::time_point started;
  bool leftOut = false;
};

}  // namespace

int RunSend(const Options& options, Reporter& reporter) {
  return Sending(options, reporter).Run();
}

}  // namespace quorl::cli
