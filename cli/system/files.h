// Files and directories as the command needs them. What is beneath a directory that other programs write in as well is
// never used as a path: nobody can lead what is read, made, moved or removed to another place by swapping a directory
// for a link in time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/system/error.h"

namespace quorl::cli {

/// A moment as file systems keep it, since 1970.
struct FileTime {
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;

  friend bool operator==(const FileTime&, const FileTime&) = default;
};

/// What a file is at one moment. Two that are equal stand for the same contents.
struct FileStamp {
  uint64_t size = 0;
  FileTime written;
  FileTime changed;                     ///< Contents or anything else.
  bool executable = false;              ///< Its owner may run it.
  bool isProgram = false;               ///< Somebody may.
  std::optional<uint16_t> permissions;  ///< Who may read, write and run it, 9 bits; nothing where there are none.

  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// A regular file, or a disk, that is open for reading, or the reason why it is not.
class OpenedFile {
 public:
  /// Links may lead to it; anything else is refused and not waited for.
  static OpenedFile Open(const std::string& path);

  explicit operator bool() const { return state != nullptr; }
  const SystemError& Why() const { return why; }

  /// Fills `into` with what comes next: less of it only at the end of the file, nothing when the file cannot be read.
  std::optional<size_t> Read(std::span<char> into);
  /// What comes next begins there.
  void SkipTo(uint64_t position);
  std::optional<FileStamp> Stamp() const;

  /// Sets when it was written, and who may read, write and run it, its owner read in any case; without permissions,
  /// lets those run it that may read it.
  SystemError Describe(FileTime written, bool executable, std::optional<uint16_t> permissions) const;

  /// Brings its contents to the disk itself.
  SystemError Sync() const;

 private:
  struct State;
  friend class Directory;
  OpenedFile() = default;

  std::shared_ptr<State> state;
  SystemError why;
};

/// Whether this system has symbolic links as others have them.
bool HasLinks();

/// What a symbolic link leads to, as it stands there; nothing when it is none.
std::optional<std::string> LinkAt(const std::string& path);

/// Whether any user of this machine may read the file.
bool IsReadByEveryone(const std::string& path);

/// What a person types so that none but the owner may.
std::string CommandToHide(const std::string& path);

/// What stands under a name: the thing itself, not what a link leads to.
struct NamedThing {
  enum class Kind { File, Directory, Link, Other };
  Kind kind = Kind::Other;
  bool hasOneName = false;  ///< No other name leads to the same file.
  bool isOurs = false;      ///< Owned by who runs this.
  uint64_t size = 0;
};

enum class WhenAbsent { Fail, Make };

/// What becomes of a name that is taken when a file is moved to it.
enum class OntoName {
  Free,        ///< Nothing is moved.
  FreeByLink,  ///< The same, as it is done where the system cannot do it in one step.
  Any,         ///< The new file takes its place.
};

enum class Locking { Alone, Shared };
enum class Locked { Yes, Busy, Impossible };

/// An open directory, or the reason why it is not open. Names are relative, with "/" between their components, none of
/// which may be a link or "..".
class Directory {
 public:
  Directory() = default;

  /// Links may lead to it.
  static Directory Open(const std::string& path);

  explicit operator bool() const { return state != nullptr; }
  const SystemError& Why() const { return why; }

  /// The names directly in it; nothing when it cannot be read to its end.
  std::optional<std::vector<std::string>> Names() const;

  /// Nothing when there is nothing of that name directly in it.
  std::optional<NamedThing> Look(const std::string& name) const;

  /// The directory `name` beneath this one; no name is this one.
  Directory Sub(std::string_view name, WhenAbsent whenAbsent = WhenAbsent::Fail) const;

  /// The regular file `name` beneath this directory, which has no other name.
  OpenedFile Read(std::string_view name) const;

  /// A directory directly in it that nobody else may enter, where what is moved out of it does not stay closed to them.
  SystemError MakePrivate(const std::string& name) const;

  /// What the symbolic link of that name directly in it leads to, as it stands there; nothing when it is none.
  std::optional<std::string> LinkAt(const std::string& name) const;

  /// A new symbolic link directly in it; of kind NotHere where the system has none.
  SystemError MakeLink(const std::string& name, const std::string& leadsTo) const;

  /// A new file directly in it that nobody else may read.
  SystemError Write(const std::string& name, std::string_view text) const;

  /// Moves a file directly in it to `as` directly in `to`, on the same file system, in one step.
  SystemError Move(const std::string& name, const Directory& to, const std::string& as, OntoName onto) const;

  /// Removes what has that name directly in it with all that is in it, links themselves and not what they lead to. True
  /// when nothing is left.
  bool Remove(const std::string& name) const;

  /// Brings the names in it to the disk itself.
  SystemError Sync() const;

  /// A lock on the directory, which goes when it is closed; one takes the place of another. Does not wait.
  Locked Lock(Locking locking) const;

  /// Not over a network, nor on what can be pulled out, where the system tells that.
  bool IsOnFixedDisk() const;
  uint64_t FreeBytes() const;                 ///< 0 when that cannot be told.
  std::optional<uint64_t> FreeNames() const;  ///< Files that can still be made; nothing where only bytes count.

 private:
  struct State;
  explicit Directory(SystemError why) : why(std::move(why)) {}

  std::shared_ptr<State> state;
  SystemError why;
};

/// A directory of this process alone, where the system has its place for such; goes with everything in it.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(std::string_view prefix);
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& Path() const { return path; }  ///< Where it is, or should have been.
  const SystemError& Why() const { return error; }  ///< Why there is none.

 private:
  std::string path;
  SystemError error;
};

/// A file that texts are appended to; programs that are started do not get it.
class AppendedFile {
 public:
  static AppendedFile Open(const std::string& path);

  explicit operator bool() const { return state != nullptr; }
  const SystemError& Why() const { return why; }
  void Write(std::string_view text) const;

 private:
  struct State;
  std::shared_ptr<State> state;
  SystemError why;
};

}  // namespace quorl::cli
