// `quorl receive`: one transfer into one directory.
#include "cli/receive.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "cli/escape.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/progress.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint64_t BLOCK_SIZE = 4254;

std::string UsableDirectory(const std::string& text) {
  std::error_code error;
  std::filesystem::path directory = std::filesystem::canonical(text, error);
  std::string why = error ? error.message() : "";
  if (!error && !std::filesystem::is_directory(directory, error)) why = "Not a directory";
  if (why.empty() && access(directory.c_str(), W_OK | X_OK) != 0) why = std::strerror(errno);
  if (!why.empty()) {
    throw Failure{Exit::LocalFiles,
                  fmt::format("nothing can be received into \"{}\"", Escape(text)),
                  why,
                  {"Name a directory that exists and can be written."}};
  }
  return directory.native();
}

class Receiving {
 public:
  Receiving(const Options& options, Reporter& reporter)
      : options(options),
        reporter(reporter),
        directory(UsableDirectory(options.receive.directory.empty() ? "." : options.receive.directory)),
        network(ResolveNetwork(options.network)) {}
  ~Receiving() { DeInitClient(); }
  Receiving(const Receiving&) = delete;
  Receiving& operator=(const Receiving&) = delete;

  int Run() {
    SetProfile(1);
    if (SetReceiveRoot(directory.c_str()) == 0) {
      throw Failure{Exit::LocalFiles,
                    fmt::format("nothing can be received into \"{}\"", Escape(directory)),
                    "it is no directory any more",
                    {}};
    }
    if (InitClient(inbox.Window(), network.group, network.port, network.interface.address) == 0) {
      throw Failure{Exit::Other,
                    fmt::format("cannot listen on {} through {}", network.GroupText(), network.InterfaceText()),
                    "a socket could not be opened",
                    {"Another program may hold the port; another --port or --interface may help."}};
    }
    StartReceive();
    SayNetwork(reporter, network);
    reporter.Say(fmt::format("Waiting for a sender on {}, to receive into {}   (Ctrl-C to stop)", network.GroupText(),
                             Escape(directory)));
    waitingSince = Clock::now();
    while (true) {
      if (auto code = Step(inbox.Next(100ms))) return *code;
      if (reporter.WantsProgress() && announced) ShowProgress();
      if (!announced && options.receive.timeout > 0s && Clock::now() - waitingSince >= options.receive.timeout) {
        throw Failure{
            Exit::Nobody,
            fmt::format("no sender came within {}", FormatDuration(options.receive.timeout)),
            fmt::format("nothing was announced on {} through {}", network.GroupText(), network.InterfaceText()),
            {"Is \"quorl send\" running in the same network, with the same group and port?"}};
      }
    }
  }

 private:
  /// Handles one event; an exit code when the transfer is over for this receiver.
  std::optional<int> Step(const Event& event) {
    if (event.kind == Event::Kind::Signal) return Interrupted(event.signal);
    if (event.kind != Event::Kind::Message) return std::nullopt;
    if (event.message == WM_TASK_INFO) SayTask(event);
    if (event.message != WM_TRANS_STATUS) return std::nullopt;
    auto status = static_cast<uint32_t>(event.wParam);
    // A file that cannot be written does not end the others; the end comes when the sender is through.
    if (status == QUORL_STATUS_FILE_UNWRITABLE) {
      reporter.Warn(fmt::format("error: {} (status {}); the other files go on", StatusInWords(status), status));
      return std::nullopt;
    }
    return Finish(event);
  }

  void SayTask(const Event& event) {
    announced = true;
    started = Clock::now();
    reporter.Say(fmt::format("From {}: {}, {}", FormatAddress(State().senderAddress), Count(event.wParam, "file"),
                             Count(static_cast<uint64_t>(event.lParam), "block")));
  }

  int Interrupted(int signal) {
    reporter.Say(announced ? fmt::format("Stopped: {}", Stored(State())) : "Stopped: no transfer had started");
    return 128 + signal;
  }

  int Finish(const Event& event) {
    auto status = static_cast<uint32_t>(event.wParam);
    QuorlReceiveState state = State();
    bool stopped = status == 0 && event.lParam == 0;
    bool complete = !stopped && status == 0 && ReceiverExit(state) == Exit::Complete;
    if (complete) {
      reporter.Say(fmt::format("Complete: {}, {}, in {}, nothing missing", Count(state.files, "file"),
                               Count(state.blocksStored, "block"), FormatDuration(Clock::now() - started)));
      if (!event.text.empty())
        reporter.Say(fmt::format("The sender suggests to open \"{}\"; not opened", Escape(event.text)));
      return 0;
    }
    if (state.status == 0) state.status = status;
    std::string why = stopped             ? "the sender stopped it"
                      : state.status != 0 ? fmt::format("{} (status {})", StatusInWords(state.status), state.status)
                                          : "the sender ended it before everything was here";
    reporter.Complain(
        {Exit::Other,
         announced ? fmt::format("the transfer is not complete, {}", Stored(state)) : "nothing was received",
         why,
         {"Start \"quorl receive\" again, then send again."}});
    return static_cast<int>(ReceiverExit(state) == Exit::Complete ? Exit::PeerLost : ReceiverExit(state));
  }

  static std::string Stored(const QuorlReceiveState& state) {
    return fmt::format("{} of {} stored", state.blocksStored, Count(state.blocksExpected, "block"));
  }

  void ShowProgress() {
    QuorlReceiveState state = State();
    meter.Add(Clock::now(), state.blocksStored * BLOCK_SIZE);
    double share =
        static_cast<double>(state.blocksStored) / static_cast<double>(std::max<uint64_t>(state.blocksExpected, 1));
    std::string percent = fmt::format("{} %", Percent(state.blocksStored, state.blocksExpected));
    std::string rate = FormatRate(meter.PerSecond());
    reporter.Progress({{BarLine("Receiving", share, {percent, rate}, reporter.Width()),
                        BelowBar({ShownName(inbox.CurrentFile(), 40)}, reporter.Width())},
                       fmt::format("{}  {}", percent, rate)});
  }

  static QuorlReceiveState State() {
    QuorlReceiveState state{};
    GetReceiveState(&state);
    return state;
  }

  const Options& options;
  Reporter& reporter;
  Inbox inbox;
  std::string directory;
  Network network;
  RateMeter meter;
  bool announced = false;
  Clock::time_point waitingSince;
  Clock::time_point started;
};

}  // namespace

int RunReceive(const Options& options, Reporter& reporter) {
  return Receiving(options, reporter).Run();
}

}  // namespace quorl::cli
