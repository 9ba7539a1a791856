// `quorl demo`: the whole system on one machine. The receivers stand at loopback addresses of their own, so that each
// is a machine of its own to the sender; all of them are this same program.
#include "cli/commands/demo.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "cli/commands/demo_tree.h"
#include "cli/show/units.h"
#include "cli/system/files.h"
#include "cli/system/network.h"
#include "cli/system/path.h"
#include "cli/system/program.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// One more run of this program. Ended when it goes out of scope before it was waited for.
class Child {
 public:
  /// No `log`: it writes where this process does.
  Child(const std::vector<std::string>& arguments, const fs::path& log)
      : program(Program::Start(
            OwnProgram(), arguments,
            {log.empty() ? ProgramStreams::Output::Inherited : ProgramStreams::Output::ToFile, log.string(), true})) {}
  ~Child() {
    program.Terminate();
    program.Wait();
  }
  Child(Child&&) = default;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Interrupt() const { program.Interrupt(); }

  /// Its exit code, or 128 and the signal that ended it.
  int Wait() {
    const ProgramEnd end = program.Wait();
    if (end.notStarted) throw Failure{Exit::Other, "a process could not be started", end.notStarted.text, {}};
    return end.signal != 0 ? 128 + end.signal : end.exitCode;
  }

 private:
  Program program;
};

/// A port pair of this run's own: two demos at once do not meet.
uint32_t ChoosePort() {
  const uint32_t start = std::random_device()() % 7500 * 4;
  for (uint32_t i = 0; i < 30000; i += 4) {
    uint32_t port = 30000 + (start + i) % 30000;
    if (IsPortFree(port) && IsPortFree(port + 2)) return port;
  }
  throw Failure{Exit::Other, "no free port", "all from 30000 to 59999 are in use", {}};
}

/// The addresses of the receivers. They are machines of their own to the sender where each loopback address is one of
/// this machine. Elsewhere there is one receiver, at the first address that gets what is sent to a group.
std::vector<std::string> ChoosePlaces(uint32_t port) {
  if (HasManyLoopbackAddresses()) return {"127.0.0.2", "127.0.0.3", "127.0.0.4"};
  const uint32_t group = ParseAddress("235.9.2.9").value();
  for (const char* place : {"127.0.0.1", "127.0.0.2"})
    if (TryEcho(group, port, ParseAddress(place).value(), 1).step == Echo::Step::CameBack) return {place};
  throw Failure{Exit::Other, "no loopback address gets what is sent to a group", "", {"\"quorl doctor\" tells more."}};
}

class Demo {
 public:
  explicit Demo(Reporter& reporter) : reporter(reporter) {
    if (!directory.Why()) return;
    throw Failure{Exit::LocalFiles,
                  fmt::format("no temporary directory in {}", root.parent_path().string()),
                  directory.Why().text,
                  {"TMPDIR can name another place."}};
  }

  int Run() {
    const fs::path source = root / "source";
    MakeDemoTree(source / "tree");
    reporter.Say(fmt::format("One sender at 127.0.0.1, {} at {}, multicast on port {}.",
                             Count(places.size(), "receiver"),
                             places.size() == 1 ? places.front() : places.front() + " to " + places.back(), port));
    reporter.Say("");
    std::vector<Child> receivers;
    for (size_t i = 0; i < places.size(); ++i) {
      fs::create_directory(Target(i));
      receivers.push_back(
          Child({"receive", Target(i).string(), "--interface", places[i], "--port", port, "--timeout", "60"}, Log(i)));
    }
    auto started = Clock::now();
    Child sender({"send", (source / "tree").string(), "--interface", "127.0.0.1", "--port", port, "--wait-for",
                  std::to_string(places.size())},
                 reporter.IsJson() ? root / "sender.log" : fs::path());
    int sent = sender.Wait();
    reporter.Say("");
    bool allWell = sent == 0;
    if (!allWell) reporter.Say(fmt::format("The sender ended with exit code {}.", sent));
    for (size_t i = 0; i < places.size(); ++i) {
      if (!allWell) receivers[i].Interrupt();
      int code = receivers[i].Wait();
      allWell = Judge(i, code, CompareTrees(source, Target(i))) && allWell;
    }
    reporter.Say(fmt::format("\n{} in {}.",
                             allWell ? "All trees are identical, byte for byte," : "NOT all trees are identical,",
                             FormatDuration(Clock::now() - started)));
    return allWell ? 0 : 1;
  }

 private:
  fs::path Target(size_t index) const { return root / fmt::format("receiver-{}", index + 1); }
  fs::path Log(size_t index) const { return root / fmt::format("receiver-{}.log", index + 1); }

  bool Judge(size_t index, int code, const std::vector<std::string>& differences) {
    if (code == 0 && differences.empty()) {
      reporter.Say(fmt::format("  {}  identical   {}", places[index], LastLine(Log(index))));
      return true;
    }
    reporter.Say(fmt::format("  {}  DIFFERS     exit code {}, {}", places[index], code,
                             Count(differences.size(), "difference")));
    for (size_t i = 0; i < std::min<size_t>(differences.size(), 10); ++i) reporter.Say("      " + differences[i]);
    reporter.Say("      its output:");
    std::ifstream log(Log(index));
    for (std::string line; std::getline(log, line);) reporter.Say("      | " + line);
    return false;
  }

  static std::string LastLine(const fs::path& path) {
    std::ifstream file(path);
    std::string last;
    for (std::string line; std::getline(file, line);) last = line;
    return last;
  }

  Reporter& reporter;
  const TemporaryDirectory directory{"quorl-demo-"};
  const fs::path root = PathFrom(directory.Path());
  const uint32_t portNumber = ChoosePort();
  const std::string port = std::to_string(portNumber);
  const std::vector<std::string> places = ChoosePlaces(portNumber);
};

}  // namespace

int RunDemo(const Options&, Reporter& reporter) {
  return Demo(reporter).Run();
}

}  // namespace quorl::cli
