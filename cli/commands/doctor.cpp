// `quorl doctor`: reads what the machine says about itself, has it judged, and tries the network.
#include "cli/commands/doctor.h"

#include <fmt/format.h>

#include "cli/commands/findings.h"
#include "cli/room/listeners.h"
#include "cli/show/units.h"
#include "cli/transfer/inbox.h"

namespace quorl::cli {
namespace {

constexpr size_t FULL_DATAGRAM = 4796;

/// Who else is on the group: another sender, and who listens.
Finding LookAround(Listeners& listeners) {
  try {
    listeners.Look();
  } catch (const Failure& failure) {
    Finding finding{Severity::Fault, "group", failure.what, failure.next};
    if (!failure.why.empty()) finding.text += ": " + failure.why;
    return finding;
  }
  size_t count = listeners.There().size();
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
  Venue venue = options.network.interface.empty() ? LookForVenue(options.network) : ResolveVenue(options.network);
  SayVenue(reporter, venue);
  Doctor doctor(reporter);
  if (!venue.HasInterface()) {
    doctor.Tell({Severity::Fault,
                 "interface",
                 "none but the loopback one is up and has an IPv4 address",
                 {"Is the cable plugged in, the switch on? ip address", "Receivers that wait take it when it comes."}});
    return doctor.Conclude();
  }
  Device device = ReadDevice(venue.interface.name);
  doctor.Tell(JudgeDevice(device, venue.interface.address));
  doctor.Tell(JudgeRoute(venue.interface, venue.group, RoutedAddress(venue.group)));
  doctor.Tell(JudgeMtu(device));
  doctor.Tell(JudgeListeners(InterfacesListening(venue.group), venue.interface));
  doctor.Tell(JudgeBuffers(ReceiveBufferLimit(), IsPrivileged()));
  doctor.Tell(JudgeOverflows(BufferOverflows()));
  doctor.Tell(JudgeReassembly(device, ReadReassembly()));
  doctor.Tell(JudgeFirewall(FirewallRules(), venue.port));
  const Echo echo = TryEcho(venue.group, venue.port, venue.interface.address, FULL_DATAGRAM);
  doctor.Tell(JudgeEcho(echo, venue.port, FULL_DATAGRAM));
  SetProfile(1);
  Listeners listeners(venue, inbox);
  doctor.Tell(LookAround(listeners));
  return doctor.Conclude();
}

}  // namespace quorl::cli
