#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/time.h"
#include "sim/machine/machine.h"
#include "sim/network/network.h"
#include "sim/world/event_log.h"
#include "sim/world/random.h"
#include "sim/world/scheduler.h"

namespace quorl::sim {

/// Machines, the network between them, and a time of their own. Everything that happens follows from its seed and from
/// what the test does: the same again gives the same run, to the last datagram and the last byte of the event log.
///
/// The threads of all machines take turns in the thread of the test, which is outside the world: it sets things up,
/// lets the world run for a while, and looks at what has become of it. One world at a time runs in a thread.
class World {
 public:
  explicit World(uint64_t seed) : random(seed) {}

  /// Switches every machine off and lets their threads unwind.
  ~World();

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// The machine lives as long as the world. Two machines never share an address.
  SimMachine& AddMachine(const std::string& name, uint32_t address);

  /// As PowerOff; but what the machine has not had time to put on its disk is lost, see SimDisk::LoseUnsynced.
  void CutPower(SimMachine& machine);

  Moment Now() const { return scheduler.Now(); }

  void RunFor(Duration duration);

  /// Lets the world run until `done` holds, tested after each of its steps, so that time stands at the moment it became
  /// true. False when it does not within `limit`, or at once when nothing can ever happen any more.
  bool RunUntil(const std::function<bool()>& done, Duration limit);

  /// Runs `action` at `moment`, outside every thread; it must not wait.
  void At(Moment moment, std::function<void()> action) { scheduler.At(moment, std::move(action)); }

  SimNetwork& Net() { return network; }
  sim::Random& Chance() { return random; }

  const std::string& EventLog() const { return log.Text(); }

  /// Off: no event log, no Sent(), and names of files are not recorded among the messages. For big runs.
  void SetLogging(bool isOn) { log.SetOn(isOn); }

 private:
  sim::Random random;
  sim::EventLog log;
  Scheduler scheduler;
  Patterns patterns;
  SimNetwork network{scheduler, random, log};
  std::vector<std::unique_ptr<SimMachine>> machines;
};

}  // namespace quorl::sim
