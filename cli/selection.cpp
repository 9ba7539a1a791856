// From local paths to a selection of the library. Everything that would end or spoil a transfer halfway (a file that
// cannot be opened, two paths of one name) is found here, before a single datagram goes out.
#include "cli/selection.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "cli/escape.h"
#include "cli/outcome.h"
#include "cli/staging.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

constexpr char FIRST_LETTER = 'D';
constexpr char LAST_LETTER = 'Z';
constexpr size_t LONGEST_PATH = 260;
constexpr size_t DRIVE_LENGTH = 2;  // "D:"
constexpr std::string_view DELETED = "*?><";
constexpr std::string_view CANNOT_TRAVEL = "\\*?><\"|:";

Failure CannotBeSent(const fs::path& path, const std::string& why) {
  return {
      Exit::LocalFiles, fmt::format("\"{}\" cannot be sent", Escape(path.native())), why, {"Nothing has been sent."}};
}

/// The absolute path of what the user named. Only what has no name of its own (".", "a/..", a link to a directory,
/// which is not walked) goes by the name of what it leads to.
fs::path Absolute(const std::string& text) {
  fs::path path(text);
  if (!path.has_filename() && path.has_parent_path() && path != path.root_path()) path = path.parent_path();
  std::error_code error;
  bool exists = fs::exists(path, error);
  if (error || !exists) throw CannotBeSent(text, error ? error.message() : "No such file or directory");
  bool nameless = !path.has_filename() || path.filename() == "." || path.filename() == "..";
  bool linkToDirectory = fs::is_symlink(path, error) && fs::is_directory(path, error);
  fs::path absolute = nameless || linkToDirectory
                          ? fs::canonical(path, error)
                          : fs::canonical(path.has_parent_path() ? path.parent_path() : ".", error) / path.filename();
  if (error) throw CannotBeSent(text, error.message());
  return absolute;
}

size_t DriveFor(const fs::path& directory, std::vector<DriveMapping>& drives) {
  for (size_t i = 0; i < drives.size(); ++i) {
    if (drives[i].directory == directory.native()) return i;
  }
  size_t count = drives.size();
  if (count > static_cast<size_t>(LAST_LETTER - FIRST_LETTER)) {
    throw Failure{Exit::Usage,
                  "the paths lie in too many different directories",
                  fmt::format("one transfer takes them from {} at most", LAST_LETTER - FIRST_LETTER + 1),
                  {"Send the directories that hold them, or send in turns."}};
  }
  drives.push_back({static_cast<char>(FIRST_LETTER + static_cast<char>(count)), directory.native()});
  return count;
}

const char* KindOf(fs::file_type type) {
  switch (type) {
    case fs::file_type::socket: return "socket";
    case fs::file_type::fifo: return "named pipe";
    case fs::file_type::block:
    case fs::file_type::character: return "device";
    case fs::file_type::not_found: return "a link that leads nowhere";
    default: return "neither a file nor a directory";
  }
}

/// Walks a directory as the library will, and notes what it will and will not list.
class Walk {
 public:
  Walk(Selection& selection, bool subdirectories) : selection(selection), subdirectories(subdirectories) {}

  /// What is named next lies beneath this drive.
  void Enter(size_t number) { drive = number; }

  void Directory(const fs::path& directory, const std::string& name, bool firstLevel) {
    std::error_code error;
    fs::directory_iterator entries(directory, error);
    if (error) {
      Unfit(directory, error.message());
      return;
    }
    ++selection.directories;
    size_t filesBefore = selection.files.size();
    size_t emptyBefore = selection.emptyDirectories.size();
    for (const fs::directory_entry& entry : entries) {
      Entry(entry, name + "/" + entry.path().filename().native(), firstLevel);
    }
    bool hasDirectory = selection.emptyDirectories.size() != emptyBefore;
    if (selection.files.size() == filesBefore && !hasDirectory) selection.emptyDirectories.push_back(name);
  }

  void File(const fs::path& path, const std::string& name) {
    std::error_code error;
    uint64_t size = fs::file_size(path, error);
    if (error || access(path.c_str(), R_OK) != 0) {
      Unfit(path, error ? error.message() : std::strerror(errno));
      return;
    }
    selection.files.push_back({name, size, drive});
    selection.bytes += size;
    selection.blocks += BlocksOf(size);
  }

  /// Throws when something would fail at its turn, and with it the transfer.
  void Finish() const {
    if (unfitCount == 0) return;
    Failure failure = CannotBeSent(firstUnfit, firstReason);
    if (unfitCount > 1) failure.why += fmt::format(" ... and {} more", unfitCount - 1);
    throw failure;
  }

 private:
  void Entry(const fs::directory_entry& entry, const std::string& travelling, bool firstLevel) {
    const fs::path& path = entry.path();
    const std::string name = path.filename().native();
    std::error_code error;
    bool isLink = entry.is_symlink(error);
    bool isDirectory = entry.is_directory(error);
    bool holdsBackslash = name.find('\\') != std::string::npos;
    if (isDirectory && !isLink && !subdirectories) return;
    if (isDirectory && isLink) {
      LeaveOut(path, "link to a directory");
    } else if (!isDirectory && !entry.is_regular_file(error)) {
      LeaveOut(path, KindOf(entry.status(error).type()));
    } else if (holdsBackslash ||
               (firstLevel && !isDirectory && name.find_first_of(CANNOT_TRAVEL) != std::string::npos)) {
      LeaveOut(path, "its name cannot travel");
      ++selection.lost;
    } else if (1 + travelling.size() > LONGEST_PATH - DRIVE_LENGTH) {
      Unfit(path, "receivers accept paths of 260 characters at most");
    } else if (isDirectory) {
      if (name.find_first_of(DELETED) != std::string::npos)
        Unfit(path, "receivers delete * ? > < from names, not from those of directories");
      Directory(path, travelling, false);
    } else {
      if (name.find_first_of(DELETED) != std::string::npos)
        selection.renamed.push_back({path.native(), "receivers delete * ? > < from its name"});
      File(path, travelling);
    }
  }

  void LeaveOut(const fs::path& path, const char* why) { selection.leftOut.push_back({path.native(), why}); }

  void Unfit(const fs::path& path, const std::string& why) {
    if (unfitCount++ > 0) return;
    firstUnfit = path.native();
    firstReason = why;
  }

  Selection& selection;
  bool subdirectories;
  size_t drive = 0;
  uint64_t unfitCount = 0;
  std::string firstUnfit;
  std::string firstReason;
};

void RejectSameName(const std::vector<fs::path>& chosen, const fs::path& path) {
  for (const fs::path& earlier : chosen) {
    if (earlier.filename() != path.filename()) continue;
    throw Failure{
        Exit::Usage,
        fmt::format("\"{}\" and \"{}\" would arrive under one name", Escape(earlier.native()), Escape(path.native())),
        "receivers get each path under its last component",
        {"Send them one after the other."}};
  }
}

}  // namespace

Selection SurveySelection(const std::vector<std::string>& paths, bool subdirectories) {
  Selection selection;
  Walk walk(selection, subdirectories);
  std::vector<fs::path> chosen;
  for (const std::string& text : paths) {
    fs::path path = Absolute(text);
    std::string name = path.filename().native();
    if (std::find(chosen.begin(), chosen.end(), path) != chosen.end()) continue;
    if (name.empty())
      throw Failure{Exit::Usage,
                    "the root directory cannot be sent",
                    "it has no name to arrive under",
                    {"Name the directories in it."}};
    RejectSameName(chosen, path);
    if (name.find_first_of(CANNOT_TRAVEL) != std::string::npos) {
      throw CannotBeSent(path, "a name with one of \\ * ? > < \" | : cannot travel");
    }
    if (IsReservedName(name)) throw CannotBeSent(path, "receivers keep such names to themselves");
    chosen.push_back(path);
    size_t drive = DriveFor(path.parent_path(), selection.drives);
    selection.paths.push_back(fmt::format("{}:\\{}", selection.drives[drive].letter, name));
    walk.Enter(drive);
    std::error_code error;
    if (fs::is_directory(path, error)) {
      walk.Directory(path, name, true);
    } else if (fs::is_regular_file(path, error)) {
      walk.File(path, name);
    } else {
      throw CannotBeSent(path, KindOf(fs::status(path, error).type()));
    }
  }
  walk.Finish();
  return selection;
}

}  // namespace quorl::cli
