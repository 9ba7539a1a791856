// A machine's threads, and how they end when its power goes: each is unwound by an exception that leaves its next wait
// and is caught where the thread began, so that what it held is released as by any exception. Code that runs meanwhile,
// in destructors, finds every call failing and every wait over at once.
#include "sim/machine/machine.h"

#include <cassert>
#include <exception>
#include <stdexcept>

#include "sim/world/fibers/sanitizers.h"

namespace quorl::sim {

namespace {

struct PoweredOff {};

// More than a tear-down makes, few enough that a loop around a bounded wait is soon unwound.
constexpr uint64_t BOUNDED_WAITS_WITHOUT_POWER = 8;

constexpr uint64_t MOST_WAITS_WITHOUT_POWER = 1'000'000;

}  // namespace

SimMachine::SimMachine(const Surroundings& world, std::string name, uint32_t address)
    : world(world),
      name(std::move(name)),
      address(address),
      disk(world.patterns),
      shell(disk),
      clock(*this),
      threads(*this),
      network(*this, world.network),
      files(*this),
      windows(*this, threads),
      debug(*this),
      seam{clock, threads, network, files, shell, windows, debug} {}

SimMachine::~SimMachine() = default;

void SimMachine::Spawn(const std::string& threadName, std::function<void()> body) {
  if (!off) StartThread(threadName, "starts", std::move(body), [] {});
}

void SimMachine::Call(std::function<void()> body) {
  if (off) return;
  const auto over = std::make_shared<bool>(false);
  StartThread("call", "starts", std::move(body), [over] { *over = true; });
  if (!world.scheduler.RunUntil([&] { return *over; }, FOREVER))
    throw std::logic_error("a call waits for something that can never happen");
}

void SimMachine::PowerOff() {
  if (off) return;
  Log("power off");
  Thaw();
  off = true;
  network.CloseAll();
  world.scheduler.ForEachFlow(*this, [this](Flow& flow) { world.scheduler.Wake(flow); });
}

void SimMachine::PowerOn() {
  assert(off && runningThreads == 0 && "a machine is switched on while its former threads still unwind");
  Log("power on");
  off = false;
}

void SimMachine::Freeze() {
  if (off || frozen) return;
  Log("freezes");
  frozen = true;
  world.scheduler.Freeze(*this);
}

void SimMachine::Thaw() {
  if (!frozen) return;
  Log("thaws");
  frozen = false;
  world.scheduler.Thaw(*this);
}

bool SimMachine::Wait(Moment deadline, WaitKind kind) {
  if (!off) {
    if (kind == WaitKind::Bounded && deadline <= world.scheduler.Now()) return false;
    const bool woken = world.scheduler.Block(deadline);
    if (!off) return woken;
  }
  Flow& flow = world.scheduler.Current();
  if (flow.machine != this || std::uncaught_exceptions() > 0) return false;
  ++flow.waitsWithoutPower;
  assert(flow.waitsWithoutPower < MOST_WAITS_WITHOUT_POWER && "a thread cannot be unwound");
  if (kind == WaitKind::Bounded && flow.waitsWithoutPower <= BOUNDED_WAITS_WITHOUT_POWER) return false;
  throw PoweredOff();
}

Moment SimMachine::Deadline(Duration limit) const {
  const Moment now = world.scheduler.Now();
  if (limit >= FOREVER - now) return FOREVER;
  return now + clock.WorldDuration(std::max(limit, Duration::zero()));
}

Flow& SimMachine::StartThread(const std::string& threadName, const char* how, std::function<void()> body,
                              std::function<void()> atEnd) {
  Log("thread", threadName, how);
  ++runningThreads;
  const auto started = std::make_shared<char>();
  HappensBefore(started.get());
  return world.scheduler.Start(*this,
                               [this, started, threadName, body = std::move(body), atEnd = std::move(atEnd)]() mutable {
                                 HappensAfter(started.get());
                                 try {
                                   const Watched watched;
                                   if (!off) body();
                                   body = nullptr;
                                 } catch (const PoweredOff&) {
                                 }
                                 body = nullptr;
                                 --runningThreads;
                                 Log("thread", threadName, "ends");
                                 atEnd();
                               });
}

}  // namespace quorl::sim
