// Confinement of received names. A name from the network is only ever used through the functions here: a check of the
// path followed by its use could be outrun by somebody who swaps a directory for a link in between.
#include "platform/posix/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>

namespace quorl {

namespace {

constexpr int DIRECTORY_FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;

// The kernel gives up with EAGAIN when a directory is renamed while it resolves.
constexpr int RENAME_RETRIES = 100;

int OpenAt2(int base, const std::string& path, int flags, unsigned mode) {
  open_how how{};
  how.flags = static_cast<unsigned>(flags);
  how.mode = (flags & O_CREAT) ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  for (int tries = 0;; ++tries) {
    const long descriptor = syscall(SYS_openat2, base, path.c_str(), &how, sizeof how);
    const bool again = errno == EINTR || (errno == EAGAIN && tries < RENAME_RETRIES);
    if (descriptor >= 0 || !again) return static_cast<int>(descriptor);
  }
}

int OpenAt(int directory, const std::string& component, int flags, unsigned mode) {
  int descriptor = -1;
  do {
    descriptor = openat(directory, component.c_str(), flags | O_NOFOLLOW, mode);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

Descriptor WalkBeneath(int base, const RelativePath& name, int flags, unsigned mode) {
  if (name.IsEmpty()) return Descriptor(OpenAt(base, ".", flags, mode));
  const RelativePath above = name.Parent();
  Descriptor parent;
  int directory = base;
  for (const std::string& component : above.Components()) {
    parent = Descriptor(OpenAt(directory, component, DIRECTORY_FLAGS, 0));
    if (!parent) return {};
    directory = parent.Get();
  }
  return Descriptor(OpenAt(directory, name.Components().back(), flags, mode));
}

std::string Joined(const RelativePath& name) {
  std::string path;
  for (const std::string& component : name.Components()) path += (path.empty() ? "" : "/") + component;
  return path.empty() ? "." : path;
}

}  // namespace

Resolver ProbeResolver() {
  const Descriptor root(OpenAt2(AT_FDCWD, ".", DIRECTORY_FLAGS, 0));
  return !root && (errno == ENOSYS || errno == EPERM) ? Resolver::Component : Resolver::Kernel;
}

Descriptor OpenBeneath(Resolver resolver, int base, const RelativePath& name, int flags, unsigned mode) {
  if (resolver == Resolver::Component) return WalkBeneath(base, name, flags, mode);
  return Descriptor(OpenAt2(base, Joined(name), flags | O_NOFOLLOW, mode));
}

Descriptor OpenBase(const std::string& path) {
  return Descriptor(open(path.c_str(), DIRECTORY_FLAGS));
}

bool MakeDirectoriesBeneath(Resolver resolver, int base, const RelativePath& name) {
  if (name.IsEmpty()) return true;
  const RelativePath above = name.Parent();
  Descriptor parent = OpenBeneath(resolver, base, above, DIRECTORY_FLAGS);
  if (!parent) {
    if (errno != ENOENT || !MakeDirectoriesBeneath(resolver, base, above)) return false;
    parent = OpenBeneath(resolver, base, above, DIRECTORY_FLAGS);
  }
  return parent && (mkdirat(parent.Get(), name.Components().back().c_str(), 0777) == 0 || errno == EEXIST);
}

}  // namespace quorl
