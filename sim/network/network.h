#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "platform/network.h"
#include "platform/time.h"
#include "sim/network/link.h"
#include "sim/world/event_log.h"
#include "sim/world/random.h"
#include "sim/world/scheduler.h"

namespace quorl::sim {

class SimMachine;
class SimSocket;

/// One datagram on its way to one socket.
struct Transit {
  Moment at;
  const SimMachine* from;
  const SimMachine* to;
  Endpoint source, destination;
  std::span<const uint8_t> datagram;
  uint64_t index;  ///< Counts the deliveries of a world, from 0.
};

struct SentDatagram {
  Moment at;
  const SimMachine* from = nullptr;
  Endpoint source, destination;
  std::vector<uint8_t> bytes;
  uint64_t call = 0;  ///< The same for all that left with one call; 0: with one of its own.
};

/// What connects the machines. A datagram to a group goes to every socket, of whatever machine, that is bound to its
/// port and has joined the group when it is sent, the sender's own machine included; any other datagram to the socket
/// of the addressed machine that is bound to the port, the latest bound if there are several.
class SimNetwork {
 public:
  SimNetwork(Scheduler& scheduler, Random& random, EventLog& log) : scheduler(scheduler), random(random), log(log) {}

  /// What every link does that has no options of its own. For what is sent from now on.
  void SetLink(const LinkOptions& options);

  /// One direction; nullptr stands for everybody. Of several that fit, the latest counts. What a machine sends to
  /// itself always arrives.
  void SetLink(const SimMachine* from, const SimMachine* to, const LinkOptions& options);

  /// Every link does what the options say, whatever it was told before.
  void ResetLinks(const LinkOptions& options = {});

  /// What this machine sends passes there, too.
  void SetUplink(const SimMachine& from, const Uplink::Options& options) {
    uplinks.insert_or_assign(&from, Uplink(options));
  }

  /// Nothing passes between these machines and the others, in either direction; an empty list ends that.
  void Partition(std::vector<const SimMachine*> newIsland) { island = std::move(newIsland); }

  /// From send to arrival; 100 us at first. As SetLink with all options else as they are.
  void SetDelay(Duration newDelay);

  /// The probability that a delivery is lost; drawn for each on its own, when it would arrive.
  void SetLoss(double probability);

  /// A delivery for which `newKeep` is false is lost. Called once for each, in the order of arrival, outside every
  /// thread; an empty function ends the filter.
  void SetFilter(std::function<bool(const Transit&)> newKeep) { keep = std::move(newKeep); }

  /// Called with each datagram when it is sent, on the thread that sends; it must not wait. An empty function ends it.
  void SetTap(std::function<void(const SentDatagram&)> newTap) { tap = std::move(newTap); }

  /// Every datagram that a machine's network took, while the world keeps a log.
  const std::vector<SentDatagram>& Sent() const { return sent; }

  uint64_t Deliveries() const { return deliveries; }
  uint64_t Count(Fate fate) const { return fates[static_cast<size_t>(fate)]; }
  uint64_t Datagrams() const { return datagrams; }

  // For the machines and their sockets.

  void AddMachine(SimMachine& machine);
  void Attach(SimSocket& socket, uint16_t port) { socketsByPort[port].push_back(&socket); }
  void Detach(SimSocket& socket, uint16_t port) { std::erase(socketsByPort[port], &socket); }
  const std::vector<SimSocket*>& SocketsAt(uint16_t port) { return socketsByPort[port]; }
  void Carry(SentDatagram datagram);
  /// Stands for the datagrams of one call.
  uint64_t NextCall() { return ++calls; }
  /// From when on a send of this machine need not wait for its link.
  Moment RoomAt(const SimMachine& from) const;

 private:
  struct LinkRule {
    const SimMachine* from;
    const SimMachine* to;
    LinkOptions options;
  };
  using Direction = std::pair<const SimMachine*, const SimMachine*>;

  std::vector<SimSocket*> Targets(const SentDatagram& datagram);
  void Deliver(const std::shared_ptr<const SentDatagram>& datagram, SimSocket& socket, Moment at);
  void DeliverToAll(const std::shared_ptr<const SentDatagram>& datagram, const std::vector<SimSocket*>& targets,
                    Moment at);
  std::optional<Moment> PassUplink(const SentDatagram& datagram);
  void CarryTo(SimSocket& target, const std::shared_ptr<const SentDatagram>& datagram, Moment left);
  void Arrive(SimSocket& socket, const std::shared_ptr<const SentDatagram>& datagram);
  Fate FateOf(const SentDatagram& datagram, const SimMachine& to);
  void Note(Fate fate) { ++fates[static_cast<size_t>(fate)]; }
  bool HasPlainLinks() const { return rules.empty() && common.IsPlain(); }
  const LinkOptions& OptionsFor(const Direction& direction) const;
  Link& LinkFor(const Direction& direction);
  void ApplyRules();

  Scheduler& scheduler;
  Random& random;
  EventLog& log;
  LinkOptions common;
  std::vector<LinkRule> rules;
  std::map<Direction, Link> links;              ///< Those in use, but for plain ones. Looked up, never walked in order.
  std::map<const SimMachine*, Uplink> uplinks;  ///< Looked up, never walked in order.
  std::vector<const SimMachine*> island;
  std::function<void(const SentDatagram&)> tap;
  std::function<bool(const Transit&)> keep;
  std::vector<SentDatagram> sent;
  uint64_t deliveries = 0;
  uint64_t datagrams = 0;
  uint64_t calls = 0;
  std::array<uint64_t, static_cast<size_t>(Fate::COUNT)> fates{};
  std::map<uint32_t, SimMachine*> machines;
  std::unordered_map<uint16_t, std::vector<SimSocket*>> socketsByPort;
};

}  // namespace quorl::sim
