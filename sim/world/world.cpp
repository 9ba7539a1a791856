#include "sim/world/world.h"

#include <cassert>

namespace quorl::sim {

World::~World() {
  for (const auto& machine : machines) machine->PowerOff();
  // What is ready now is all that there is to unwind; later events have lost their meaning.
  scheduler.RunUntil([this] { return scheduler.RunningFlows() == 0; }, scheduler.Now());
  assert(scheduler.RunningFlows() == 0 && "a thread could not be unwound");
}

SimMachine& World::AddMachine(const std::string& name, uint32_t address) {
  const Surroundings surroundings{scheduler, network, log, patterns};
  SimMachine& machine = *machines.emplace_back(std::make_unique<SimMachine>(surroundings, name, address));
  network.AddMachine(machine);
  return machine;
}

void World::CutPower(SimMachine& machine) {
  machine.PowerOff();
  machine.Disk().LoseUnsynced(random);
}

void World::RunFor(Duration duration) {
  const Moment end = Now() + duration;
  scheduler.RunUntil([] { return false; }, end);
  scheduler.PassTimeTo(end);
}

bool World::RunUntil(const std::function<bool()>& done, Duration limit) {
  const bool bounded = limit < FOREVER - Now();
  return scheduler.RunUntil(done, bounded ? Now() + limit : FOREVER);
}

}  // namespace quorl::sim
