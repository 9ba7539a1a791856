#include "platform/real_machine.h"

#include "platform/win32/clock.h"
#include "platform/win32/debug_output.h"
#include "platform/win32/drive_letters.h"
#include "platform/win32/files.h"
#include "platform/win32/host_windows.h"
#include "platform/win32/network.h"
#include "platform/win32/shell.h"
#include "platform/win32/threads.h"
#include "platform/win32/windows.h"

namespace quorl {

namespace {

// Made while the library is loaded, when the system allows little: no part starts a thread or loads anything.
struct Win32Machine {
  DriveLetters drives;
  Win32Clock clock;
  Win32Threads threads;
  Win32Network network;
  Win32Files files{drives};
  Win32Shell shell{drives};
  Win32Windows windows;
  HostWindows hostWindows{threads};
  Win32DebugOutput debug;
  Machine machine{clock, threads, network, files, shell, windows, debug};
};

Win32Machine& Parts() {
  static Win32Machine& parts = *new Win32Machine;
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
  return Parts().hostWindows.Create(proc, context);
}

void DestroyHostWindow(QuorlWindow window) {
  Parts().hostWindows.Destroy(window);
}

}  // namespace quorl
