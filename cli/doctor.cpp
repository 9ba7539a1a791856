// `quorl doctor`: reads what the machine says about itself, has it judged, and tries the network.
#include "cli/doctor.h"

#include <fmt/format.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "cli/findings.h"
#include "cli/inbox.h"
#include "cli/room.h"
#include "cli/round_trip.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

std::optional<uint64_t> NumberIn(const std::string& path) {
  uint64_t number = 0;
  return std::ifstream(path) >> number ? std::optional(number) : std::nullopt;
}

/// RcvbufErrors of the "Udp:" lines, of which the first holds the names and the second the values; proc(5).
std::optional<uint64_t> BufferOverflows() {
  std::ifstream file("/proc/net/snmp");
  std::string names;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("Udp:")) continue;
    if (names.empty()) {
      names = line;
      continue;
    }
    std::istringstream name(names);
    std::istringstream value(line);
    for (std::string left, right; name >> left && value >> right;) {
      if (left == "RcvbufErrors") return std::strtoull(right.c_str(), nullptr, 10);
    }
  }
  return std::nullopt;
}

std::optional<std::string> FirewallRules() {
  if (geteuid() != 0) return std::nullopt;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> listing(popen("nft list ruleset 2>/dev/null", "re"), pclose);
  if (!listing) return std::nullopt;
  std::string rules;
  std::array<char, 4096> part{};
  while (size_t count = std::fread(part.data(), 1, part.size(), listing.get())) rules.append(part.data(), count);
  int status = pclose(listing.release());
  return status == 0 ? std::optional(rules) : std::nullopt;
}

Device ReadDevice(const Network& network) {
  Device device{.name = network.interface.name};
  for (const Interface& one : ListInterfaces()) {
    if (one.name != device.name) continue;
    device.multicast = one.multicast;
    device.loopback = one.loopback;
  }
  // Loopback lacks the flag and carries multicast all the same.
  device.multicast = device.multicast || device.loopback;
  std::string folder = "/sys/class/net/" + device.name;
  device.mtu = static_cast<uint32_t>(NumberIn(folder + "/mtu").value_or(0));
  device.carrier = NumberIn(folder + "/carrier").value_or(1) != 0;
  std::error_code error;
  device.wireless = std::filesystem::exists(folder + "/wireless", error);
  return device;
}

/// Who else is on the group: another sender, and who listens.
Finding LookAround(Room& room) {
  try {
    room.Look();
  } catch (const Failure& failure) {
    Finding finding{Severity::Fault, "group", failure.what, failure.next};
    if (!failure.why.empty()) finding.text += ": " + failure.why;
    return finding;
  }
  size_t count = room.There().size();
  if (count == 0) return {Severity::Fine, "group", "free, nobody listens right now", {}};
  return {Severity::Fine,
          "group",
          fmt::format("free, {} right now", count == 1 ? "1 listens" : fmt::format("{} listen", count)),
          {}};
}

class Doctor {
 public:
  explicit Doctor(Reporter& reporter) : reporter(reporter) {}

  void Tell(const Finding& finding) {
    bool fine = finding.severity == Severity::Fine;
    bool hint = finding.severity == Severity::Hint;
    (fine ? fineOnes : hint ? hints : faults) += 1;
    Fact fact("finding");
    fact.Add("subject", finding.subject).Add("severity", fine ? "fine" : hint ? "hint" : "fault");
    fact.Add("text", finding.text).Add("next", finding.next);
    std::string mark = fine   ? reporter.Painted(Tint::Good, "fine ")
                       : hint ? reporter.Painted(Tint::Doubtful, "hint ")
                              : reporter.Painted(Tint::Bad, "FAULT");
    std::string text = fmt::format("  {}  {:<10}  {}", mark, finding.subject, finding.text);
    for (const std::string& line : finding.next) text += fmt::format("\n{:21}{}", "", line);
    reporter.Say(fact, text);
  }

  int Conclude() {
    std::string text = faults != 0
                           ? fmt::format("{} must be mended before transfers can work here.", Count(faults, "fault"))
                       : hints != 0 ? fmt::format("Transfers can work here; {} above.", Count(hints, "hint"))
                                    : "Nothing on this machine is in the way of transfers.";
    reporter.Say(Level::Always, Fact("verdict").Add("faults", faults).Add("hints", hints).Add("fine", fineOnes),
                 fmt::format("\n{}", text));
    reporter.Say(
        "If other machines hear nothing, or only for some minutes: run this there too, and see whether a\n"
        "switch between does IGMP snooping without a querier.");
    reporter.Result().Add("faults", faults).Add("hints", hints);
    return faults == 0 ? 0 : 1;
  }

 private:
  Reporter& reporter;
  uint64_t fineOnes = 0;
  uint64_t hints = 0;
  uint64_t faults = 0;
};

}  // namespace

int RunDoctor(const Options& options, Reporter& reporter) {
  Inbox inbox;
  Network network = ResolveNetwork(options.network);
  SayNetwork(reporter, network);
  Device device = ReadDevice(network);
  Doctor doctor(reporter);
  doctor.Tell(JudgeDevice(device, network.interface.address));
  doctor.Tell(JudgeRoute(network.interface, network.group, RoutedAddress(network.group)));
  doctor.Tell(JudgeMtu(device));
  doctor.Tell(JudgeBuffers(NumberIn("/proc/sys/net/core/rmem_max"), geteuid() == 0));
  doctor.Tell(JudgeOverflows(BufferOverflows()));
  doctor.Tell(JudgeFirewall(FirewallRules(), network.port));
  doctor.Tell(TryRoundTrip(network.group, network.port, network.interface.address));
  SetProfile(1);
  Room room(network, inbox);
  doctor.Tell(LookAround(room));
  return doctor.Conclude();
}

}  // namespace quorl::cli
