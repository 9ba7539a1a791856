#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/shell.h"
#include "platform/time.h"
#include "sim/machine/content.h"
#include "sim/world/random.h"

namespace quorl::sim {

using Bytes = std::vector<uint8_t>;

/// A file, and what of it would outlast a failure of the power.
struct DiskFile : FileContent {
  using FileContent::FileContent;

  std::optional<FileContent> durable{};  ///< As it was before the machine wrote to it; nothing: all of it is durable.
  bool isNew = false;                    ///< Its name is not durable either.
};

/// The drives of one machine, in memory. At first there is C:, a fixed disk with a terabyte free.
///
/// Paths have the form "C:\a\b"; "/" divides too, a path without a letter is on C:. Letters of drives may be small or
/// capital, names count as written.
class SimDisk {
 public:
  explicit SimDisk(Patterns& patterns);
  ~SimDisk();

  // What a test puts there and finds there.

  /// Makes the directories on the way; replaces the content of a file that exists, also where it is open.
  void Write(const std::string& path, std::span<const uint8_t> bytes);
  void Write(const std::string& path, std::string_view text);

  /// A file of `length` bytes that follow from `seed` and take no memory, however many they are and wherever in this
  /// world they are copied to.
  void WriteSynthetic(const std::string& path, uint64_t length, uint64_t seed);

  std::optional<Bytes> Read(const std::string& path) const;
  std::optional<uint64_t> Length(const std::string& path) const;
  void MakeDirectory(const std::string& path);
  /// Something that is neither a file nor a directory. It can be neither opened nor listed.
  void MakeFifo(const std::string& path);

  /// A file, or a directory with everything in it. A file that is open stays with its handles.
  void Remove(const std::string& path);

  /// Everything beneath a directory, sorted: "a", "a\b.txt".
  std::vector<std::string> List(const std::string& path) const;

  /// The files beneath a directory with their contents. A directory is not in it.
  std::map<std::string, Bytes> Tree(const std::string& path) const;

  /// Whether the directory holds the same names with the same contents as one of another disk.
  bool SameTree(const std::string& path, const SimDisk& other, const std::string& otherPath) const;

  // How it behaves.

  void AddDrive(char letter, DriveType type);
  void SetDriveType(DriveType type, char letter = 'C');

  /// Room for files to grow on a drive; what is written takes from it.
  void SetFreeBytes(uint64_t bytes, char letter = 'C');

  /// Each write of a file takes this long,
  void SetWriteTime(Duration duration) { writeTime = duration; }
  /// and what so many bytes a second take beside it; 0: no time.
  void SetBytesPerSecond(uint64_t bytes) { bytesPerSecond = bytes; }
  Duration WriteTime(size_t bytes) const {
    if (bytesPerSecond == 0) return writeTime;
    return writeTime + Duration(static_cast<Duration::rep>(bytes * 1'000'000'000 / bytesPerSecond));
  }

  /// The power fails. What a test put there is durable; of what the machine has written since, each file keeps
  /// everything, nothing, or all but a stretch that is as it was, and a new one may be gone. What remains is durable.
  void LoseUnsynced(Random& random);

  /// Files and directories with such a name, without the path, can be neither made nor opened by the machine.
  void RefuseName(std::function<bool(const std::string& name)> refuses) { isRefused = std::move(refuses); }

  // What the machine's own code does with it.

  struct Drive;
  /// A file that somebody has open.
  struct Handle {
    std::shared_ptr<DiskFile> content;
    Drive* drive = nullptr;
  };

  /// In the order in which they were made.
  std::optional<std::vector<DirectoryEntry>> Entries(const std::string& path) const;
  PathKind KindOf(const std::string& path) const;
  Handle OpenToRead(const std::string& path) const;
  void MakeDirectories(const std::string& base, const std::vector<std::string>& names);
  /// The directory of the file exists, or nothing is opened.
  Handle OpenToWrite(const std::string& base, const std::vector<std::string>& names, WhenMissing whenMissing);
  /// Whether `path` still leads to the file that was opened there.
  bool IsStillAt(const std::string& path, const Handle& file) const;
  /// Not beyond the drive's free bytes.
  bool WriteAt(const Handle& file, uint64_t offset, std::span<const uint8_t> bytes);

  DriveType TypeOf(const std::string& path) const;
  std::optional<uint64_t> FreeBytes(const std::string& path) const;

 private:
  struct Node;
  struct Place {
    Drive* drive = nullptr;  ///< nullptr: no such drive.
    std::vector<std::string> names;
  };

  Place Locate(const std::string& path) const;
  static Node* Find(const Place& place);
  /// The node of that name in a directory, made where there is none.
  Node& ChildOf(Node& directory, const std::string& name);
  /// The directory at `place`, made with everything on the way; nullptr when a file is in the way.
  Node* MakeDirectories(const Place& place, bool mayRefuse);
  std::shared_ptr<DiskFile>& ContentAt(const std::string& path);
  bool IsRefused(const std::vector<std::string>& names) const;
  void LoseUnsynced(Node& directory, Random& random);
  void LoseStretch(DiskFile& file, Random& random);
  static void ListInto(const Node& directory, const std::string& prefix, std::vector<std::string>& names);
  static bool SameNodes(const Node& a, const Node& b);

  Patterns& patterns;
  std::map<char, std::unique_ptr<Drive>> drives;
  Duration writeTime{0};
  uint64_t bytesPerSecond = 0;
  std::function<bool(const std::string&)> isRefused;
  uint64_t nodesMade = 0;
};

}  // namespace quorl::sim
