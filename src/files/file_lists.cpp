// How a selection becomes the lists that a transfer carries.
//
// Every directory is listed once and walked in the order in which the file system names its entries, each subdirectory
// at the point where it is met; that order is the order of the transfer. The host's thread does this inside
// SetSelectFiles.
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

class ListBuilder {
 public:
  ListBuilder(const Machine& machine, const ListRules& rules, FileLists& lists)
      : machine(machine), rules(rules), lists(lists) {}

  void AddSelected(const std::string& path) {
    if (machine.files.IsFile(path)) {
      AddFile(path, LastComponent(path), Examine::Yes);
    } else {
      AddFolderFiles(path, Examine::Yes, rules.subDirTrans);
    }
  }

  bool HasLeftOut() const { return hasLeftOut; }

 private:
  // Names found in a selected directory itself are examined, those further down are not.
  void AddFolderFiles(const std::string& folder, Examine examine, bool walkSubfolders) {
    if (!FitsNameField(CutParent(folder))) {
      hasLeftOut = true;
      return;
    }
    const std::vector<DirectoryEntry> entries =
        machine.files.ListDirectory(folder).value_or(std::vector<DirectoryEntry>());
    AddEmptyDir(folder, entries);
    for (const DirectoryEntry& entry : entries) {
      if (entry.isDirectory && !walkSubfolders) continue;
      const std::string path = JoinPath(folder, entry.name);
      if (entry.name.find('\\') != std::string::npos) {
        hasLeftOut = true;
      } else if (entry.isDirectory) {
        AddFolderFiles(path, Examine::No, walkSubfolders);
      } else {
        AddFile(path, CutParent(path), examine);
      }
    }
  }

  void AddFile(const std::string& path, const std::string& relativeName, Examine examine) {
    const bool isIllegal = examine == Examine::Yes && HasIllegalChar(relativeName);
    if (isIllegal || !FitsNameField(relativeName) || !HasCountableBlocks(path)) {
      hasLeftOut = true;
    } else {
      lists.ArraySendFile.push_back({path, relativeName});
    }
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

  // A file that cannot be opened now stays in the list: the stream is where such a file is told to the host.
  bool HasCountableBlocks(const std::string& path) {
    const std::unique_ptr<InputFile> file = machine.files.OpenInput(path);
    const std::optional<uint64_t> length = file ? file->Length() : std::nullopt;
    return !length || FileShape::Of(*length);
  }

  std::string CutParent(const std::string& path) const {
    const size_t cut = rules.parentPathLength < 0 ? 0 : static_cast<size_t>(rules.parentPathLength);
    return path.substr(std::min(cut, path.size()));
  }

  const Machine& machine;
  const ListRules rules;
  FileLists& lists;
  bool hasLeftOut = false;
};

}  // namespace

int32_t BuildFileList(const Machine& machine, const ListRules& rules, FileLists& lists) {
  ListBuilder builder(machine, rules, lists);
  try {
    for (const std::string& path : lists.ArrayFileName) builder.AddSelected(path);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return builder.HasLeftOut() ? -1 : static_cast<int32_t>(lists.ArraySendFile.size());
}

}  // namespace quorl
