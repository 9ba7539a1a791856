#pragma once

#include "platform/clock.h"
#include "platform/debug_output.h"
#include "platform/files.h"
#include "platform/network.h"
#include "platform/shell.h"
#include "platform/threads.h"
#include "platform/windows.h"

namespace quorl {

/// Everything that the system asks of the machine it runs on. A sender or receiver is made with one and asks nothing
/// of the operating system beside it, so that the same code runs on a real machine and in a simulated room. What is
/// behind the references outlives every thread of the sender or receiver.
struct Machine {
  Clock& clock;
  Threads& threads;
  Network& network;
  Files& files;
  Shell& shell;
  Windows& windows;
  DebugOutput& debug;
};

}  // namespace quorl
