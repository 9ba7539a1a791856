// The options of the command as one table. Each row knows how its value is read; nothing here knows the parser.
#include "cli/option_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "cli/fact.h"
#include "cli/option_values.h"
#include "cli/outcome.h"

namespace quorl::cli {
namespace {

constexpr auto SEND = static_cast<unsigned>(Command::Send);
constexpr auto RECEIVE = static_cast<unsigned>(Command::Receive);
constexpr auto LIST = static_cast<unsigned>(Command::List);
constexpr auto DOCTOR = static_cast<unsigned>(Command::Doctor);
constexpr auto DEMO = static_cast<unsigned>(Command::Demo);
constexpr unsigned NETWORK = SEND | RECEIVE | LIST | DOCTOR;
constexpr unsigned ALL = NETWORK | DEMO;

using Value = const std::string&;
using enum ValueKind;

constexpr std::array COMMANDS = {
    CommandRow{Command::Send, "send", "PATH...", "files and directories to send",
               "send files and directories to everyone who listens"},
    CommandRow{Command::Receive, "receive", "[DIR]", "directory that everything is kept under (the current one)",
               "wait for a transfer and receive it"},
    CommandRow{Command::List, "list", "", "", "show who listens right now"},
    CommandRow{Command::Doctor, "doctor", "", "", "look for what keeps transfers from working on this machine"},
    CommandRow{Command::Demo, "demo", "", "", "one sender and three receivers on this machine, with a proof"},
};

constexpr std::array SEND_OPTIONS = {
    OptionRow{SEND, "--rate", "-r", "R", Text,
              "bit/s on the wire, with K, M or G; \"compatible\": the fixed pace of older hosts (100M)",
              [](Options& options, Value text) {
                options.send.rate = RateValue(text);
                options.send.rateGiven = true;
              }},
    OptionRow{SEND, "--yes", "-y", "", None, "start as soon as somebody is there, without asking",
              [](Options& options, Value) { options.send.yes = true; }},
    OptionRow{SEND, "--wait-for", "-n", "N", Text, "start without asking when N receivers are there",
              [](Options& options, Value text) { options.send.waitFor = NumberValue(text, 1, 200); }},
    OptionRow{SEND, "--wait", "-w", "TIME", Text,
              "how long to wait for receivers: 30, 30s, 5m, 1h (30s with --wait-for or --only, else one look)",
              [](Options& options, Value text) { options.send.wait = TimeValue(text); }},
    OptionRow{SEND, "--only", "", "LIST|@FILE", ValueKind::File,
              "addresses that this is for, with commas between them, or a file that holds them; wait for exactly these",
              [](Options& options, Value text) { options.send.only = AddressesValue(text); }},
    OptionRow{SEND, "--failed-to", "", "FILE", File, "write the addresses of those that failed there, for --only @FILE",
              [](Options& options, Value text) { options.send.failedTo = text; }},
    OptionRow{SEND, "--retry", "", "N", Text, "repeat up to N times for those that failed and still listen",
              [](Options& options, Value text) { options.send.retries = NumberValue(text, 0, 100); }},
    OptionRow{SEND, "--dry-run", "", "", None, "show what would be sent, and send nothing",
              [](Options& options, Value) { options.send.dryRun = true; }},
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
    OptionRow{RECEIVE, "--existing", "-e", "rename|overwrite|skip|fail", Choice,
              "what to do with a file whose name is taken (rename: both are kept)",
              [](Options& options, Value text) { options.receive.existing = ExistingValue(text); }},
    OptionRow{RECEIVE, "--sync", "", "", None, "end only when everything is safe from a power failure",
              [](Options& options, Value) { options.receive.sync = true; }},
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
    OptionRow{ALL, "--log", "", "FILE", File, "append everything that is told to this file, with the time of day",
              [](Options& options, Value text) { options.output.log = text; }},
};

std::vector<OptionRow> AllOptions() {
  std::vector<OptionRow> rows(SEND_OPTIONS.begin(), SEND_OPTIONS.end());
  rows.insert(rows.end(), RECEIVE_OPTIONS.begin(), RECEIVE_OPTIONS.end());
  rows.insert(rows.end(), COMMON_OPTIONS.begin(), COMMON_OPTIONS.end());
  return rows;
}

const char* KindName(ValueKind kind) {
  switch (kind) {
    case None: return "none";
    case Text: return "text";
    case File: return "file";
    case Directory: return "directory";
    case ValueKind::Interface: return "interface";
    case Choice: return "choice";
  }
  return "";
}

Fact Describe(const OptionRow& row) {
  Fact fact("option");
  fact.Add("name", row.name).Add("short", row.shortName).Add("argument", row.argument).Add("kind", KindName(row.kind));
  return fact.Add("environment", EnvironmentName(row)).Add("help", row.help);
}

Fact Describe(const CommandRow& command) {
  std::vector<Fact> options;
  for (const OptionRow& row : OptionRows()) {
    if ((row.commands & static_cast<unsigned>(command.command)) != 0) options.push_back(Describe(row));
  }
  Fact fact("command");
  fact.Add("name", command.name).Add("summary", command.summary).Add("arguments", command.arguments);
  return fact.Add("arguments_help", command.argumentsHelp).Add("options", options);
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

std::string OptionTableAsJson() {
  std::vector<Fact> commands;
  for (const CommandRow& command : COMMANDS) commands.push_back(Describe(command));
  std::vector<Fact> exits;
  for (const ExitRow& row : ExitRows()) {
    Fact fact("exit");
    exits.push_back(fact.Add("code", row.code).Add("meaning", row.meaning));
  }
  Fact table("options");
  table.Add("program", "quorl").Add("version", QUORL_VERSION).Add("commands", commands).Add("exit_codes", exits);
  return fmt::format("{{{}}}", table.Fields());
}

}  // namespace quorl::cli
