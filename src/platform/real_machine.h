// The machine that the process really runs on, and what a host may tell it.
#pragma once

#include <quorl/host.h>

#include <optional>
#include <string>

#include "platform/machine.h"

namespace quorl {

/// Made at the first call and never destroyed, so that threads that outlive a host's main function still find it.
const Machine& RealMachine();

/// Puts `directory` behind "X:\" for every path that is resolved from now on. False for a bad letter or no such
/// directory.
bool MapDrive(char letter, const std::string& directory);

/// The drive path, "C:\a\b", of an existing local directory, by the mapped drive whose directory is nearest above it.
/// Where no drive covers it, or the path would hold one of * ? < >, maps the first free letter from Z downward to it.
/// Nothing when it is no directory, no letter is free, or its path holds a backslash, which no drive path can say.
std::optional<std::string> DrivePathOf(const std::string& localDirectory);

/// nullptr when `proc` is null or the window's thread cannot be started.
QuorlWindow CreateHostWindow(QuorlWindowProc proc, void* context);

/// Waits for a running procedure, unless called from it; drops what is queued.
void DestroyHostWindow(QuorlWindow window);

}  // namespace quorl
