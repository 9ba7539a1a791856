#include "cli/system/streams.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

#include "cli/system/posix/error.h"
#include "platform/posix/open_files.h"

namespace quorl::cli {
namespace {

constexpr size_t PIECE = size_t{1} << 20;

std::string PathOf(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

}  // namespace

struct InputAsFile::State {
  Descriptor copy;
};

InputAsFile::Kind InputAsFile::Look() {
  struct stat status {};
  if (isatty(STDIN_FILENO) != 0) return Kind::Terminal;
  const bool hasLength = fstat(STDIN_FILENO, &status) == 0 && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode));
  return hasLength && lseek(STDIN_FILENO, 0, SEEK_CUR) == 0 ? Kind::File : Kind::Stream;
}

// Whoever opens the name gets the file itself, also one that has no name of its own any more.
InputAsFile::InputAsFile(const std::string& path) : state(std::make_shared<State>()) {
  int source = STDIN_FILENO;
  if (Look() == Kind::Stream) {
    state->copy = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    source = state->copy.Get();
    if (source < 0 || unlink(path.c_str()) != 0) {
      why = LastError();
      return;
    }
    PosixOutputFile file{Descriptor(fcntl(source, F_DUPFD_CLOEXEC, 0))};
    std::vector<uint8_t> piece(PIECE);
    ssize_t count = 0;
    while ((count = read(STDIN_FILENO, piece.data(), piece.size())) != 0) {
      if (count < 0 && errno == EINTR) continue;
      const auto bytes = std::span<const uint8_t>(piece).first(static_cast<size_t>(std::max<ssize_t>(count, 0)));
      if (count < 0 || file.WriteAt(copied, bytes) != WriteOutcome::Done) {
        why = LastError();
        return;
      }
      copied += bytes.size();
    }
  }
  if (symlink(PathOf(source).c_str(), path.c_str()) != 0) why = LastError();
}

struct Outlet::State {
  int descriptor = -1;
  Descriptor owned;
  mode_t kind = 0;
};

Outlet Outlet::StandardOutput() {
  Outlet outlet;
  struct stat status {};
  if (fstat(STDOUT_FILENO, &status) == 0) {
    outlet.state = std::make_shared<State>(State{STDOUT_FILENO, {}, status.st_mode});
  } else {
    outlet.why = LastError();
  }
  return outlet;
}

Outlet Outlet::Open(const std::string& path) {
  Outlet outlet;
  // With O_EXCL the system says when a disk is mounted.
  Descriptor descriptor(open(path.c_str(), O_WRONLY | O_EXCL | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (descriptor && fstat(descriptor.Get(), &status) == 0) {
    const int number = descriptor.Get();
    outlet.state = std::make_shared<State>(State{number, std::move(descriptor), status.st_mode});
  } else {
    outlet.why = LastError();
  }
  return outlet;
}

std::optional<uint64_t> Outlet::Room() const {
  if (!S_ISBLK(state->kind)) return std::nullopt;
  const off_t at = lseek(state->descriptor, 0, SEEK_CUR);
  const off_t end = lseek(state->descriptor, 0, SEEK_END);
  if (at < 0 || end < 0 || lseek(state->descriptor, at, SEEK_SET) < 0) return std::nullopt;
  return static_cast<uint64_t>(end - at);
}

std::optional<size_t> Outlet::Write(std::span<const char> bytes, std::chrono::milliseconds patience) {
  // A pipe that says that it can be written takes so much at once, and then none until somebody has read.
  const bool isOnDisk = S_ISREG(state->kind) || S_ISBLK(state->kind);
  const size_t count = isOnDisk ? bytes.size() : std::min<size_t>(bytes.size(), PIPE_BUF);
  pollfd ready{state->descriptor, POLLOUT, 0};
  const int found = poll(&ready, 1, static_cast<int>(patience.count()));
  if (found == 0 || (found < 0 && errno == EINTR)) return 0;
  const ssize_t written = found < 0 ? -1 : write(state->descriptor, bytes.data(), count);
  if (written >= 0) return static_cast<size_t>(written);
  if (errno == EINTR || errno == EAGAIN) return 0;
  why = LastError();
  return std::nullopt;
}

SystemError Outlet::Sync() const {
  const bool isOnDisk = S_ISREG(state->kind) || S_ISBLK(state->kind);
  return isOnDisk && fsync(state->descriptor) != 0 ? LastError() : SystemError();
}

}  // namespace quorl::cli
