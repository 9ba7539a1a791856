#pragma once

#include <string>

#include "platform/posix/descriptor.h"
#include "platform/relative_path.h"

namespace quorl {

/// How names are kept beneath a directory.
enum class Resolver {
  Kernel,     ///< One system call resolves the whole name and refuses every link on the way.
  Component,  ///< Component by component, none of which may be a link; for kernels and filters without that call.
};

/// Which of the two this process can use. To be asked once: a later refusal of one name is no reason to change.
Resolver ProbeResolver();

/// Opens `name` beneath the open directory `base` as open(2) does, never through a link. On failure errno says why.
Descriptor OpenBeneath(Resolver resolver, int base, const RelativePath& name, int flags, unsigned mode = 0);

/// The directory `path`, which links may lead to, as a starting point for the others.
Descriptor OpenBase(const std::string& path);

/// Makes each directory of `name` beneath `base` that is not there, one component at a time, each in a directory that
/// has been opened beneath `base`. False when one could not be made, and errno says why.
bool MakeDirectoriesBeneath(Resolver resolver, int base, const RelativePath& name);

}  // namespace quorl
