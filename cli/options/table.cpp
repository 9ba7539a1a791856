// The options of the command: one row each, and how the values are read. Nothing here knows the parser.
#include "cli/options/table.h"

#include <fmt/format.h>
#include <quorl/host.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <fstream>
#include <initializer_list>
#include <utility>

#include "cli/show/units.h"

namespace quorl::cli {
namespace {

// What is written behind an option as the value that the command works with.

constexpr size_t LONGEST_NAME = QUORL_NAME_SIZE - 1;
constexpr std::chrono::seconds LONGEST_TIME = std::chrono::weeks(1);
constexpr size_t MOST_MEANT = QUORL_RECEIVERS;

template <class Value>
Value OneOf(const std::string& text, std::initializer_list<std::pair<std::string_view, Value>> choices) {
  std::string known;
  for (const auto& [name, value] : choices) {
    if (text == name) return value;
    known += fmt::format("{}{}", known.empty() ? "" : ", ", name);
  }
  throw WrongValue{fmt::format("\"{}\" is none of {}", text, known)};
}

uint32_t NumberValue(const std::string& text, uint32_t lowest, uint32_t highest) {
  uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < lowest || number > highest) {
    throw WrongValue{fmt::format("\"{}\" is no number from {} to {}", text, lowest, highest)};
  }
  return number;
}

uint32_t RateValue(const std::string& text) {
  auto rate = ParseRate(text);
  if (!rate) throw WrongValue{fmt::format("\"{}\" is no rate; say 200M, 1.5G, auto, max or compatible", text)};
  return *rate;
}

std::chrono::seconds TimeValue(const std::string& text, std::chrono::seconds::rep lowest = 0) {
  std::chrono::seconds::rep number = -1;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view unit(end, static_cast<size_t>(text.data() + text.size() - end));
  std::chrono::seconds::rep factor = unit.empty() || unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
  bool valid = error == std::errc{} && factor != 0 && number >= lowest && number <= LONGEST_TIME.count() / factor;
  if (!valid) throw WrongValue{fmt::format("\"{}\" is no time; say 30, 30s, 5m or 1h, at most a week", text)};
  return std::chrono::seconds(number * factor);
}

uint32_t AddressValue(const std::string& text) {
  const uint32_t address = ParseAddress(text).value_or(0);
  if (address == 0) throw WrongValue{fmt::format("\"{}\" is no IPv4 address", text)};
  return address;
}

uint32_t GroupValue(const std::string& text) {
  const uint32_t address = ParseAddress(text).value_or(0);
  if ((address & 0xF0) != 0xE0) {
    throw WrongValue{fmt::format("\"{}\" is no IPv4 multicast address (224.0.0.0 to 239.255.255.255)", text)};
  }
  return address;
}

/// Whether it may be the name that a machine is shown under.
bool IsHostName(std::string_view text) {
  const auto fits = [](char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' || letter == '_';
  };
  return std::all_of(text.begin(), text.end(), fits) && text.find_first_not_of("0123456789") != std::string_view::npos;
}

template <class Value>
void AddOnce(std::vector<Value>& values, const Value& value) {
  if (std::find(values.begin(), values.end(), value) == values.end()) values.push_back(value);
}

/// A list may come from a file, and be empty there: then it is for nobody.
Meant MeantValue(const std::string& text) {
  std::string list = text;
  if (text.starts_with('@')) {
    std::ifstream file(text.substr(1));
    list.assign(std::istreambuf_iterator<char>(file), {});
    if (!file) throw WrongValue{fmt::format("\"{}\" cannot be read", text.substr(1))};
  }
  auto separates = [](char letter) { return letter == ',' || std::isspace(static_cast<unsigned char>(letter)) != 0; };
  Meant meant{.everyone = false, .addresses = {}, .names = {}};
  for (auto from = list.begin(); from != list.end();) {
    from = std::find_if_not(from, list.end(), separates);
    auto to = std::find_if(from, list.end(), separates);
    if (from == to) break;
    const std::string word(from, to);
    if (IsHostName(word)) {
      AddOnce(meant.names, word);
    } else {
      AddOnce(meant.addresses, AddressValue(word));
    }
    from = to;
  }
  const size_t count = meant.addresses.size() + meant.names.size();
  if (count == 0 && !text.starts_with('@')) throw WrongValue{fmt::format("\"{}\" names nobody", text)};
  if (count > MOST_MEANT) {
    throw WrongValue{fmt::format("\"{}\" names {} receivers, {} is the most", text, count, MOST_MEANT)};
  }
  return meant;
}

/// "/srv/in" as the drive path "C:\srv\in"; a drive path as it is.
std::string TargetValue(const std::string& text) {
  std::string target = text;
  const bool isLocal = target.starts_with('/');
  if (isLocal) {
    while (target.size() > 1 && target.back() == '/') target.pop_back();
    std::replace(target.begin(), target.end(), '/', '\\');
    target = "C:" + target;
  }
  const bool isDrivePath = target.size() >= 3 && std::isalpha(static_cast<unsigned char>(target[0])) != 0 &&
                           target[1] == ':' && target[2] == '\\';
  // A backslash in a local name would arrive as a directory.
  const bool holdsBackslash = isLocal && text.find('\\') != std::string::npos;
  if (!isDrivePath || holdsBackslash || target.size() > LONGEST_NAME)
    throw WrongValue{fmt::format("\"{}\" is neither an absolute directory nor a drive path", text)};
  return target;
}

/// "docs/start.html" as "\docs\start.html".
std::string OpenNameValue(const std::string& text) {
  std::string name = text;
  std::replace(name.begin(), name.end(), '/', '\\');
  if (!name.starts_with('\\')) name = "\\" + name;
  if (name.size() == 1 || name.size() > LONGEST_NAME) throw WrongValue{fmt::format("\"{}\" cannot travel", text)};
  return name;
}

std::string DirectoryValue(const std::string& text) {
  if (text.empty()) throw WrongValue{"it names no directory"};
  return text;
}

std::string FileNameValue(const std::string& text) {
  if (text.empty() || text.find('/') != std::string::npos || text.size() > LONGEST_NAME)
    throw WrongValue{fmt::format("\"{}\" is no name of a file", text)};
  return text;
}

Existing ExistingValue(const std::string& text) {
  return OneOf<Existing>(text, {{"rename", Existing::Rename},
                                {"overwrite", Existing::Overwrite},
                                {"skip", Existing::Skip},
                                {"fail", Existing::Fail}});
}

Links LinksValue(const std::string& text) {
  return OneOf<Links>(text, {{"follow", Links::Follow}, {"keep", Links::Keep}, {"skip", Links::Skip}});
}

ProgressStyle ProgressValue(const std::string& text) {
  return OneOf<ProgressStyle>(
      text, {{"auto", ProgressStyle::Auto}, {"plain", ProgressStyle::Plain}, {"none", ProgressStyle::None}});
}

ColorStyle ColorValue(const std::string& text) {
  return OneOf<ColorStyle>(text,
                           {{"auto", ColorStyle::Auto}, {"always", ColorStyle::Always}, {"never", ColorStyle::Never}});
}

constexpr auto SEND = static_cast<unsigned>(Verb::Send);
constexpr auto RECEIVE = static_cast<unsigned>(Verb::Receive);
constexpr auto LIST = static_cast<unsigned>(Verb::List);
constexpr auto DOCTOR = static_cast<unsigned>(Verb::Doctor);
constexpr auto DEMO = static_cast<unsigned>(Verb::Demo);
constexpr unsigned NETWORK = SEND | RECEIVE | LIST | DOCTOR;
constexpr unsigned ALL = NETWORK | DEMO;

using Value = const std::string&;
using enum ValueKind;

constexpr std::array COMMANDS = {
    CommandRow{Verb::Send, "send", "PATH...", "files and directories to send; - alone: standard input",
               "send files and directories to everyone who listens"},
    CommandRow{Verb::Receive, "receive", "[DIR]", "directory that everything is kept under (the current one)",
               "wait for a transfer and receive it"},
    CommandRow{Verb::List, "list", "", "", "show who listens right now"},
    CommandRow{Verb::Doctor, "doctor", "", "", "look for what keeps transfers from working on this machine"},
    CommandRow{Verb::Demo, "demo", "", "", "one sender and three receivers on this machine, with a proof"},
};

constexpr std::array SEND_OPTIONS = {
    OptionRow{SEND, "--rate", "-r", "R", Text,
              "bit/s on the wire, with K, M or G; \"auto\": what the link and the receivers take; \"max\": no limit; "
              "\"compatible\": the fixed pace of older hosts (auto; 100M where an older receiver is in the room)",
              [](Options& options, Value text) {
                options.send.adaptsRate = text == "auto";
                if (!options.send.adaptsRate) options.send.rate = RateValue(text);
                options.send.rateGiven = true;
              }},
    OptionRow{SEND, "--yes", "-y", "", None, "start as soon as somebody is there, without asking",
              [](Options& options, Value) { options.send.yes = true; }},
    OptionRow{SEND, "--wait-for", "-n", "N", Text, "start without asking when N receivers are there",
              [](Options& options, Value text) { options.send.waitFor = NumberValue(text, 1, QUORL_MOST_RECEIVERS); }},
    OptionRow{SEND, "--wait", "-w", "TIME", Text,
              "how long to wait for receivers: 30, 30s, 5m, 1h (30s with --wait-for or --only, else one look)",
              [](Options& options, Value text) { options.send.wait = TimeValue(text); }},
    OptionRow{
        SEND, "--only", "", "LIST|@FILE", ValueKind::File,
        "addresses or shown names that this is for, with commas between them, or a file that holds them; wait for "
        "exactly these, with --yes for some of them",
        [](Options& options, Value text) { options.send.only = MeantValue(text); }},
    OptionRow{SEND, "--failed-to", "", "FILE", File, "write the addresses of those that failed there, for --only @FILE",
              [](Options& options, Value text) { options.send.failedTo = text; }},
    OptionRow{SEND, "--retry", "", "N", Text,
              "repeat up to N times for those that failed and still listen, at half the rate if much got lost",
              [](Options& options, Value text) { options.send.retries = NumberValue(text, 0, 100); }},
    OptionRow{SEND, "--dry-run", "", "", None, "show what would be sent, and send nothing",
              [](Options& options, Value) { options.send.dryRun = true; }},
    OptionRow{
        SEND, "--exclude", "", "GLOB", Text,
        "leave out what has such a name: \"*.o\" anywhere, \"cache/\" directories, \"doc/**/*.tmp\"; may be repeated",
        [](Options& options, Value text) { options.send.exclude.push_back(text); }, true},
    OptionRow{SEND, "--skip-unreadable", "", "", None, "send the rest when something cannot be read",
              [](Options& options, Value) { options.send.skipUnreadable = true; }},
    OptionRow{SEND, "--as", "", "NAME", Text, "the name under which standard input arrives (stdin)",
              [](Options& options, Value text) { options.send.inputName = FileNameValue(text); }},
    OptionRow{SEND, "--links", "", "follow|keep|skip", Choice,
              "symbolic links: send the file that one leads to, make the same link there, or leave it out (follow)",
              [](Options& options, Value text) { options.send.links = LinksValue(text); }},
    OptionRow{SEND, "--perms", "", "", None, "also send who may read, write and run each file",
              [](Options& options, Value) { options.send.permissions = true; }},
    OptionRow{SEND, "--no-manifest", "", "", None,
              "send no list of digests along; receivers then cannot verify, nor restore times",
              [](Options& options, Value) { options.send.manifest = false; }},
    OptionRow{SEND, "--no-subdirs", "", "", None, "of a directory send only the files directly in it",
              [](Options& options, Value) { options.send.subdirectories = false; }},
    OptionRow{SEND, "--target", "", "DIR", Text,
              "directory that receivers are asked to use; \"quorl receive\" keeps to its own",
              [](Options& options, Value text) { options.send.target = TargetValue(text); }},
    OptionRow{SEND, "--open-name", "", "NAME", Text,
              "file of the selection that receivers are asked to open at the end",
              [](Options& options, Value text) { options.send.openName = OpenNameValue(text); }},
};

constexpr std::array RECEIVE_OPTIONS = {
    OptionRow{RECEIVE, "--to", "-d", "DIR", Directory, "the same as DIR",
              [](Options& options, Value text) { options.receive.directory = DirectoryValue(text); }},
    OptionRow{RECEIVE, "--output", "-o", "FILE|-", ValueKind::File,
              "for a transfer of one file: store it as FILE, or write it to the device FILE or, with -, to standard "
              "output, once it is verified",
              [](Options& options, Value text) {
                if (text.empty()) throw WrongValue{"it names no file"};
                options.receive.output = text;
                options.output.textToError = text == "-";
              }},
    OptionRow{RECEIVE, "--existing", "-e", "rename|overwrite|skip|fail", Choice,
              "what to do with a file whose name is taken (rename: both are kept)",
              [](Options& options, Value text) { options.receive.existing = ExistingValue(text); }},
    OptionRow{RECEIVE, "--sync", "", "", None, "end only when everything is safe from a power failure",
              [](Options& options, Value) { options.receive.sync = true; }},
    OptionRow{RECEIVE, "--quick", "", "", None,
              "take a file that is there for the one that is sent when size and time agree, without reading it",
              [](Options& options, Value) { options.receive.quick = true; }},
    OptionRow{RECEIVE, "--all-or-nothing", "", "", None,
              "move nothing unless everything is whole and right, and keep nothing of a transfer that breaks",
              [](Options& options, Value) { options.receive.allOrNothing = true; }},
    OptionRow{RECEIVE, "--no-perms", "", "", None, "give files the permissions of new ones, whatever the sender says",
              [](Options& options, Value) { options.receive.permissions = false; }},
    OptionRow{RECEIVE, "--keep", "-k", "", None, "go on with the next transfer after each",
              [](Options& options, Value) { options.receive.keep = true; }},
    OptionRow{RECEIVE, "--then", "", "PROGRAM", File,
              "run this after each verified transfer, without a shell, with the directory as its argument",
              [](Options& options, Value text) { options.receive.then = text; }},
    OptionRow{RECEIVE, "--open", "", "", None, "open the file that the sender suggests",
              [](Options& options, Value) { options.receive.open = true; }},
    OptionRow{RECEIVE, "--timeout", "-t", "TIME", Text,
              "give up when no transfer has started by then: 30, 30s, 5m, 1h (never)",
              [](Options& options, Value text) { options.receive.timeout = TimeValue(text, 1); }},
    OptionRow{RECEIVE, "--from", "", "ADDRESS", Text, "listen to this sender only (anyone)",
              [](Options& options, Value text) { options.receive.from = AddressValue(text); }},
};

constexpr std::array COMMON_OPTIONS = {
    OptionRow{SEND | RECEIVE, "--key-file", "", "FILE", File,
              "a key shared by both sides, at least 16 bytes: nothing is accepted that it does not vouch for",
              [](Options& options, Value text) { options.keyFile = text; }},
    OptionRow{SEND | RECEIVE, "--no-coded", "", "", None,
              "do without coded symbols, which repair losses for all receivers at once",
              [](Options& options, Value) { options.send.coded = options.receive.coded = false; }},
    OptionRow{NETWORK, "--interface", "-i", "ADDRESS|NAME", ValueKind::Interface,
              "local address or interface to use (the route to the group)",
              [](Options& options, Value text) { options.network.interface = text; }},
    OptionRow{NETWORK, "--group", "-g", "ADDRESS", Text, "multicast group (235.9.2.9)",
              [](Options& options, Value text) { options.network.group = GroupValue(text); }},
    OptionRow{NETWORK, "--port", "-p", "N", Text, "UDP port of the group; answers come on the port two above (27001)",
              [](Options& options, Value text) { options.network.port = NumberValue(text, 1, 65533); }},
    OptionRow{ALL, "--json", "-j", "", None, "one JSON object a line on standard output, for programs",
              [](Options& options, Value) { options.output.json = true; }},
    OptionRow{ALL, "--quiet", "-q", "", None, "only errors and the result",
              [](Options& options, Value) { options.output.quiet = true; }},
    OptionRow{ALL, "--verbose", "-v", "", None, "also every file; twice: also what the network does",
              [](Options& options, Value text) { options.output.verbosity = NumberValue(text, 0, 9); }},
    OptionRow{ALL, "--progress", "", "auto|plain|none", Choice,
              "a block on a terminal and a line every 10 s elsewhere, always lines, or nothing (auto)",
              [](Options& options, Value text) { options.output.progress = ProgressValue(text); }},
    OptionRow{ALL, "--color", "", "auto|always|never", Choice,
              "colours; auto heeds the terminal, NO_COLOR and TERM=dumb (auto)",
              [](Options& options, Value text) { options.output.color = ColorValue(text); }},
    OptionRow{SEND | RECEIVE, "--title", "", "", None, "show the progress in the title of the terminal, too",
              [](Options& options, Value) { options.output.title = true; }},
    OptionRow{ALL, "--log", "", "FILE", File, "append everything that is told to this file, with the time of day",
              [](Options& options, Value text) { options.output.log = text; }},
};

std::vector<OptionRow> AllOptions() {
  std::vector<OptionRow> rows(SEND_OPTIONS.begin(), SEND_OPTIONS.end());
  rows.insert(rows.end(), RECEIVE_OPTIONS.begin(), RECEIVE_OPTIONS.end());
  rows.insert(rows.end(), COMMON_OPTIONS.begin(), COMMON_OPTIONS.end());
  return rows;
}

}  // namespace

std::span<const OptionRow> OptionRows() {
  static const std::vector<OptionRow> ROWS = AllOptions();
  return ROWS;
}

std::span<const CommandRow> CommandRows() {
  return COMMANDS;
}

std::string EnvironmentName(const OptionRow& row) {
  std::string name = std::string("QUORL_") + (row.name + 2);
  std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
    return letter == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  });
  return name;
}

}  // namespace quorl::cli
