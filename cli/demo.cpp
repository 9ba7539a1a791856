// `quorl demo`: the whole system on one machine. The receivers stand at loopback addresses of their own, so that each
// is a machine of its own to the sender; all of them are this same program.
#include "cli/demo.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include "cli/demo_tree.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int RECEIVERS = 3;

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "quorl-demo-XXXXXX").native();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw Failure{Exit::LocalFiles,
                    fmt::format("no temporary directory in {}", fs::temp_directory_path().native()),
                    std::strerror(errno),
                    {"TMPDIR can name another place."}};
    }
    path = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code error;
    fs::remove_all(path, error);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  fs::path path;
};

/// One more run of this program. Ended when it goes out of scope before it was waited for.
class Child {
 public:
  Child(std::vector<std::string> arguments, const fs::path& log) {
    arguments.insert(arguments.begin(), "quorl");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    process = fork();
    if (process < 0) throw Failure{Exit::Other, "a process could not be started", std::strerror(errno), {}};
    if (process > 0) return;
    int file = log.empty() ? -1 : open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file >= 0 && (dup2(file, STDOUT_FILENO) < 0 || dup2(file, STDERR_FILENO) < 0)) _exit(127);
    execv("/proc/self/exe", pointers.data());
    _exit(127);
  }
  ~Child() {
    if (process <= 0) return;
    kill(process, SIGTERM);
    Wait();
  }
  Child(Child&& other) noexcept : process(std::exchange(other.process, -1)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Interrupt() const { kill(process, SIGINT); }

  /// Its exit code, or 128 and the signal that ended it.
  int Wait() {
    int status = 0;
    while (waitpid(std::exchange(process, -1), &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t process = -1;
};

bool IsFree(uint32_t port) {
  int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(static_cast<uint16_t>(port));
  bool isFree = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return isFree;
}

/// A port pair of this run's own: two demos at once do not meet.
uint32_t ChoosePort() {
  uint32_t start = static_cast<uint32_t>(getpid()) * 4 % 30000;
  for (uint32_t i = 0; i < 30000; i += 4) {
    uint32_t port = 30000 + (start + i) % 30000;
    if (IsFree(port) && IsFree(port + 2)) return port;
  }
  throw Failure{Exit::Other, "no free port", "all from 30000 to 59999 are in use", {}};
}

std::string Address(int index) {
  return fmt::format("127.0.0.{}", index + 2);
}

class Demo {
 public:
  explicit Demo(Reporter& reporter) : reporter(reporter), port(std::to_string(ChoosePort())) {}

  int Run() {
    const fs::path source = directory.path / "source";
    MakeDemoTree(source / "tree");
    reporter.Say(fmt::format("One sender at 127.0.0.1, {} receivers at 127.0.0.2 to 127.0.0.4, multicast on port {}.",
                             RECEIVERS, port));
    reporter.Say("");
    std::vector<Child> receivers;
    for (int i = 0; i < RECEIVERS; ++i) {
      fs::create_directory(Target(i));
      receivers.push_back(
          Child({"receive", Target(i), "--interface", Address(i), "--port", port, "--timeout", "60"}, Log(i)));
    }
    auto started = Clock::now();
    Child sender(
        {"send", source / "tree", "--interface", "127.0.0.1", "--port", port, "--wait-for", std::to_string(RECEIVERS)},
        reporter.IsJson() ? directory.path / "sender.log" : fs::path());
    int sent = sender.Wait();
    reporter.Say("");
    bool allWell = sent == 0;
    if (!allWell) reporter.Say(fmt::format("The sender ended with exit code {}.", sent));
    for (int i = 0; i < RECEIVERS; ++i) {
      if (!allWell) receivers[static_cast<size_t>(i)].Interrupt();
      int code = receivers[static_cast<size_t>(i)].Wait();
      allWell = Judge(i, code, CompareTrees(source, Target(i))) && allWell;
    }
    reporter.Say(fmt::format("\n{} in {}.",
                             allWell ? "All trees are identical, byte for byte," : "NOT all trees are identical,",
                             FormatDuration(Clock::now() - started)));
    return allWell ? 0 : 1;
  }

 private:
  fs::path Target(int index) const { return directory.path / fmt::format("receiver-{}", index + 1); }
  fs::path Log(int index) const { return directory.path / fmt::format("receiver-{}.log", index + 1); }

  bool Judge(int index, int code, const std::vector<std::string>& differences) {
    if (code == 0 && differences.empty()) {
      reporter.Say(fmt::format("  {}  identical   {}", Address(index), LastLine(Log(index))));
      return true;
    }
    reporter.Say(fmt::format("  {}  DIFFERS     exit code {}, {}", Address(index), code,
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
  TemporaryDirectory directory;
  std::string port;
};

}  // namespace

int RunDemo(const Options&, Reporter& reporter) {
  return Demo(reporter).Run();
}

}  // namespace quorl::cli
