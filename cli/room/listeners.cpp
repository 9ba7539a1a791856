// The room before a transfer: the receivers that answer, by address and by name.
#include "cli/room/listeners.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/room/library_state.h"
#include "cli/show/progress.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto PATIENCE_FOR_NAMES = 300ms;
constexpr uint32_t QUESTIONS_A_LOOK = 3;
constexpr auto BETWEEN_LOOKS = 1s;

}  // namespace

Failure Listeners::CannotAsk() {
  const InboxEvent event = inbox.Next(300ms);
  if (event.kind == InboxEvent::Kind::Message && event.message == WM_TRANS_STATUS &&
      event.wParam == QUORL_STATUS_GROUP_BUSY) {
    QuorlSendState state{.size = sizeof state};
    GetSendState(&state);
    names.Ask(std::span(&state.otherSender, 1), PATIENCE_FOR_NAMES);
    return {Exit::GroupBusy,
            fmt::format("another sender is active on {}: {}", venue.GroupText(), names.Label(state.otherSender)),
            "one group carries one transfer at a time",
            {"Wait for its end (--wait 1h does), or use another --port on both sides."}};
  }
  return {Exit::Other,
          fmt::format("nobody can be asked on {} through {}", venue.GroupText(), venue.InterfaceText()),
          "a socket could not be opened, or nothing could be sent",
          {"Another program may hold the ports; another --port or --interface may help.",
           "\"quorl doctor\" checks this machine."}};
}

int Listeners::LookWhenFree(const Expected& expected, std::chrono::steady_clock::time_point deadline,
                            const std::function<void(const std::string&)>& tell) {
  for (bool told = false;; told = true) {
    try {
      Look(expected);
      return 0;
    } catch (const Failure& failure) {
      if (failure.code != Exit::GroupBusy || std::chrono::steady_clock::now() >= deadline) throw;
      if (!told) tell(failure.what);
    }
    if (const int signal = inbox.SignalWithin(BETWEEN_LOOKS)) return signal;
  }
}

void Listeners::Look(const Expected& expected) {
  Leave();
  if (expected.addresses.empty()) {
    SetExpectedReceivers(nullptr, expected.count);
  } else {
    SetExpectedReceivers(expected.addresses.data(), static_cast<uint32_t>(expected.addresses.size()));
  }
  if (InitServer(inbox.Window(), venue.group, venue.port, venue.interface.address) == 0) throw CannotAsk();
  ++looks;
  there.resize(MOST_RECEIVERS);
  there.resize(std::min<size_t>(GetReceivers(there.data(), MOST_RECEIVERS), MOST_RECEIVERS));
  std::sort(there.begin(), there.end(), IsBefore);
  names.Ask(there, PATIENCE_FOR_NAMES);
}

void Listeners::Leave() {
  DeInitServer();
}

bool Listeners::Has(uint32_t address) const {
  return std::find(there.begin(), there.end(), address) != there.end();
}

bool Listeners::TakeSymbols() const {
  const auto rows = RowsNow();
  return !rows.empty() && std::all_of(rows.begin(), rows.end(),
                                      [](const auto& row) { return (row.capabilities & QUORL_TAKES_SYMBOLS) != 0; });
}

std::vector<uint32_t> Listeners::MissingOf(std::span<const uint32_t> wanted) const {
  std::vector<uint32_t> missing;
  std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(missing),
               [this](uint32_t address) { return !Has(address); });
  return missing;
}

std::vector<uint32_t> Listeners::Named(const std::string& name) const {
  std::vector<uint32_t> bearers;
  std::copy_if(there.begin(), there.end(), std::back_inserter(bearers),
               [&](uint32_t address) { return names.Short(address) == name; });
  return bearers;
}

Failure Listeners::TooFew(uint32_t needed, std::span<const std::string> missing) const {
  std::string asked = fmt::format("on {} (asked {} through {})", venue.GroupText(),
                                  Count(uint64_t{QUESTIONS_A_LOOK} * looks, "time"), venue.InterfaceText());
  Failure failure{Exit::Nobody, "no receiver answered " + asked, "", {}};
  if (!there.empty() && !missing.empty()) {
    failure.what = fmt::format("{} did not answer {}", fmt::join(missing, ","), asked);
  } else if (!there.empty()) {
    failure.what = fmt::format("only {} of {} answered {}", there.size(), Count(needed, "receiver"), asked);
  }
  failure.next = {"- Is \"quorl receive\" running on the other machines, in the same network?",
                  fmt::format("- Firewalls must let UDP {} in on receivers and UDP {} in on this machine.", venue.port,
                              venue.port + 2)};
  if (!venue.interface.others.empty()) {
    failure.next.push_back(fmt::format("- This machine also has {}; to use another: --interface NAME",
                                       fmt::join(venue.interface.others, " and ")));
  }
  if (there.empty()) {
    failure.next.emplace_back("\"quorl doctor\" checks this machine.");
  } else if (missing.empty()) {
    failure.next.push_back(
        fmt::format("Nothing has been sent. To send to those who answered: --wait-for {}", there.size()));
  } else {
    failure.next.emplace_back("Nothing has been sent. To send to those of them who answered: --yes");
  }
  return failure;
}

std::string Listeners::Listing(size_t width, size_t mostLines, const std::string& hint) const {
  std::vector<std::string> labels;
  for (uint32_t address : there) labels.push_back(names.Label(address));
  return InColumns(labels, width, mostLines, hint);
}

Fact Listeners::AsFact() const {
  std::vector<Fact> rows;
  for (uint32_t address : there) {
    Fact row("listener");
    rows.push_back(row.Add("address", FormatAddress(address)).Add("name", names.Short(address)));
  }
  return Fact("receivers").Add("count", there.size()).Add("receivers", rows);
}

}  // namespace quorl::cli
