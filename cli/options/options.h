#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl::cli {

enum class Verb { None = 0, Send = 1, Receive = 2, List = 4, Doctor = 8, Demo = 16 };

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
  bool textToError = false;  ///< Standard output is for something else than what is told.
  uint32_t verbosity = 0;    ///< How often -v was given.
  ProgressStyle progress = ProgressStyle::Auto;
  ColorStyle color = ColorStyle::Auto;
  std::string log;     ///< A file; empty: none.
  bool title = false;  ///< Progress also in the title of the terminal.
};

/// The receivers that something is sent to.
struct Meant {
  bool everyone = true;             ///< Else those listed below.
  std::vector<uint32_t> addresses;  ///< Network byte order.
  std::vector<std::string> names;   ///< As they are shown for the addresses of receivers.
};

/// What becomes of symbolic links in what is sent.
enum class Links {
  Follow,  ///< The file that they lead to travels under their name; those to directories do not.
  Keep,    ///< They travel as links.
  Skip,
};

struct SendOptions {
  std::vector<std::string> paths;  ///< Or "-" alone: standard input,
  std::string inputName;           ///< which arrives under this name; empty: not said.
  uint32_t rate = 100000;          ///< kbit/s; 0: the fixed pacing.
  bool adaptsRate = false;         ///< Begin at what the link takes, and come down to what the room takes in.
  bool rateGiven = false;          ///< Said by the user; if not, the library finds it where it can.
  bool yes = false;                ///< Start without asking as soon as somebody is there.
  uint32_t waitFor = 0;            ///< Receivers to wait for; 0: not said.
  std::chrono::seconds wait{-1};   ///< How long to wait for them; negative: not said.
  Meant only;                      ///< The receivers that it is for.
  std::string failedTo;            ///< A file for the addresses that failed; empty: none.
  uint32_t retries = 0;
  bool dryRun = false;
  std::vector<std::string> exclude;  ///< Patterns of names that are left out.
  bool skipUnreadable = false;       ///< Leave unreadable files out instead of sending nothing.
  bool manifest = true;
  Links links = Links::Follow;
  bool permissions = false;  ///< Those of files travel.
  bool subdirectories = true;
  std::string target;    ///< The drive path that receivers are asked to use; empty: their own choice.
  std::string openName;  ///< As the library wants it; empty: none.
  bool coded = true;     ///< Contents may travel in coded symbols.
  std::string again;     ///< The command line without what says for whom and when, for a shell.
};

/// What happens to a received file whose name is taken.
enum class Existing { Rename, Overwrite, Skip, Fail };

struct ReceiveOptions {
  std::string directory;  ///< Empty: the current one.
  std::string output;     ///< What the one file that comes goes to, "-": standard output; empty: to its name.
  Existing existing = Existing::Rename;
  bool sync = false;
  bool quick = false;         ///< A file of the same size and time is the same file.
  bool allOrNothing = false;  ///< Nothing is moved unless everything is.
  bool permissions = true;    ///< Files get those that the sender says.
  bool keep = false;
  bool open = false;
  std::string then;                 ///< A program; empty: none.
  std::chrono::seconds timeout{0};  ///< 0: wait for ever.
  uint32_t from = 0;                ///< The only sender to listen to; 0: anyone.
  bool coded = true;                ///< Contents may travel in coded symbols.
};

/// What a command line asks for, defaults included.
struct Options {
  Verb verb = Verb::None;
  NetworkOptions network;
  OutputOptions output;
  SendOptions send;
  ReceiveOptions receive;
  std::string keyFile;  ///< Of either side; empty: none.
};

/// A command line, read. With Verb::None there is nothing to run, only `text` to show.
struct Invocation {
  Options options;
  std::string text;
};

/// Throws a Failure for wrong use.
Invocation ParseCommandLine(int argumentCount, const char* const* arguments);

/// The words of `quorl send` that repeat it for others: without --only, --wait-for, --retry and --yes.
std::string AgainText(const std::vector<std::string>& words);

}  // namespace quorl::cli
