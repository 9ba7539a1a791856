// The command line. The only file that knows the parser: it compiles for ten seconds, and the rest of the command is
// tested with plain structures.
#include "cli/options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>

#include "cli/units.h"

namespace quorl::cli {
namespace {

constexpr size_t LONGEST_NAME = 519;

uint32_t ParseGroup(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1 || !IN_MULTICAST(ntohl(address.s_addr))) {
    throw CLI::ValidationError("--group",
                               "\"" + text + "\" is no IPv4 multicast address (224.0.0.0 to 239.255.255.255)");
  }
  return address.s_addr;
}

/// The range without its description, which would stand in the help instead of the option's own words.
CLI::Validator Between(int lowest, int highest) {
  return CLI::Range(lowest, highest).description("");
}

void AddNetworkOptions(CLI::App& command, NetworkOptions& network) {
  command
      .add_option_function<std::string>(
          "--group", [&network](const std::string& text) { network.group = ParseGroup(text); },
          "multicast group (235.9.2.9)")
      ->type_name("ADDRESS");
  command.add_option("--port", network.port, "UDP port of the group; answers come on the port two above (27001)")
      ->check(Between(1, 65533))
      ->type_name("N");
  command.add_option("--interface", network.interface, "local address or interface name to use")
      ->type_name("ADDRESS|NAME");
}

void AddSendOptions(CLI::App& command, SendOptions& send, bool& waitGiven) {
  command.add_option("PATH", send.paths, "files and directories to send")->required()->type_name("");
  AddNetworkOptions(command, send.network);
  command
      .add_option_function<std::string>(
          "--rate",
          [&send](const std::string& text) {
            auto rate = ParseRate(text);
            if (!rate)
              throw CLI::ValidationError("--rate", "\"" + text + "\" is no rate; say 200M, 1.5G or compatible");
            send.rate = *rate;
          },
          "bit/s on the wire, with K, M or G; \"compatible\": the fixed pace of older hosts (100M)")
      ->type_name("R");
  command.add_option("--wait-for", send.waitFor, "start when N receivers have answered (1)")
      ->check(Between(1, 200))
      ->type_name("N");
  command
      .add_option_function<int>(
          "--wait",
          [&send, &waitGiven](int seconds) {
            send.wait = std::chrono::seconds(seconds);
            waitGiven = true;
          },
          "how long to wait for receivers (30 with --wait-for, else they are asked once)")
      ->check(Between(0, 86400))
      ->type_name("SECONDS");
  command.add_flag_callback(
      "--no-subdirs", [&send] { send.subdirectories = false; }, "of a directory send only the files directly in it");
  command
      .add_option_function<std::string>(
          "--target",
          [&send](const std::string& text) {
            send.target = TargetFromText(text);
            if (send.target.empty()) {
              throw CLI::ValidationError("--target",
                                         "\"" + text + "\" is neither an absolute directory nor a drive path");
            }
          },
          "directory that receivers are asked to use; \"quorl receive\" keeps to its own")
      ->type_name("DIR");
  command
      .add_option_function<std::string>(
          "--open-name",
          [&send](const std::string& text) {
            send.openName = OpenNameFromText(text);
            if (send.openName.empty()) throw CLI::ValidationError("--open-name", "\"" + text + "\" cannot travel");
          },
          "file of the selection that receiving hosts are to open at the end")
      ->type_name("NAME");
}

void AddReceiveOptions(CLI::App& command, ReceiveOptions& receive) {
  command.add_option("DIR", receive.directory, "directory that everything is kept under (the current one)")
      ->type_name("");
  AddNetworkOptions(command, receive.network);
  command
      .add_option_function<int>(
          "--timeout", [&receive](int seconds) { receive.timeout = std::chrono::seconds(seconds); },
          "give up when no transfer has started by then")
      ->check(Between(1, 604800))
      ->type_name("SECONDS");
}

}  // namespace

std::string TargetFromText(const std::string& text) {
  std::string target = text;
  bool local = target.starts_with('/');
  if (local && target.find('\\') != std::string::npos) return "";
  if (local) {
    while (target.size() > 1 && target.back() == '/') target.pop_back();
    std::replace(target.begin(), target.end(), '/', '\\');
    target = "C:" + target;
  }
  bool drivePath = target.size() >= 3 && std::isalpha(static_cast<unsigned char>(target[0])) != 0 && target[1] == ':' &&
                   target[2] == '\\';
  return drivePath && target.size() <= LONGEST_NAME ? target : "";
}

std::string OpenNameFromText(const std::string& text) {
  std::string name = text;
  std::replace(name.begin(), name.end(), '/', '\\');
  if (!name.starts_with('\\')) name = "\\" + name;
  return name.size() > 1 && name.size() <= LONGEST_NAME ? name : "";
}

Invocation ParseCommandLine(int argumentCount, const char* const* arguments) {
  Invocation invocation;
  bool waitGiven = false;
  CLI::App app("Sends files and directories from one machine to a room of machines at once.", "quorl");
  app.set_version_flag("--version", "quorl " QUORL_VERSION);
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  quorl receive                  on every machine that is to get the files, in the directory for them\n"
      "  quorl send PATH...             on the machine that has them\n"
      "  quorl demo                     the whole thing on this machine alone\n"
      "Exit codes: 0 all complete, 1 other error, 2 usage, 3 nobody there, 4 partly, 5 all failed,\n"
      "  6 group busy, 7 local files, 8 no room or unsuitable disk, 9 peer lost, 130/143 by signal");
  CLI::App* send = app.add_subcommand("send", "send files and directories to everyone who listens");
  AddSendOptions(*send, invocation.send, waitGiven);
  CLI::App* receive = app.add_subcommand("receive", "wait for a transfer and receive it");
  AddReceiveOptions(*receive, invocation.receive);
  app.add_subcommand("demo", "one sender and three receivers on this machine, with a proof");
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    std::ostringstream text;
    bool wanted = app.exit(error, text, text) == 0;
    invocation.text = (wanted ? "" : "error: ") + text.str();
    if (!invocation.text.ends_with('\n')) invocation.text += '\n';
    invocation.exitCode = wanted ? 0 : 2;
    return invocation;
  }
  if (!waitGiven && send->count("--wait-for") != 0) invocation.send.wait = std::chrono::seconds(30);
  invocation.command = send->parsed() ? Command::Send : receive->parsed() ? Command::Receive : Command::Demo;
  return invocation;
}

}  // namespace quorl::cli
