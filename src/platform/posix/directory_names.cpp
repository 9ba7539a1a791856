// The one place that reads directories, for the lists of a sender and for the trees of the command.
#include "platform/posix/directory_names.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>

#include "platform/posix/descriptor.h"

namespace quorl {

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::optional<std::vector<std::string>> NamesIn(int directory) {
  Descriptor own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseDirectory> stream(own ? fdopendir(own.Get()) : nullptr);
  if (!stream) return std::nullopt;
  own.Release();
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* found = readdir(stream.get())) {
    const std::string name = found->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  if (errno != 0) return std::nullopt;
  return names;
}

}  // namespace quorl
