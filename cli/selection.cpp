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

char LetterFor(const fs::path& directory, std::vector<DriveMapping>& drives) {
  for (const DriveMapping& drive : drives) {
    if (drive.directory == directory.native()) return drive.letter;
  }
  size_t count = drives.size();
  if (count > static_cast<size_t>(LAST_LETTER - FIRST_LETTER)) {
    throw Failure{Exit::Usage,
                  "the paths lie in too many different directories",
                  fmt::format("one transfer takes them from {} at most", LAST_LETTER - FIRST_LETTER + 1),
                  {"Send the directories that hold them, or send in turns."}};
  }
  auto letter = static_cast<char>(FIRST_LETTER + static_cast<char>(count));
  drives.push_back({letter, directory.native()});
  return letter;
}

/// Walks a directory as the library will, and notes what it will and will not list.
class Walk {
 public:
  Walk(Selection& selection, bool subdirectories) : selection(selection), subdirectories(subdirectories) {}

  void Directory(const fs::path& directory, size_t relativeLength, bool firstLevel) {
    std::error_code error;
    fs::directory_iterator entries(directory, error);
    if (error) {
      Unfit(directory, error.message());
      return;
    }
    ++selection.directories;
    for (const fs::directory_entry& entry : entries) {
      Entry(entry, relativeLength + 1 + entry.path().filename().native().size(), firstLevel);
    }
  }

  void File(const fs::path& path) {
    std::error_code error;
    uint64_t size = fs::file_size(path, error);
    if (error || access(path.c_str(), R_OK) != 0) {
      Unfit(path, error ? error.message() : std::strerror(errno));
      return;
    }
    ++selection.files;
    selection.bytes += size;
  }

  /// Throws when something would fail at its turn, and with it the transfer.
  void Finish() const {
    if (unfitCount == 0) return;
    Failure failure = CannotBeSent(firstUnfit, firstReason);
    if (unfitCount > 1) failure.why += fmt::format(" ... and {} more", unfitCount - 1);
    throw failure;
  }

 private:
  void Entry(const fs::directory_entry& entry, size_t relativeLength, bool firstLevel) {
    const fs::path& path = entry.path();
    const std::string name = path.filename().native();
    std::error_code error;
    bool isLink = entry.is_symlink(error);
    bool isDirectory = entry.is_directory(error);
    bool holdsBackslash = name.find('\\') != std::string::npos;
    if (isDirectory && !isLink && !subdirectories) return;
    if (isDirectory && isLink) {
      LeaveOut(path, "a link to a directory");
    } else if (!isDirectory && !entry.is_regular_file(error)) {
      LeaveOut(path, isLink ? "a link that leads nowhere" : "neither a file nor a directory");
    } else if (holdsBackslash ||
               (firstLevel && !isDirectory && name.find_first_of(CANNOT_TRAVEL) != std::string::npos)) {
      LeaveOut(path, "its name cannot travel");
    } else if (relativeLength > LONGEST_PATH - DRIVE_LENGTH) {
      Unfit(path, "receivers accept paths of 260 characters at most");
    } else if (isDirectory) {
      if (name.find_first_of(DELETED) != std::string::npos)
        Unfit(path, "receivers delete * ? > < from names, not from those of directories");
      Directory(path, relativeLength, false);
    } else {
      if (name.find_first_of(DELETED) != std::string::npos)
        selection.renamed.push_back({path.native(), "receivers delete * ? > < from its name"});
      File(path);
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
    chosen.push_back(path);
    selection.paths.push_back(fmt::format("{}:\\{}", LetterFor(path.parent_path(), selection.drives), name));
    std::error_code error;
    if (fs::is_directory(path, error)) {
      walk.Directory(path, 1 + name.size(), true);
    } else if (fs::is_regular_file(path, error)) {
      walk.File(path);
    } else {
      throw CannotBeSent(path, "it is neither a file nor a directory");
    }
  }
  walk.Finish();
  return selection;
}

}  // namespace quorl::cli
