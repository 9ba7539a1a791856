#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/relative_path.h"

namespace quorl {

/// A file of the sender, open for reading. Used by one thread at a time.
class InputFile {
 public:
  virtual ~InputFile() = default;

  /// Its length in bytes at this moment; nothing when it cannot be told.
  virtual std::optional<uint64_t> Length() = 0;

  /// Fills `into` from `offset` on. Fewer bytes only at the end of the file; nothing on a read error.
  virtual std::optional<size_t> ReadAt(uint64_t offset, std::span<uint8_t> into) = 0;
};

enum class WriteOutcome {
  Done,
  DiskFull,  ///< No room, or over a quota.
  Removed,   ///< The file has lost its name: nobody will find what was written.
  Failed,
};

/// A file of the receiver, open for writing. Used by one thread at a time.
class OutputFile {
 public:
  virtual ~OutputFile() = default;

  /// All of `bytes` at `offset`, or an outcome other than Done. Zero bytes only test that the file is writable.
  virtual WriteOutcome WriteAt(uint64_t offset, std::span<const uint8_t> bytes) = 0;

  /// Closes the file. Some file systems tell only now that earlier writes have failed. Removed when that is so; no
  /// other call tells it. To be called once.
  virtual WriteOutcome Close() = 0;
};

/// Why something in a directory never travels.
enum class Unsent { No, LinkToDirectory, BrokenLink, Fifo, Socket, Device, Other };

struct DirectoryEntry {
  std::string name;
  bool isDirectory = false;
  Unsent unsent = Unsent::No;
};

/// What opening a file for writing does when it does not exist.
enum class WhenMissing { Fail, Create };

/// Result of opening a file for writing: the file, or why not.
struct OpenedOutput {
  std::unique_ptr<OutputFile> file;
  WriteOutcome outcome = WriteOutcome::Failed;  ///< Done exactly when `file` is set.
};

/// What stands at a path, possibly reached through links.
enum class PathKind {
  File,
  Directory,
  Other,    ///< A FIFO, socket or device: nothing that could be sent.
  Missing,  ///< Nothing, or nothing that can be looked at.
};

/// Directories and files by 8-bit paths of the form "C:\a\b". Any thread may use it.
class Files {
 public:
  virtual ~Files() = default;

  // What a sender asks: paths that its own host named.

  virtual PathKind KindOf(const std::string& path) = 0;

  /// The regular files (links to them too) and the directories (links to them not) in `path`, without "." and "..", and
  /// what else stands there as far as the machine can tell why it is not sent,
  /// in the order in which the file system names them; nothing when it cannot be listed.
  virtual std::optional<std::vector<DirectoryEntry>> ListDirectory(const std::string& path) = 0;

  /// nullptr when `path` is no regular file or cannot be opened. Never waits, whatever `path` is.
  virtual std::unique_ptr<InputFile> OpenInput(const std::string& path) = 0;

  // What a receiver asks: `base` is the target directory, which may be reached through links; `name` came from the
  // network and is resolved beneath it without following any link.

  /// Makes `base`, with the directories above it, where it does not exist; at the start of a transfer. Failures show
  /// when a file is opened.
  virtual void MakeTarget(const std::string& base) = 0;

  /// Makes every directory of `name` beneath `base` that does not exist. A target that somebody has removed is not made
  /// again. Failures show when a file is opened.
  virtual void CreateDirectories(const std::string& base, const RelativePath& name) = 0;

  /// Whether `name` is a regular file that can be opened for writing; creates nothing.
  virtual bool CanOpenOutput(const std::string& base, const RelativePath& name) = 0;

  /// Opens `name` for writing without truncating it; a new file is empty. Only a regular file with no other name is
  /// ever opened.
  virtual OpenedOutput OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) = 0;
};

}  // namespace quorl
