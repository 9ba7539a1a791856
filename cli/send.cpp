// `quorl send`: survey, see who is there, ask, send, tell, and repeat for those that failed. Everything runs on the
// main thread.
#include "cli/send.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>

#include "cli/escape.h"
#include "cli/gathering.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/room.h"
#include "cli/selection.h"
#include "cli/send_manifest.h"
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
constexpr std::chrono::seconds LONG_READING = 5s;

class Sending {
 public:
  Sending(const Options& options, Reporter& reporter)
      : options(options),
        send(options.send),
        reporter(reporter),
        selection(SurveySelection(send.paths, send.subdirectories)),
        network(ResolveNetwork(options.network)),
        inbox(options.output.verbosity > 0),
        room(network, inbox),
        gathering(send, room, inbox, reporter) {
    if (send.manifest) manifest.emplace(selection, options.keyFile);
  }

  int Run() {
    SayPlan();
    if (send.dryRun) return ListOnly();
    if (!send.failedTo.empty()) CheckFailedTo();
    SetProfile(1);
    SetSendRate(send.rate);
    if (int code = gathering.First(selection.blocks)) return code;
    if (int code = Prepare()) return code;
    result.Begin();
    Attempt(send.only);
    for (uint32_t i = 0; i < send.retries && !result.WasStopped() && !result.Failed().empty(); ++i) {
      auto failed = result.Failed();
      if (int code = gathering.Again(failed)) {
        Finish();
        return code;
      }
      if (room.MissingOf(failed).size() == failed.size()) break;
      Attempt(failed);
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
      fact.Add("name", file.name).Add("bytes", file.size).Add("blocks", BlocksOf(file.size));
      reporter.Say(fact, fmt::format("  {:>9}  {}", FormatBytes(file.size), Escape(file.name)));
    }
    for (const std::string& name : selection.emptyDirectories) {
      reporter.Say(Fact("folder").Add("name", name), fmt::format("  {:>9}  {}/", "folder", Escape(name)));
    }
    SayStreamTime(reporter, send, selection.blocks);
    reporter.Say(Level::Always, Fact("dry_run"),
                 fmt::format("Nothing has been sent (--dry-run). It would be {}, {}.", Count(selection.blocks, "block"),
                             FormatBytes(selection.bytes)));
    reporter.Result().Add("files", selection.files.size()).Add("bytes", selection.bytes);
    return 0;
  }

  void CheckFailedTo() {
    if (std::ofstream(send.failedTo, std::ios::app)) return;
    throw Failure{Exit::LocalFiles,
                  fmt::format("\"{}\" cannot be written", Escape(send.failedTo)),
                  "--failed-to names it for the addresses of those that fail",
                  {"Nothing has been sent."}};
  }

  /// Reads everything for the manifest. That may take long; who is there is asked once more then.
  int Prepare() {
    if (!manifest) return 0;
    auto began = Clock::now();
    if (int signal = manifest->Read(inbox, reporter)) return 128 + signal;
    return Clock::now() - began > LONG_READING ? gathering.Wait() : 0;
  }

  void Attempt(const std::vector<uint32_t>& only) {
    Select(only);
    Fact fact("start");
    fact.Add("receivers", room.There().size()).Add("files", selection.files.size()).Add("bytes", selection.bytes);
    std::string text = fmt::format("Sending    {}, {} to {} at {} via {}", Count(selection.files.size(), "file"),
                                   FormatBytes(selection.bytes), Count(room.There().size(), "receiver"),
                                   FormatLinkRate(send.rate), network.interface.name);
    reporter.Say(fact.Add("blocks", selection.blocks), reporter.HasBlock() ? "" : text);
    Transfer transfer(inbox, reporter, room.Names(), selection.bytes, selection.files.size(), manifest ? 1 : 0);
    result.Add(transfer.Run(), only);
  }

  void Select(const std::vector<uint32_t>& only) {
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
    std::string manifestPath = manifest ? manifest->Write(only) : "";
    std::vector<const char*> paths;
    if (manifest) paths.push_back(manifestPath.c_str());
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
  Selection selection;
  Network network;
  Inbox inbox;  // From here on Ctrl-C is an event.
  Room room;
  Gathering gathering;
  std::optional<SendManifest> manifest;
  SendResult result;
};

}  // namespace

int RunSend(const Options& options, Reporter& reporter) {
  if (!options.keyFile.empty() && !options.send.manifest) {
    throw Failure{
        Exit::Usage, "--key-file and --no-manifest exclude each other", "it is the manifest that the key seals", {}};
  }
  if (MustAsk(options.send) && (options.output.json || !CanAsk())) {
    throw Failure{Exit::Usage,
                  "nobody can be asked whether to start",
                  options.output.json ? "--json is for programs" : "this is no terminal",
                  {"--yes starts as soon as somebody is there, --wait-for N when N receivers are."}};
  }
  return Sending(options, reporter).Run();
}

}  // namespace quorl::cli
