// How a selection becomes the lists that a transfer carries.
//
// Every directory is listed once and walked in the order in which the file system names its entries, or in that of the
// names, each subdirectory at the point where it is met; that order is the order of the transfer. The host's thread
// does this inside SetSelectFiles.
//
// The names of files are this machine's own, but not all of them can travel: receivers read a backslash as the end of a
// directory's name, so a local name that holds one would arrive as something else. A directory whose own name is
// already too long for the wire is not walked, which also bounds the recursion.

#include "files/file_lists.h"

#include <algorithm>
#include <new>

#include "protocol/blocks.h"
#include "protocol/name_field.h"

namespace quorl {

namespace {

// A drive letter, a colon and a backslash stand there in a full path, and nobody wants to hear about those.
constexpr size_t UNEXAMINED_BYTES = 3;

enum class Examine { Yes, No };

bool HasIllegalChar(const std::string& name) {
  return name.find_first_of(ILLEGAL_NAME_CHARS, UNEXAMINED_BYTES) != std::string::npos;
}

bool FitsNameField(const std::string& name) {
  return name.size() < NAME_TEXT_SIZE;
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  return folder.ends_with('\\') ? folder + name : folder + '\\' + name;
}

std::string LastComponent(const std::string& path) {
  const size_t backslash = path.rfind('\\');
  return backslash == std::string::npos ? path : path.substr(backslash);
}

std::string WithoutBackslash(const std::string& component) {
  return component.starts_with('\\') ? component.substr(1) : component;
}

Obstacle ObstacleOf(Unsent unsent) {
  switch (unsent) {
    case Unsent::No: return Obstacle::None;
    case Unsent::LinkToDirectory: return Obstacle::LinkToDirectory;
    case Unsent::BrokenLink: return Obstacle::BrokenLink;
    case Unsent::Fifo: return Obstacle::Fifo;
    case Unsent::Socket: return Obstacle::Socket;
    case Unsent::Device: return Obstacle::Device;
    case Unsent::Other: return Obstacle::NotAFile;
  }
  return Obstacle::NotAFile;
}

class ListBuilder {
 public:
  ListBuilder(const Machine& machine, const ListRules& rules, FileLists& lists, const SurveyListener& tell)
      : machine(machine), rules(rules), lists(lists), tell(tell) {}

  void AddSelected(const std::string& path) {
    const std::string leaf = WithoutBackslash(LastComponent(path));
    const PathKind kind = machine.files.KindOf(path);
    if (IsFiltered(path, kind == PathKind::Directory, leaf)) return;
    switch (kind) {
      case PathKind::File: AddFile(path, leaf, LastComponent(path), Examine::Yes); break;
      case PathKind::Other:
        machine.debug.Write("\nQuorl-----Neither a file nor a directory: " + path + "\n");
        LeaveOut(Obstacle::NotAFile, path, leaf);
        break;
      case PathKind::Directory:
      case PathKind::Missing: AddFolderFiles(path, leaf, Examine::Yes, rules.subDirTrans); break;
    }
  }

  bool HasLeftOut() const { return hasLeftOut; }

 private:
  // Names found in a selected directory itself are examined, those further down are not.
  void AddFolderFiles(const std::string& folder, const std::string& leaf, Examine examine, bool walkSubfolders) {
    if (!FitsNameField(CutParent(folder))) {
      LeaveOut(Obstacle::NameTooLong, folder, leaf);
      return;
    }
    auto listed = machine.files.ListDirectory(folder);
    Tell(Surveyed::Kind::Directory, listed ? Obstacle::None : Obstacle::Unreadable, folder, leaf, CutParent(folder));
    auto entries = std::move(listed).value_or(std::vector<DirectoryEntry>());
    if (rules.sorted)
      std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    std::erase_if(entries, [&](const DirectoryEntry& entry) {
      return IsFiltered(JoinPath(folder, entry.name), entry.isDirectory, entry.name);
    });
    AddEmptyDir(folder, entries);
    for (const DirectoryEntry& entry : entries) {
      if (entry.isDirectory && !walkSubfolders) continue;
      const std::string path = JoinPath(folder, entry.name);
      if (entry.unsent != Unsent::No) {
        Tell(Surveyed::Kind::LeftOut, ObstacleOf(entry.unsent), path, entry.name, "");
      } else if (entry.name.find('\\') != std::string::npos) {
        LeaveOut(Obstacle::IllegalChar, path, entry.name);
      } else if (entry.isDirectory) {
        AddFolderFiles(path, entry.name, Examine::No, walkSubfolders);
      } else {
        AddFile(path, entry.name, CutParent(path), examine);
      }
    }
  }

  void AddFile(const std::string& path, const std::string& leaf, const std::string& relativeName, Examine examine) {
    if (examine == Examine::Yes && HasIllegalChar(relativeName)) return LeaveOut(Obstacle::IllegalChar, path, leaf);
    if (!FitsNameField(relativeName)) return LeaveOut(Obstacle::NameTooLong, path, leaf);
    // A file that cannot be opened now stays in the list: the stream is where such a file is told to the host.
    const std::optional<uint64_t> length = LengthOf(path);
    const std::optional<FileShape> shape = FileShape::Of(length.value_or(0));
    if (!shape) return LeaveOut(Obstacle::TooManyBlocks, path, leaf);
    lists.ArraySendFile.push_back({path, relativeName});
    Tell(Surveyed::Kind::File, length ? Obstacle::None : Obstacle::Unreadable, path, leaf, relativeName,
         length.value_or(0), shape->BlockCount());
  }

  /// Whether the host does not want it, which keeps nothing else from travelling.
  bool IsFiltered(const std::string& path, bool isDirectory, const std::string& leaf) const {
    const bool isFiltered = rules.leavesOut && rules.leavesOut(path, isDirectory);
    if (isFiltered) Tell(Surveyed::Kind::LeftOut, Obstacle::Filtered, path, leaf, "");
    return isFiltered;
  }

  void LeaveOut(Obstacle obstacle, const std::string& path, const std::string& leaf) {
    hasLeftOut = true;
    Tell(Surveyed::Kind::LeftOut, obstacle, path, leaf, "");
  }

  void Tell(Surveyed::Kind kind, Obstacle obstacle, const std::string& path, const std::string& leaf,
            const std::string& name, uint64_t length = 0, uint64_t blocks = 0) const {
    if (tell) tell({kind, obstacle, path, leaf, name, length, blocks});
  }

  // Files do not count: receivers make their directories when the files arrive, and once more here does no harm.
  void AddEmptyDir(const std::string& folder, const std::vector<DirectoryEntry>& entries) {
    if (std::any_of(entries.begin(), entries.end(), [](const DirectoryEntry& entry) { return entry.isDirectory; })) {
      return;
    }
    try {
      lists.ArrayEmptyDir.push_back(CutParent(folder));
    } catch (const std::bad_alloc&) {
      machine.debug.Write("\nQuorl-----When add Empty Directory, Allocate memory Failed!\n");
    }
  }

  std::optional<uint64_t> LengthOf(const std::string& path) const {
    const std::unique_ptr<InputFile> file = machine.files.OpenInput(path);
    return file ? file->Length() : std::nullopt;
  }

  std::string CutParent(const std::string& path) const {
    const size_t cut = rules.parentPathLength < 0 ? 0 : static_cast<size_t>(rules.parentPathLength);
    return path.substr(std::min(cut, path.size()));
  }

  const Machine& machine;
  const ListRules rules;
  FileLists& lists;
  const SurveyListener& tell;
  bool hasLeftOut = false;
};

}  // namespace

int32_t BuildFileList(const Machine& machine, const ListRules& rules, FileLists& lists, const SurveyListener& tell) {
  ListBuilder builder(machine, rules, lists, tell);
  try {
    for (const std::string& path : lists.ArrayFileName) builder.AddSelected(path);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return builder.HasLeftOut() ? -1 : static_cast<int32_t>(lists.ArraySendFile.size());
}

}  // namespace quorl
