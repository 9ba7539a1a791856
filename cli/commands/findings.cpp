// What the facts of a machine mean for transfers.
#include "cli/commands/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr uint64_t WANTED_BUFFER = 1 << 20;
constexpr uint32_t DATAGRAM = 4796 + 8;  // a block with the UDP header
constexpr uint32_t IP_HEADER = 20;
constexpr uint32_t USUAL_MTU = 1500;

// Bytes a second for blocks of which a frame got lost: at a gigabit and 2 % lost frames some 15 MB.
constexpr uint64_t WANTED_REASSEMBLY = 15'000'000;

std::string PortsToOpen(uint32_t port) {
  return fmt::format("UDP {} and 28000 in on receivers, UDP {} in on the sender", port, port + 2);
}

/// The chains of a listing that see what comes in and drop what no rule accepts: their headers.
std::vector<std::string> ClosedInputChains(const std::string& rules) {
  std::vector<std::string> closed;
  std::istringstream lines(rules);
  std::string table;
  std::string chain;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string first;
    std::string second;
    words >> first >> second;
    if (first == "table") {
      words >> table;
      table = second + " " + table;
    }
    if (first == "chain") chain = second;
    if (line.find("hook input") != std::string::npos && line.find("policy drop") != std::string::npos) {
      closed.push_back(table + " " + chain);
    }
  }
  return closed;
}

}  // namespace

Finding JudgeDevice(const Device& device, uint32_t address) {
  std::string name = fmt::format("{} {}", device.name, FormatAddress(address));
  Finding finding{Severity::Fine, "interface", name + " is up and can multicast", {}};
  if (device.loopback) {
    finding = {Severity::Hint, "interface", name + " reaches this machine alone", {"Another: --interface NAME"}};
  } else if (!device.multicast) {
    finding = {Severity::Fault, "interface", name + " cannot multicast", {"Another: --interface NAME"}};
    if (const std::string command = CommandsFor(device.name).allowMulticast; !command.empty()) {
      finding.next.front() += ", or";
      finding.next.push_back(command);
    }
  } else if (!device.carrier) {
    finding = {Severity::Fault, "interface", name + " has no link", {"Is the cable plugged in, the switch on?"}};
  } else if (device.wireless) {
    finding = {Severity::Hint,
               "interface",
               name + " is wireless: access points carry multicast slowly and with losses",
               {"Use a cable, or a low --rate such as 5M."}};
  }
  return finding;
}

Finding JudgeListeners(const std::vector<std::string>& listening, const InterfaceChoice& choice) {
  const auto elsewhere =
      std::find_if(listening.begin(), listening.end(), [&](const std::string& name) { return name != choice.name; });
  if (elsewhere != listening.end()) {
    return {Severity::Hint,
            "receiver",
            fmt::format("one on this machine listens through {}, not through {}", *elsewhere, choice.name),
            {"It hears nothing that comes here. Without --interface it follows the network:",
             "stop it and start it again without, or with this one."}};
  }
  return {Severity::Fine,
          "receiver",
          listening.empty() ? "none listens on this machine now" : "one on this machine listens here",
          {}};
}

Finding JudgeMtu(const Device& device) {
  if (device.mtu == 0) return {Severity::Hint, "fragments", "the MTU of the interface is unknown", {}};
  uint32_t fragments = (DATAGRAM + device.mtu - IP_HEADER - 1) / (device.mtu - IP_HEADER);
  std::string text = fmt::format("MTU {}: each block travels in {}", device.mtu,
                                 fragments == 1 ? "one piece" : Count(fragments, "fragment"));
  if (device.mtu >= USUAL_MTU) return {Severity::Fine, "fragments", text, {}};
  return {Severity::Hint,
          "fragments",
          text + "; one lost loses the block",
          {"Is a tunnel in the way? Without one: " + CommandsFor(device.name).setUsualMtu}};
}

Finding JudgeRoute(const InterfaceChoice& choice, uint32_t group, uint32_t routed) {
  std::string name = FormatAddress(group);
  if (routed == choice.address) return {Severity::Fine, "route", fmt::format("{} goes out there", name), {}};
  std::string others;
  if (!choice.others.empty()) others = fmt::format("There are also {}.", fmt::join(choice.others, ", "));
  if (routed == 0) {
    Finding finding{Severity::Hint,
                    "route",
                    fmt::format("no route to {}; quorl names the interface itself, other programs may not", name),
                    {CommandsFor(choice.name).routeGroups}};
    if (!others.empty()) finding.next.push_back(others);
    return finding;
  }
  return {Severity::Hint,
          "route",
          fmt::format("{} would go out through {}; --interface has the say here", name, FormatAddress(routed)),
          {"Give the same --interface each time, or set QUORL_INTERFACE."}};
}

Finding JudgeBuffers(std::optional<uint64_t> limit, bool privileged) {
  if (privileged || !limit || *limit >= WANTED_BUFFER) {
    return {Severity::Fine, "buffers", "receivers get buffers of " + FormatBytes(WANTED_BUFFER), {}};
  }
  return {Severity::Hint,
          "buffers",
          fmt::format("receivers get buffers of {}, {} is wanted: bursts get lost and must be repaired",
                      FormatBytes(*limit), FormatBytes(WANTED_BUFFER)),
          {fmt::format("sysctl -w net.core.rmem_max={}", WANTED_BUFFER)}};
}

Finding JudgeOverflows(std::optional<uint64_t> overflows) {
  if (!overflows) return {Severity::Fine, "overflows", "this system does not count what full buffers lose", {}};
  if (*overflows == 0) return {Severity::Fine, "overflows", "no datagram was lost to a full buffer", {}};
  return {Severity::Hint,
          "overflows",
          fmt::format("{} were lost to full buffers since this machine started, of any program",
                      Count(*overflows, "datagram")),
          {"If the number grows while receiving: a lower --rate on the sender, or a larger buffer."}};
}

Finding JudgeReassembly(const Device& device, const std::optional<Reassembly>& reassembly) {
  if (device.mtu >= DATAGRAM + IP_HEADER)
    return {Severity::Fine, "reassembly", "no memory for fragments can run short here", {}};
  if (!reassembly) return {Severity::Fine, "reassembly", "this system does not tell of its memory for fragments", {}};
  const std::string memory =
      fmt::format("{} for fragments, kept for {} s", FormatBytes(reassembly->limit), reassembly->seconds);
  if (reassembly->refused == 0 && reassembly->limit / std::max<uint64_t>(reassembly->seconds, 1) >= WANTED_REASSEMBLY)
    return {Severity::Fine, "reassembly", memory, {}};
  std::string text = memory + ": where frames get lost it fills, and then nothing arrives";
  if (reassembly->refused != 0)
    text = fmt::format("{}; {} found none since this machine started", memory, Count(reassembly->refused, "fragment"));
  return {Severity::Hint, "reassembly", text, {fmt::format("sysctl -w {}", REASSEMBLY_CURE)}};
}

Finding JudgeFirewall(const std::optional<std::string>& rules, uint32_t port) {
  if (!rules) {
    return {Severity::Hint, "firewall", "its rules cannot be read here", {"It must let " + PortsToOpen(port) + "."}};
  }
  auto closed = ClosedInputChains(*rules);
  bool named = rules->find(std::to_string(port)) != std::string::npos;
  if (closed.empty()) return {Severity::Fine, "firewall", "nothing is dropped unless a rule says so", {}};
  if (named) return {Severity::Fine, "firewall", fmt::format("closed, with a rule for {}", port), {}};
  return {Severity::Hint,
          "firewall",
          fmt::format("\"{}\" drops what no rule accepts, and no rule names {}", closed.front(), port),
          {"It must let " + PortsToOpen(port) + ":",
           fmt::format("nft add rule {} input udp dport {{ {}, {}, 28000 }} accept",
                       closed.front().substr(0, closed.front().rfind(' ')), port, port + 2)}};
}

Finding JudgeEcho(const Echo& echo, uint32_t port, size_t size) {
  Finding finding{Severity::Fault, "round trip", "", {}};
  switch (echo.step) {
    case Echo::Step::PortTaken:
      finding.text = fmt::format("port {} cannot be used: {}", port, echo.why.text);
      finding.next = {"Which program holds it: " + CommandsFor("").listPorts,
                      "Or another --port, the same on all machines."};
      break;
    case Echo::Step::NotJoined:
      finding.text = fmt::format("the group cannot be joined: {}", echo.why.text);
      finding.next = {"Another: --interface NAME"};
      break;
    case Echo::Step::NotSent:
      finding.text = fmt::format("a datagram of {} bytes cannot be sent to the group: {}", size, echo.why.text);
      finding.next = {"A firewall of this machine may forbid it, or the interface has no route."};
      break;
    case Echo::Step::Lost:
      finding.text = fmt::format("{} bytes to the group did not come back to this machine", size);
      finding.next = {fmt::format("A firewall of this machine most likely drops UDP {}.", port)};
      break;
    case Echo::Step::CameBack:
      finding = {Severity::Fine, "round trip", fmt::format("{} bytes to the group came back", size), {}};
      break;
  }
  return finding;
}

}  // namespace quorl::cli
