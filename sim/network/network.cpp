#include "sim/network/network.h"

#include <algorithm>
#include <cassert>

#include "sim/machine/machine.h"
#include "sim/network/socket.h"

namespace quorl::sim {

void SimNetwork::AddMachine(SimMachine& machine) {
  [[maybe_unused]] const bool added = machines.emplace(machine.Address(), &machine).second;
  assert(added && "two machines with one address");
}

void SimNetwork::SetLink(const LinkOptions& options) {
  common = options;
  ApplyRules();
}

void SimNetwork::SetLink(const SimMachine* from, const SimMachine* to, const LinkOptions& options) {
  std::erase_if(rules, [&](const LinkRule& rule) { return rule.from == from && rule.to == to; });
  rules.push_back({from, to, options});
  ApplyRules();
}

void SimNetwork::ResetLinks(const LinkOptions& options) {
  rules.clear();
  SetLink(options);
}

void SimNetwork::SetDelay(Duration newDelay) {
  common.delay = newDelay;
  ApplyRules();
}

void SimNetwork::SetLoss(double probability) {
  common.loss = probability;
  ApplyRules();
}

const LinkOptions& SimNetwork::OptionsFor(const Direction& direction) const {
  const auto fits = [&](const LinkRule& rule) {
    return (rule.from == nullptr || rule.from == direction.first) &&
           (rule.to == nullptr || rule.to == direction.second);
  };
  const auto rule = std::find_if(rules.rbegin(), rules.rend(), fits);
  return rule == rules.rend() ? common : rule->options;
}

Link& SimNetwork::LinkFor(const Direction& direction) {
  const auto found = links.find(direction);
  return found != links.end() ? found->second : links.emplace(direction, Link(OptionsFor(direction))).first->second;
}

void SimNetwork::ApplyRules() {
  for (auto& [direction, link] : links) link.SetOptions(OptionsFor(direction));
}

void SimNetwork::Carry(SentDatagram datagram) {
  ++datagrams;
  log.Add(datagram.at, datagram.from->Name(), "send", datagram.source, ">", datagram.destination,
          datagram.bytes.size());
  if (log.IsOn()) sent.push_back(datagram);
  const auto carried = std::make_shared<const SentDatagram>(std::move(datagram));
  if (tap) tap(*carried);
  const std::vector<SimSocket*> targets = Targets(*carried);
  const std::optional<Moment> left = PassUplink(*carried);
  if (left && HasPlainLinks()) return DeliverToAll(carried, targets, *left + common.delay);
  for (SimSocket* socket : targets) {
    if (&socket->Machine() == carried->from) {
      Deliver(carried, *socket, carried->at + common.delay);
    } else if (left) {
      CarryTo(*socket, carried, *left);
    }
  }
}

/// When it has left the machine, or what it shares with all others that this machine sends; nothing when it is lost.
std::optional<Moment> SimNetwork::PassUplink(const SentDatagram& datagram) {
  const auto found = uplinks.find(datagram.from);
  if (found == uplinks.end()) return datagram.at;
  const auto left = found->second.Pass(datagram.at, datagram.bytes.size());
  if (!left) {
    Note(Fate::QueueFull);
    log.Add(datagram.at, datagram.from->Name(), ToText(Fate::QueueFull));
  }
  return left;
}

Moment SimNetwork::RoomAt(const SimMachine& from) const {
  const auto found = uplinks.find(&from);
  return found == uplinks.end() ? Moment{0} : found->second.RoomAt();
}

void SimNetwork::CarryTo(SimSocket& target, const std::shared_ptr<const SentDatagram>& datagram, Moment left) {
  Link& link = LinkFor({datagram->from, &target.Machine()});
  if (link.LosesCall(datagram->call, random)) {
    Note(Fate::LostTogether);
    return log.Add(datagram->at, target.Machine().Name(), ToText(Fate::LostTogether));
  }
  const auto arrivals = link.Arrivals(left, datagram->bytes.size(), random);
  if (arrivals.size() > 1) Note(Fate::Copied);
  if (arrivals.empty()) {
    Note(Fate::QueueFull);
    log.Add(datagram->at, target.Machine().Name(), ToText(Fate::QueueFull));
  }
  for (const Moment at : arrivals) Deliver(datagram, target, at);
}

void SimNetwork::Deliver(const std::shared_ptr<const SentDatagram>& datagram, SimSocket& socket, Moment at) {
  scheduler.At(at, [this, socket = socket.shared_from_this(), datagram] { Arrive(*socket, datagram); });
}

// One event for all of them, which is most of what a big room costs.
void SimNetwork::DeliverToAll(const std::shared_ptr<const SentDatagram>& datagram,
                              const std::vector<SimSocket*>& targets, Moment at) {
  if (targets.empty()) return;
  std::vector<std::shared_ptr<SimSocket>> sockets;
  sockets.reserve(targets.size());
  for (SimSocket* socket : targets) sockets.push_back(socket->shared_from_this());
  scheduler.At(at, [this, sockets = std::move(sockets), datagram] {
    for (const auto& socket : sockets) Arrive(*socket, datagram);
  });
}

std::vector<SimSocket*> SimNetwork::Targets(const SentDatagram& datagram) {
  const auto& candidates = SocketsAt(datagram.destination.port);
  std::vector<SimSocket*> targets;
  if (IsGroupAddress(datagram.destination.address)) {
    for (SimSocket* socket : candidates)
      if (socket->HasJoined(datagram.destination.address)) targets.push_back(socket);
    return targets;
  }
  const auto latest = std::find_if(candidates.rbegin(), candidates.rend(), [&](const SimSocket* socket) {
    return socket->Accepts(datagram.destination.address);
  });
  if (latest != candidates.rend()) targets.push_back(*latest);
  return targets;
}

void SimNetwork::Arrive(SimSocket& socket, const std::shared_ptr<const SentDatagram>& datagram) {
  if (!socket.IsOpen()) return;
  const SimMachine& to = socket.Machine();
  const Transit transit{scheduler.Now(),       datagram->from,  &to,         datagram->source,
                        datagram->destination, datagram->bytes, deliveries++};
  Fate fate = FateOf(*datagram, to);
  if (fate == Fate::Delivered) {
    if (keep && !keep(transit)) {
      fate = Fate::Filtered;
    } else if (socket.IsOpen() && !socket.Take(datagram)) {
      fate = Fate::Overflowed;
    } else if (socket.IsLate(*datagram)) {
      Note(Fate::Overtaken);
    }
  }
  Note(fate);
  log.Add(scheduler.Now(), to.Name(), ToText(fate), datagram->source, ">", datagram->destination,
          datagram->bytes.size());
}

Fate SimNetwork::FateOf(const SentDatagram& datagram, const SimMachine& to) {
  if (datagram.from == &to) return Fate::Delivered;
  const auto isOnIsland = [&](const SimMachine* machine) {
    return std::find(island.begin(), island.end(), machine) != island.end();
  };
  if (!island.empty() && isOnIsland(datagram.from) != isOnIsland(&to)) return Fate::CutOff;
  if (HasPlainLinks()) return Happens(common.loss, random) ? Fate::LostByChance : Fate::Delivered;
  return LinkFor({datagram.from, &to}).FateOf(datagram.bytes, random);
}

}  // namespace quorl::sim
