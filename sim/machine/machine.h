#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine.h"
#include "sim/machine/disk.h"
#include "sim/machine/faults.h"
#include "sim/machine/machine_files.h"
#include "sim/machine/machine_network.h"
#include "sim/machine/machine_threads.h"
#include "sim/machine/machine_windows.h"
#include "sim/machine/shell.h"
#include "sim/world/event_log.h"
#include "sim/world/scheduler.h"

namespace quorl::sim {

/// What the machines of a world share.
struct Surroundings {
  Scheduler& scheduler;
  SimNetwork& network;
  EventLog& log;
  Patterns& patterns;
};

/// One simulated machine: everything that the system asks of a machine, with a disk, a network address and a power
/// switch.
class SimMachine {
 public:
  SimMachine(const Surroundings& world, std::string name, uint32_t address);
  ~SimMachine();

  /// What a sender or receiver on this machine is made with. Its waits may be called from this machine's threads, and
  /// from the test itself, where the world runs meanwhile.
  const quorl::Machine& Seam() { return seam; }

  const std::string& Name() const { return name; }
  uint32_t Address() const { return address; }

  /// Starts a host thread on this machine.
  void Spawn(const std::string& threadName, std::function<void()> body);

  /// Runs `body` in a host thread of this machine, and the world until it has returned. Throws std::logic_error when it
  /// never can. To be called from the test itself.
  void Call(std::function<void()> body);

  /// A host window that only records. A sent message returns at once.
  QuorlWindow MakeWindow() { return windows.MakeWindow(nullptr); }

  /// A host window with a thread of its own, in which `procedure` gets the messages one by one, after they were
  /// recorded.
  QuorlWindow MakeWindow(WindowProcedure procedure) { return windows.MakeWindow(std::move(procedure)); }

  void DestroyWindow(QuorlWindow window) { windows.DestroyWindow(window); }

  /// Everything posted and sent to this machine's windows, in the order in which it was posted or sent.
  const std::vector<RecordedMessage>& Messages() const { return windows.Messages(); }

  /// Called with each message when it was recorded, on the thread that posts or sends it; it must not wait.
  void SetMessageTap(std::function<void(const RecordedMessage&)> tap) { windows.SetTap(std::move(tap)); }

  const std::vector<std::string>& DebugLines() const { return debug.lines; }

  SimDisk& Disk() { return disk; }
  SimShell& Shell() { return shell; }

  /// Which calls fail; see Faults for their names.
  void FailCall(sim::Seam kind, uint64_t nth) { faults.FailCall(kind, nth); }
  void FailCall(std::string call, uint64_t nth) { faults.FailCall(std::move(call), nth); }
  void FailEvery(Faults::Predicate predicate) { faults.FailEvery(std::move(predicate)); }
  uint64_t Calls(sim::Seam kind) const { return faults.Calls(kind); }

  /// Sockets that are open, and how often the socket library was started and not yet stopped.
  size_t OpenSockets() const { return network.OpenSockets(); }
  int NetworkStarts() const { return network.Starts(); }
  size_t OpenFiles() const { return openFiles; }

  /// Its link has stopped: no socket has room for a datagram to send, until it goes on.
  void HoldSends(bool hold) { network.HoldSends(hold); }
  bool SendsAreHeld() const { return network.SendsAreHeld(); }

  /// However big a receive buffer its sockets ask for, they get at most so many bytes. For sockets opened from now on.
  void LimitReceiveBuffers(size_t bytes) { network.LimitReceiveBuffers(bytes); }

  /// Threads that have not ended.
  size_t RunningThreads() const { return runningThreads; }

  /// The machine is gone at once: its sockets are closed, nothing that it asks for succeeds any more, and
  /// each of its threads is unwound at its next wait. The disk keeps what was written.
  void PowerOff();
  bool IsOff() const { return off; }

  /// Switches a machine on again whose power was off and whose threads have all ended. It finds its disk as it was;
  /// what ran on it is gone.
  void PowerOn();

  /// Nothing on this machine runs until it is thawed; its clock goes on, its network goes on receiving.
  void Freeze();
  void Thaw();

  /// The machine's clock gains so many millionths of the world's time from now on; below 0 it loses.
  void SetClockDrift(int64_t millionths) { clock.SetDrift(millionths); }

  // For the parts of the machine.

  enum class WaitKind {
    Unbounded,  ///< Without power, the thread is unwound.
    Bounded,    ///< Without power, times out at once a few times: it may belong to a tear-down in a destructor, which
                ///< must not be unwound.
  };

  /// One wait of the current thread: true when it was woken, false when `deadline` has come or the power is off.
  bool Wait(Moment deadline, WaitKind kind);

  /// When a wait of `limit` that begins now ends.
  Moment Deadline(Duration limit) const;

  /// Whether a call fails, because a test wants it to or because the power is off.
  bool Fails(sim::Seam kind, std::string_view call) { return faults.Hits(kind, call) || off; }

  /// Starts a thread that runs `body`, releases it, and then calls `atEnd`, also when the body was unwound.
  Flow& StartThread(const std::string& threadName, const char* how, std::function<void()> body,
                    std::function<void()> atEnd);

  void FileOpened() { ++openFiles; }
  void FileClosed() { --openFiles; }

  template <typename... Parts>
  void Log(const Parts&... parts) {
    world.log.Add(world.scheduler.Now(), name, parts...);
  }
  bool IsLogging() const { return world.log.IsOn(); }

  Scheduler& Schedule() { return world.scheduler; }

 private:
  class RecordedDebugOutput : public DebugOutput {
   public:
    explicit RecordedDebugOutput(SimMachine& machine) : machine(machine) {}
    void Write(std::string_view text) override {
      if (!machine.IsOff()) lines.emplace_back(text);
    }
    std::vector<std::string> lines;

   private:
    SimMachine& machine;
  };

  const Surroundings world;
  const std::string name;
  const uint32_t address;
  bool off = false;
  bool frozen = false;
  size_t runningThreads = 0;
  size_t openFiles = 0;
  Faults faults;
  SimDisk disk;
  SimShell shell;
  MachineClock clock;
  MachineThreads threads;
  MachineNetwork network;
  MachineFiles files;
  MachineWindows windows;
  RecordedDebugOutput debug;
  const quorl::Machine seam;
};

}  // namespace quorl::sim
