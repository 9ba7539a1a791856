// The room before a transfer: who answers, by address and by name.
#include "cli/room.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>

#include "cli/progress.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto PATIENCE_FOR_NAMES = 300ms;
constexpr uint32_t QUESTIONS_A_LOOK = 3;

Failure CannotAsk(const Network& network, Inbox& inbox) {
  Event event = inbox.Next(300ms);
  if (event.kind == Event::Kind::Message && event.message == WM_TRANS_STATUS &&
      event.wParam == QUORL_STATUS_GROUP_BUSY) {
    return {Exit::GroupBusy,
            fmt::format("another sender is active on {}", network.GroupText()),
            "one group carries one transfer at a time",
            {"Wait for its end, or use another --port on both sides."}};
  }
  return {Exit::Other,
          fmt::format("nobody can be asked on {} through {}", network.GroupText(), network.InterfaceText()),
          "a socket could not be opened, or nothing could be sent",
          {"Another program may hold the ports; another --port or --interface may help.",
           "\"quorl doctor\" checks this machine."}};
}

}  // namespace

void Room::Look() {
  Leave();
  if (InitServer(inbox.Window(), network.group, network.port, network.interface.address) == 0) {
    throw CannotAsk(network, inbox);
  }
  ++looks;
  there.resize(MOST_RECEIVERS);
  there.resize(std::min<size_t>(GetReceivers(there.data(), MOST_RECEIVERS), MOST_RECEIVERS));
  std::sort(there.begin(), there.end(), [](uint32_t a, uint32_t b) { return ntohl(a) < ntohl(b); });
  names.Ask(there, PATIENCE_FOR_NAMES);
}

void Room::Leave() {
  DeInitServer();
}

bool Room::Has(uint32_t address) const {
  return std::find(there.begin(), there.end(), address) != there.end();
}

std::vector<uint32_t> Room::MissingOf(std::span<const uint32_t> wanted) const {
  std::vector<uint32_t> missing;
  std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(missing),
               [this](uint32_t address) { return !Has(address); });
  return missing;
}

Failure Room::TooFew(uint32_t needed, std::span<const uint32_t> wanted) const {
  std::string asked = fmt::format("on {} (asked {} through {})", network.GroupText(),
                                  Count(uint64_t{QUESTIONS_A_LOOK} * looks, "time"), network.InterfaceText());
  Failure failure{Exit::Nobody, "no receiver answered " + asked, "", {}};
  auto missing = MissingOf(wanted);
  if (!there.empty() && !wanted.empty()) {
    failure.what = fmt::format("{} did not answer {}", AddressList(missing), asked);
  } else if (!there.empty()) {
    failure.what = fmt::format("only {} of {} answered {}", there.size(), Count(needed, "receiver"), asked);
  }
  failure.next = {"- Is \"quorl receive\" running on the other machines, in the same network?",
                  fmt::format("- Firewalls must let UDP {} in on receivers and UDP {} in on this machine.",
                              network.port, network.port + 2)};
  if (!network.interface.others.empty()) {
    failure.next.push_back(fmt::format("- This machine also has {}; to use another: --interface NAME",
                                       fmt::join(network.interface.others, " and ")));
  }
  if (there.empty()) {
    failure.next.emplace_back("\"quorl doctor\" checks this machine.");
  } else if (wanted.empty()) {
    failure.next.push_back(
        fmt::format("Nothing has been sent. To send to those who answered: --wait-for {}", there.size()));
  } else {
    failure.next.emplace_back("Nothing has been sent.");
  }
  return failure;
}

std::string Room::Listing(size_t width, size_t mostLines, const std::string& hint) const {
  size_t column = 0;
  for (uint32_t address : there) column = std::max(column, Columns(names.Label(address)) + 4);
  size_t perLine = std::max<size_t>(1, width / std::max<size_t>(column, 1));
  std::string text;
  size_t shown = std::min(there.size(), perLine * mostLines);
  // The count of the rest takes the last place.
  if (shown < there.size()) --shown;
  for (size_t i = 0; i < shown; ++i) {
    std::string label = names.Label(there[i]);
    bool ends = i + 1 == there.size() || (i + 1) % perLine == 0;
    text += (i % perLine == 0 ? "  " : "") + label + (ends ? "" : std::string(column - Columns(label), ' '));
    if (ends && i + 1 < there.size()) text += '\n';
  }
  if (shown < there.size()) text += fmt::format("... {} more{}", there.size() - shown, hint);
  return text;
}

Fact Room::AsFact() const {
  std::vector<Fact> rows;
  for (uint32_t address : there) {
    Fact row("listener");
    rows.push_back(row.Add("address", FormatAddress(address)).Add("name", names.Short(address)));
  }
  return Fact("receivers").Add("count", there.size()).Add("receivers", rows);
}

std::string AddressList(std::span<const uint32_t> addresses) {
  std::string list;
  for (uint32_t address : addresses) list += (list.empty() ? "" : ",") + FormatAddress(address);
  return list;
}

}  // namespace quorl::cli
