#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl::cli {

enum class Command { None = 0, Send = 1, Receive = 2, List = 4, Doctor = 8, Demo = 16 };

struct NetworkOptions {
  uint32_t group = 0;     ///< Network byte order; 0: the library's default.
  uint32_t port = 0;      ///< 0: the library's default.
  std::string interface;  ///< An address or a name; empty: choose.
};

enum class ProgressStyle { Auto, Plain, None };
enum class ColorStyle { Auto, Always, Never };

struct OutputOptions {
  bool json = false;
  bool quiet = false;
  uint32_t verbosity = 0;  ///< How often -v was given.
  ProgressStyle progress = ProgressStyle::Auto;
  ColorStyle color = ColorStyle::Auto;
  std::string log;  ///< A file; empty: none.
};

struct SendOptions {
  std::vector<std::string> paths;
  uint32_t rate = 100000;         ///< kbit/s; 0: the fixed pacing.
  bool rateGiven = false;         ///< Said by the user.
  bool yes = false;               ///< Start without asking as soon as somebody is there.
  uint32_t waitFor = 0;           ///< Receivers to wait for; 0: not said.
  std::chrono::seconds wait{-1};  ///< How long to wait for them; negative: not said.
  std::vector<uint32_t> only;     ///< Addresses; empty: everyone.
  std::string failedTo;           ///< A file for the addresses that failed; empty: none.
  uint32_t retries = 0;
  bool dryRun = false;
  bool manifest = true;
  bool subdirectories = true;
  std::string target;    ///< The drive path that receivers are asked to use; empty: their own choice.
  std::string openName;  ///< As the library wants it; empty: none.
  std::string again;     ///< The command line without what says for whom and when, for a shell.
};

/// What happens to a received file whose name is taken.
enum class Existing { Rename, Overwrite, Skip, Fail };

struct ReceiveOptions {
  std::string directory;  ///< Empty: the current one.
  Existing existing = Existing::Rename;
  bool sync = false;
  bool keep = false;
  bool open = false;
  std::string then;                 ///< A program; empty: none.
  std::chrono::seconds timeout{0};  ///< 0: wait for ever.
  uint32_t from = 0;                ///< The only sender to listen to; 0: anyone.
};

/// What a command line asks for, defaults included.
struct Options {
  Command command = Command::None;
  NetworkOptions network;
  OutputOptions output;
  SendOptions send;
  ReceiveOptions receive;
  std::string keyFile;  ///< Of either side; empty: none.
};

/// A command line, read. With Command::None there is nothing to run, only `text` to show.
struct Invocation {
  Options options;
  std::string text;
};

/// Throws a Failure for wrong use.
Invocation ParseCommandLine(int argumentCount, const char* const* arguments);

/// The words of `quorl send` that repeat it for others: without --only, --wait-for, --retry and --yes.
std::string AgainText(const std::vector<std::string>& words);

/// "/srv/in" as the drive path "C:\srv\in"; a drive path as it is; nothing of both: empty.
std::string TargetFromText(const std::string& text);

/// "docs/start.html" as "\docs\start.html"; empty when it cannot travel.
std::string OpenNameFromText(const std::string& text);

}  // namespace quorl::cli
