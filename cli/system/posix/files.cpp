// Directories and files by the descriptors of the library's ground floor. A name is resolved beneath an open directory
// by one call that refuses every link on the way (platform/posix/beneath.h).
#include "cli/system/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "cli/system/path.h"
#include "cli/system/posix/error.h"
#include "platform/posix/beneath.h"
#include "platform/posix/directory_names.h"
#include "platform/posix/file_system.h"
#include "platform/posix/open_files.h"

namespace quorl::cli {
namespace {

constexpr int DIRECTORY_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr int READING_FLAGS = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t EVERYONE_READS = S_IRUSR | S_IRGRP | S_IROTH;

Resolver OwnResolver() {
  static const Resolver RESOLVER = ProbeResolver();
  return RESOLVER;
}

/// "a/b" as components; nothing for a name that could lead elsewhere, which has no business here.
std::optional<RelativePath> Components(std::string_view name) {
  std::string text(name);
  if (text.find('\\') != std::string::npos) return std::nullopt;
  std::replace(text.begin(), text.end(), '/', '\\');
  return RelativePath::FromText(text);
}

/// The errno of a call beneath a directory.
SystemError ErrorBeneath() {
  SystemError error = LastError();
  if (error.number == ENOTDIR || error.number == ELOOP)
    error.text = "a link or a file stands where its directory should be";
  if (error.number == EXDEV) error.text = "its directory is on another file system";
  return error;
}

SystemError NoneOr(bool done) {
  return done ? SystemError() : ErrorBeneath();
}

FileTime TimeOf(const timespec& time) {
  return {time.tv_sec, static_cast<uint32_t>(time.tv_nsec)};
}

std::optional<std::string> LinkIn(int parent, const std::string& name) {
  std::string text(PATH_MAX, '\0');
  const ssize_t length = readlinkat(parent, name.c_str(), text.data(), text.size());
  if (length < 0) return std::nullopt;
  text.resize(static_cast<size_t>(length));
  return text;
}

bool RemoveIn(int parent, const std::string& name) {
  if (unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  const Descriptor directory(openat(parent, name.c_str(), DIRECTORY_FLAGS | O_NOFOLLOW));
  const auto names = directory ? NamesIn(directory.Get()) : std::nullopt;
  bool emptied = names.has_value();
  for (const std::string& below : names.value_or(std::vector<std::string>()))
    emptied = RemoveIn(directory.Get(), below) && emptied;
  return emptied && (unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT);
}

}  // namespace

struct OpenedFile::State {
  explicit State(int descriptor) : descriptor(descriptor), file(Descriptor(descriptor)) {}

  const int descriptor;  // Of `file`, which owns it.
  PosixInputFile file;
  uint64_t position = 0;
};

struct Directory::State {
  explicit State(Descriptor descriptor) : descriptor(std::move(descriptor)) {}
  static int Of(const Directory& directory) { return directory.state ? directory.state->descriptor.Get() : -1; }

  const Descriptor descriptor;
};

OpenedFile OpenedFile::Open(const std::string& path) {
  OpenedFile opened;
  Descriptor descriptor(open(path.c_str(), READING_FLAGS));
  struct stat status {};
  if (!descriptor || fstat(descriptor.Get(), &status) != 0) {
    opened.why = LastError();
  } else if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
    opened.why = {SystemError::Kind::NotAFile, EINVAL, "it is not a regular file"};
  } else {
    posix_fadvise(descriptor.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    opened.state = std::make_shared<State>(descriptor.Release());
  }
  return opened;
}

std::optional<size_t> OpenedFile::Read(std::span<char> into) {
  const auto count = state->file.ReadAt(state->position, {reinterpret_cast<uint8_t*>(into.data()), into.size()});
  if (!count) why = LastError();
  state->position += count.value_or(0);
  return count;
}

void OpenedFile::SkipTo(uint64_t position) {
  state->position = position;
}

std::optional<FileStamp> OpenedFile::Stamp() const {
  struct stat status {};
  if (fstat(state->descriptor, &status) != 0) return std::nullopt;
  const auto size = state->file.Length();
  if (!size) return std::nullopt;
  return FileStamp{*size,
                   TimeOf(status.st_mtim),
                   TimeOf(status.st_ctim),
                   (status.st_mode & S_IXUSR) != 0,
                   (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0,
                   static_cast<uint16_t>(status.st_mode & 0777)};
}

SystemError OpenedFile::Describe(FileTime written, bool executable, std::optional<uint16_t> permissions) const {
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT},
                                      timespec{written.seconds, static_cast<long>(written.nanoseconds)}};
  struct stat status {};
  if (fstat(state->descriptor, &status) != 0) return LastError();
  const mode_t own = (status.st_mode & 0777) | (executable ? (status.st_mode & EVERYONE_READS) >> 2 : 0);
  const mode_t mode = permissions ? (*permissions & 0777) | S_IRUSR : own;
  return NoneOr(fchmod(state->descriptor, mode) == 0 && futimens(state->descriptor, times.data()) == 0);
}

SystemError OpenedFile::Sync() const {
  return NoneOr(fsync(state->descriptor) == 0);
}

bool HasLinks() {
  return true;
}

std::optional<std::string> LinkAt(const std::string& path) {
  return LinkIn(AT_FDCWD, path);
}

bool IsReadByEveryone(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0;
}

std::string CommandToHide(const std::string& path) {
  return "chmod 600 \"" + path + '"';
}

Directory Directory::Open(const std::string& path) {
  Descriptor descriptor(open(path.c_str(), DIRECTORY_FLAGS));
  if (!descriptor) return Directory(LastError());
  Directory directory;
  directory.state = std::make_shared<State>(std::move(descriptor));
  return directory;
}

std::optional<std::vector<std::string>> Directory::Names() const {
  return NamesIn(State::Of(*this));
}

std::optional<NamedThing> Directory::Look(const std::string& name) const {
  struct stat status {};
  if (fstatat(State::Of(*this), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  NamedThing thing{NamedThing::Kind::Other, status.st_nlink == 1, status.st_uid == geteuid(),
                   static_cast<uint64_t>(status.st_size)};
  if (S_ISREG(status.st_mode)) thing.kind = NamedThing::Kind::File;
  if (S_ISDIR(status.st_mode)) thing.kind = NamedThing::Kind::Directory;
  if (S_ISLNK(status.st_mode)) thing.kind = NamedThing::Kind::Link;
  return thing;
}

Directory Directory::Sub(std::string_view name, WhenAbsent whenAbsent) const {
  const auto path = Components(name);
  if (!path) return Directory(ErrorOf(EINVAL));
  Descriptor descriptor = OpenBeneath(OwnResolver(), State::Of(*this), *path, DIRECTORY_FLAGS);
  if (!descriptor && errno == ENOENT && whenAbsent == WhenAbsent::Make &&
      MakeDirectoriesBeneath(OwnResolver(), State::Of(*this), *path)) {
    descriptor = OpenBeneath(OwnResolver(), State::Of(*this), *path, DIRECTORY_FLAGS);
  }
  if (!descriptor) return Directory(ErrorBeneath());
  Directory sub;
  sub.state = std::make_shared<State>(std::move(descriptor));
  return sub;
}

OpenedFile Directory::Read(std::string_view name) const {
  OpenedFile opened;
  const auto path = Components(name);
  errno = EINVAL;
  Descriptor descriptor = path ? OpenBeneath(OwnResolver(), State::Of(*this), *path, READING_FLAGS) : Descriptor();
  struct stat status {};
  if (!descriptor || fstat(descriptor.Get(), &status) != 0) {
    opened.why = ErrorBeneath();
  } else if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
    opened.why = ErrorOf(EPERM);
  } else {
    opened.state = std::make_shared<OpenedFile::State>(descriptor.Release());
  }
  return opened;
}

SystemError Directory::MakePrivate(const std::string& name) const {
  return NoneOr(mkdirat(State::Of(*this), name.c_str(), 0700) == 0);
}

std::optional<std::string> Directory::LinkAt(const std::string& name) const {
  return LinkIn(State::Of(*this), name);
}

SystemError Directory::MakeLink(const std::string& name, const std::string& leadsTo) const {
  return NoneOr(symlinkat(leadsTo.c_str(), State::Of(*this), name.c_str()) == 0);
}

SystemError Directory::Write(const std::string& name, std::string_view text) const {
  Descriptor descriptor(openat(State::Of(*this), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!descriptor) return LastError();
  PosixOutputFile file(std::move(descriptor));
  const auto done = file.WriteAt(0, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  return NoneOr(done == WriteOutcome::Done && file.Close() == WriteOutcome::Done);
}

SystemError Directory::Move(const std::string& name, const Directory& to, const std::string& as, OntoName onto) const {
  const unsigned flags = onto == OntoName::Any ? 0 : RENAME_NOREPLACE;
  if (onto != OntoName::FreeByLink) {
    if (renameat2(State::Of(*this), name.c_str(), State::Of(to), as.c_str(), flags) == 0) return {};
    // An old kernel, a filter of system calls, or a file system that does not know the flag.
    if (onto == OntoName::Any || (errno != ENOSYS && errno != EINVAL && errno != EPERM)) return ErrorBeneath();
  }
  // A second name is given to free names only as well; then the first one goes.
  if (linkat(State::Of(*this), name.c_str(), State::Of(to), as.c_str(), 0) != 0) return ErrorBeneath();
  unlinkat(State::Of(*this), name.c_str(), 0);
  return {};
}

bool Directory::Remove(const std::string& name) const {
  return RemoveIn(State::Of(*this), name);
}

SystemError Directory::Sync() const {
  return NoneOr(fsync(State::Of(*this)) == 0);
}

Locked Directory::Lock(Locking locking) const {
  if (flock(State::Of(*this), (locking == Locking::Alone ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0) return Locked::Yes;
  return errno == EWOULDBLOCK ? Locked::Busy : Locked::Impossible;
}

bool Directory::IsOnFixedDisk() const {
  return !IsOnNetwork(State::Of(*this));
}

uint64_t Directory::FreeBytes() const {
  return FreeBytesAround(State::Of(*this)).value_or(0);
}

std::optional<uint64_t> Directory::FreeNames() const {
  return FreeNamesAround(State::Of(*this));
}

TemporaryDirectory::TemporaryDirectory(std::string_view prefix) {
  std::error_code failed;
  path = (std::filesystem::temp_directory_path(failed) / prefix).string() + "XXXXXX";
  if (failed) {
    error = {SystemError::Kind::Other, failed.value(), failed.message()};
  } else if (mkdtemp(path.data()) == nullptr) {
    error = LastError();
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  if (!error) std::filesystem::remove_all(path, ignored);
}

struct AppendedFile::State {
  explicit State(std::FILE* file) : file(file) {}
  ~State() { std::fclose(file); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  std::FILE* const file;
};

AppendedFile AppendedFile::Open(const std::string& path) {
  AppendedFile appended;
  std::FILE* const file = std::fopen(path.c_str(), "ae");
  if (file != nullptr) appended.state = std::make_shared<State>(file);
  if (file == nullptr) appended.why = LastError();
  return appended;
}

void AppendedFile::Write(std::string_view text) const {
  std::fwrite(text.data(), 1, text.size(), state->file);
  std::fflush(state->file);
}

std::vector<std::string> PathsOf(const std::string& word) {
  return {word};
}

}  // namespace quorl::cli
