// `quorl send`: survey, see who is there, ask, send, tell, and repeat for those that failed. Everything runs on the
// main thread.
#include "cli/send.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>

#include "cli/escape.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/room.h"
#include "cli/selection.h"
#include "cli/send_result.h"
#include "cli/terminal.h"
#include "cli/transfer.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t TARGET_IS_A_PATH = 0xFFFFFFFF;
constexpr size_t MOST_SHOWN = 5;
constexpr std::chrono::seconds DEFAULT_WAIT = 30s;
constexpr std::chrono::seconds LONG_TRANSFER = 120s;
constexpr size_t LINES_OF_RECEIVERS = 4;
constexpr int QUIT = 130;

/// Whether to begin is decided by a person, or by who is there.
bool MustAsk(const SendOptions& options) {
  return !options.yes && options.waitFor == 0 && options.only.empty() && !options.dryRun;
}

class Sending {
 public:
  Sending(const Options& options, Reporter& reporter)
      : options(options),
        send(options.send),
        reporter(reporter),
        inbox(options.output.verbosity > 0),
        selection(SurveySelection(send.paths, send.subdirectories)),
        network(ResolveNetwork(options.network)),
        room(network, inbox) {}

  int Run() {
    SayPlan();
    if (send.dryRun) return ListOnly();
    if (!send.failedTo.empty()) CheckFailedTo();
    SetProfile(1);
    SetSendRate(send.rate);
    if (int code = Gather()) return code;
    result.Begin();
    Attempt(send.only);
    for (uint32_t i = 0; i < send.retries && !result.WasStopped() && !result.Failed().empty(); ++i) {
      if (!GatherAgain(result.Failed())) break;
      Attempt(result.Failed());
    }
    return Finish();
  }

 private:
  void SayPlan() {
    SayNetwork(reporter, network);
    Fact fact("selection");
    fact.Add("files", selection.files.size()).Add("directories", selection.directories).Add("bytes", selection.bytes);
    fact.Add("blocks", selection.blocks).Add("skipped", selection.leftOut.size());
    std::string folders =
        selection.directories == 0 ? "" : fmt::format(" in {}", Count(selection.directories, "folder"));
    reporter.Say(fact, fmt::format("Selection  {}{}, {}", Count(selection.files.size(), "file"), folders,
                                   FormatBytes(selection.bytes)));
    SayRemarks("skipped", selection.leftOut);
    SayRemarks("renamed", selection.renamed);
  }

  void SayRemarks(const char* title, const std::vector<Remark>& remarks) {
    for (size_t i = 0; i < remarks.size(); ++i) {
      const Remark& remark = remarks[i];
      Fact fact(title);
      fact.Add("path", remark.path).Add("reason", remark.why);
      bool shown = i < MOST_SHOWN || options.output.verbosity > 0;
      reporter.Say(fact, shown             ? fmt::format("  {}: \"{}\" ({})", title, Escape(remark.path), remark.why)
                         : i == MOST_SHOWN ? fmt::format("  ... and {} more", remarks.size() - MOST_SHOWN)
                                           : "");
    }
  }

  int ListOnly() {
    for (const PlannedFile& file : selection.files) {
      Fact fact("file");
      fact.Add("path", file.name).Add("bytes", file.size).Add("blocks", BlocksOf(file.size));
      reporter.Say(fact, fmt::format("  {:>9}  {}", FormatBytes(file.size), Escape(file.name)));
    }
    for (const std::string& name : selection.emptyDirectories) {
      reporter.Say(Fact("folder").Add("path", name), fmt::format("  {:>9}  {}/", "folder", Escape(name)));
    }
    SayTime();
    reporter.Say(Level::Always, Fact("dry_run"),
                 fmt::format("Nothing has been sent (--dry-run). It would be {}, {}.", Count(selection.blocks, "block"),
                             FormatBytes(selection.bytes)));
    reporter.Result().Add("files", selection.files.size()).Add("bytes", selection.bytes);
    return 0;
  }

  void SayTime() {
    auto time = StreamTime(selection.blocks, send.rate);
    std::string hint;
    if (!send.rateGiven && time > LONG_TRANSFER) {
      hint = "\nWhere the network and the disks can take more: --rate 400M, for example.";
    }
    reporter.Say(
        Fact("estimate").Add("rate_bits", uint64_t{send.rate} * 1000).Add("stream_ms", time.count()),
        fmt::format("At {} this takes {} {} plus repairs.{}", FormatLinkRate(send.rate),
                    send.rate == 0 ? "at least" : "about", time < 1s ? "a second" : FormatDuration(time), hint));
  }

  void CheckFailedTo() {
    if (std::ofstream(send.failedTo, std::ios::app)) return;
    throw Failure{Exit::LocalFiles,
                  fmt::format("\"{}\" cannot be written", Escape(send.failedTo)),
                  "--failed-to names it for the addresses of those that fail",
                  {"Nothing has been sent."}};
  }

  std::chrono::seconds WaitTime() const {
    if (send.wait.count() >= 0) return send.wait;
    return send.waitFor > 0 || !send.only.empty() ? DEFAULT_WAIT : 0s;
  }

  bool IsRoomReady() const {
    if (!send.only.empty() && !room.MissingOf(send.only).empty()) return false;
    return room.There().size() >= std::max(send.waitFor, 1u);
  }

  /// Looks until enough receivers are there and, where a person decides, until that is done. 0, or the exit code of one
  /// who left.
  int Gather() {
    auto deadline = Clock::now() + WaitTime();
    uint64_t known = ~uint64_t{0};
    for (room.Look(); !IsRoomReady(); room.Look()) {
      if (Clock::now() >= deadline) throw room.TooFew(std::max(send.waitFor, 1u), send.only);
      if (known != room.There().size()) SayWaiting();
      known = room.There().size();
      room.Leave();
      Event event = inbox.Next(0ms);
      if (event.kind == Event::Kind::Signal) return 128 + event.signal;
    }
    SayRoom();
    SayTime();
    if (!MustAsk(send)) return 0;
    return AskToStart();
  }

  void SayWaiting() {
    std::string wanted = send.only.empty() ? Count(std::max(send.waitFor, 1u), "receiver")
                                           : AddressList(room.MissingOf(send.only)) + " to come";
    reporter.Say(room.AsFact(), fmt::format("Waiting    {} there, for {}", room.There().size(), wanted));
  }

  void SayRoom() {
    bool asks = MustAsk(send);
    std::string list = room.Listing(reporter.Width(), asks ? 1 : LINES_OF_RECEIVERS, asks ? " (l: list)" : "");
    reporter.Say(room.AsFact(),
                 fmt::format("\nReceivers  {}{}{}", room.There().size(), list.empty() ? "" : "\n", list));
    if (send.only.empty()) return;
    for (uint32_t address : room.There()) {
      if (IsMeant(address)) continue;
      reporter.Say(Fact("listener").Add("address", FormatAddress(address)).Add("meant", false),
                   fmt::format("  {} listens too; {}", room.Names().Label(address),
                               send.manifest ? "\"quorl receive\" there throws away what is not for it"
                                             : "without a manifest it keeps what is sent"));
    }
  }

  bool IsMeant(uint32_t address) const {
    return send.only.empty() || std::find(send.only.begin(), send.only.end(), address) != send.only.end();
  }

  int AskToStart() {
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
      }
      if (event.key == 'l') reporter.Say(room.AsFact(), room.Listing(1, MOST_RECEIVERS, ""));
      if (event.key == 'q' || event.key == END_OF_INPUT) {
        reporter.Say(Fact("quit"), "Nothing has been sent.");
        return QUIT;
      }
    }
  }

  /// Whether at least one of those that failed listens again.
  bool GatherAgain(const std::vector<uint32_t>& failed) {
    reporter.Say(Fact("retry").Add("count", failed.size()),
                 fmt::format("Retry      for {}", Count(failed.size(), "receiver")));
    auto deadline = Clock::now() + (send.wait.count() >= 0 ? send.wait : DEFAULT_WAIT);
    do {
      room.Look();
      if (room.MissingOf(failed).empty()) return true;
      if (inbox.Next(0ms).kind == Event::Kind::Signal) return false;
    } while (Clock::now() < deadline);
    return room.MissingOf(failed).size() < failed.size();
  }

  void Attempt(const std::vector<uint32_t>& only) {
    Select();
    Fact fact("start");
    fact.Add("receivers", room.There().size()).Add("files", selection.files.size()).Add("bytes", selection.bytes);
    std::string text = fmt::format("Sending    {}, {} to {} at {} via {}", Count(selection.files.size(), "file"),
                                   FormatBytes(selection.bytes), Count(room.There().size(), "receiver"),
                                   FormatLinkRate(send.rate), network.interface.name);
    reporter.Say(fact.Add("blocks", selection.blocks), reporter.HasBlock() ? "" : text);
    Transfer transfer(inbox, reporter, room.Names(), selection.bytes, selection.files.size());
    result.Add(transfer.Run(), only);
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
    SetSubDirTrans(send.subdirectories ? 1 : 0);
    SetTargetPath(send.target.empty() ? 0 : TARGET_IS_A_PATH, send.target.c_str());
    std::vector<const char*> paths;
    for (const std::string& path : selection.paths) paths.push_back(path.c_str());
    int32_t answer = SetSelectFiles(paths.data(), static_cast<uint32_t>(paths.size()), send.openName.c_str());
    if (answer == 7) {
      if (selection.leftOut.empty()) reporter.Warn("at least one file is skipped: its name cannot travel");
      if (!send.openName.empty()) reporter.Warn("--open-name has no effect when a name cannot travel");
      result.NoteLeftOut();
    } else if (answer != 1) {
      throw Failure{Exit::Other,
                    "the selection was refused",
                    fmt::format("result {} of the library", answer),
                    {"Nothing has been sent."}};
    }
  }

  int Finish() {
    if (selection.lost != 0) result.NoteLeftOut();
    result.Tell(reporter, room.Names(), {selection.bytes, selection.files.size(), selection.blocks, send.rate});
    auto failed = result.Failed();
    if (!send.failedTo.empty()) {
      std::ofstream file(send.failedTo, std::ios::trunc);
      for (uint32_t address : failed) file << FormatAddress(address) << '\n';
      if (!file.flush()) reporter.Warn(fmt::format("\"{}\" could not be written", Escape(send.failedTo)));
    }
    if (!failed.empty() && !result.WasStopped()) {
      std::string list = send.failedTo.empty() ? AddressList(failed) : "@" + send.failedTo;
      reporter.Say(Fact("again").Add("addresses", AddressList(failed)),
                   fmt::format("Again for those that failed:  {} --only {}", send.again, list));
    }
    return result.ExitCode();
  }

  const Options& options;
  const SendOptions& send;
  Reporter& reporter;
  Inbox inbox;
  Selection selection;
  Network network;
  Room room;
  SendResult result;
};

}  // namespace

int RunSend(const Options& options, Reporter& reporter) {
  if (MustAsk(options.send) && (options.output.json || !CanAsk())) {
    throw Failure{Exit::Usage,
                  "nobody can be asked whether to start",
                  options.output.json ? "--json is for programs" : "this is no terminal",
                  {"--yes starts as soon as somebody is there, --wait-for N when N receivers are."}};
  }
  return Sending(options, reporter).Run();
}

}  // namespace quorl::cli
