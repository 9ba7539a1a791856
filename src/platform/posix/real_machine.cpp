#include "platform/real_machine.h"

#include "platform/posix/clock.h"
#include "platform/posix/debug_output.h"
#include "platform/posix/drives.h"
#include "platform/posix/files.h"
#include "platform/posix/network.h"
#include "platform/posix/shell.h"
#include "platform/posix/threads.h"
#include "platform/window_queue.h"

namespace quorl {

namespace {

struct PosixMachine {
  Drives drives;
  PosixClock clock;
  PosixThreads threads;
  PosixNetwork network;
  PosixFiles files{drives, ProbeResolver()};
  PosixShell shell{drives};
  WindowQueue windows{threads};
  PosixDebugOutput debug;
  Machine machine{clock, threads, network, files, shell, windows, debug};
};

PosixMachine& Parts() {
  static PosixMachine& parts = *new PosixMachine;
  return parts;
}

}  // namespace

const Machine& RealMachine() {
  return Parts().machine;
}

bool MapDrive(char letter, const std::string& directory) {
  return Parts().drives.Map(letter, directory);
}

std::optional<std::string> DrivePathOf(const std::string& localDirectory) {
  return Parts().drives.DrivePathOf(localDirectory);
}

QuorlWindow CreateHostWindow(QuorlWindowProc proc, void* context) {
  return Parts().windows.Create(proc, context);
}

void DestroyHostWindow(QuorlWindow window) {
  Parts().windows.Destroy(window);
}

}  // namespace quorl
