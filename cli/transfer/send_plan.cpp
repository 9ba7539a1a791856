// From local paths to a selection of the library. Everything that would end or spoil a transfer halfway (a file that
// cannot be opened, two paths of one name) is found here, before a single datagram goes out.
#include "cli/transfer/send_plan.h"

#include <quorl/host.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <utility>

#include "cli/manifest/links.h"
#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/staging/staging.h"
#include "cli/system/files.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

constexpr char LAST_LETTER = 'Z';
constexpr const char* TOO_LONG = "receivers accept paths of 260 characters at most";

/// The absolute path of what the user named. Only what has no name of its own (".", "a/..", a link to a directory,
/// which is not walked) goes by the name of what it leads to. Throws a Remark when there is none.
fs::path Absolute(const std::string& text) {
  fs::path path = PathFrom(text);
  if (!path.has_filename() && path.has_parent_path() && path != path.root_path()) path = path.parent_path();
  std::error_code error;
  bool exists = fs::exists(path, error);
  if (error || !exists) throw Remark{text, error ? error.message() : "No such file or directory"};
  bool nameless = !path.has_filename() || path.filename() == "." || path.filename() == "..";
  bool linkToDirectory = fs::is_symlink(path, error) && fs::is_directory(path, error);
  fs::path absolute = nameless || linkToDirectory
                          ? fs::canonical(path, error)
                          : fs::canonical(path.has_parent_path() ? path.parent_path() : ".", error) / path.filename();
  if (error) throw Remark{text, error.message()};
  return absolute;
}

size_t DriveFor(const fs::path& directory, std::vector<DriveMapping>& drives) {
  for (size_t i = 0; i < drives.size(); ++i) {
    if (drives[i].directory == directory.string()) return i;
  }
  size_t count = drives.size();
  if (count > static_cast<size_t>(LAST_LETTER - FIRST_LETTER)) {
    throw Failure{Exit::Usage,
                  "the paths lie in too many different directories",
                  fmt::format("one transfer takes them from {} at most", LAST_LETTER - FIRST_LETTER + 1),
                  {"Send the directories that hold them, or send in turns."}};
  }
  drives.push_back({static_cast<char>(FIRST_LETTER + static_cast<char>(count)), directory.string()});
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

/// Why what the library leaves out does not travel; nullptr: because of its name.
const char* InWords(uint32_t obstacle) {
  switch (obstacle) {
    case QUORL_OBSTACLE_LINK_TO_DIRECTORY: return "link to a directory";
    case QUORL_OBSTACLE_BROKEN_LINK: return "a link that leads nowhere";
    case QUORL_OBSTACLE_FIFO: return "named pipe";
    case QUORL_OBSTACLE_SOCKET: return "socket";
    case QUORL_OBSTACLE_DEVICE: return "device";
    case QUORL_OBSTACLE_NOT_A_FILE: return "neither a file nor a directory";
    case QUORL_OBSTACLE_TOO_MANY_BLOCKS: return "it is larger than 18 TB";
    default: return nullptr;
  }
}

/// Takes down what the library says of the selection.
class Survey {
 public:
  Survey(SendPlan& plan, Exclusion& exclusion, const PlanRules& rules)
      : plan(plan), exclusion(exclusion), rules(rules) {}

  static void Tell(void* context, const QuorlSurveyEntry* entry) { static_cast<Survey*>(context)->Take(*entry); }

  void Finish() {
    NoteEmptyDirectory("");
    SettleLinks();
  }

 private:
  void Take(const QuorlSurveyEntry& entry) {
    const std::string name = LocalName(entry.name);
    if (entry.kind == QUORL_SURVEY_LEFT_OUT) return LeaveOut(entry);
    NoteEmptyDirectory(name);
    const bool isFile = entry.kind == QUORL_SURVEY_FILE;
    if (entry.obstacle == QUORL_OBSTACLE_UNREADABLE) return TakeUnreadable(entry, isFile);
    if (isFile) {
      plan.files.push_back({name, entry.length, entry.blocks, DriveOf(entry)});
      plan.bytes += entry.length;
      plan.blocks += entry.blocks;
    } else {
      ++plan.directories;
      lastDirectory = name;
    }
    if (entry.obstacle == QUORL_OBSTACLE_TOO_LONG) {
      Unfit(LocalPath(entry), TOO_LONG);
    } else if (entry.obstacle == QUORL_OBSTACLE_DELETED_CHAR && isFile) {
      plan.renamed.push_back({LocalPath(entry), "receivers delete * ? > < from its name"});
    } else if (entry.obstacle == QUORL_OBSTACLE_DELETED_CHAR) {
      Unfit(LocalPath(entry), "receivers delete * ? > < from names, not from those of directories");
    }
  }

  void TakeUnreadable(const QuorlSurveyEntry& entry, bool isFile) {
    const std::string path = LocalPath(entry);
    const std::string why = isFile ? OpenedFile::Open(path).Why().text : Directory::Open(path).Why().text;
    if (rules.skipUnreadable) {
      exclusion.Add(entry.path);
      plan.leftOut.push_back({path, why});
      ++plan.lost;
    } else {
      ++plan.unreadable;
      Unfit(path, why);
    }
  }

  void LeaveOut(const QuorlSurveyEntry& entry) {
    const bool isFiltered = entry.obstacle == QUORL_OBSTACLE_FILTERED;
    if (const auto leadsTo = isFiltered ? exclusion.LinkLeftOut(entry.path) : std::nullopt) {
      TakeLink(entry, *leadsTo);
      return;
    }
    if (isFiltered) {
      plan.excluded.push_back({LocalPath(entry), "excluded"});
      return;
    }
    if (entry.obstacle == QUORL_OBSTACLE_NAME_TOO_LONG) return Unfit(LocalPath(entry), TOO_LONG);
    const char* const why = InWords(entry.obstacle);
    plan.leftOut.push_back({LocalPath(entry), why != nullptr ? why : "its name cannot travel"});
    const bool wasChosen = why == nullptr || entry.obstacle == QUORL_OBSTACLE_TOO_MANY_BLOCKS;
    plan.lost += wasChosen ? 1 : 0;
  }

  void TakeLink(const QuorlSurveyEntry& entry, const std::string& leadsTo) {
    const std::string name = LocalName(std::string(entry.path).substr(DRIVE_LENGTH));
    if (rules.links == Links::Skip) {
      plan.leftOut.push_back({LocalPath(entry), "symbolic link"});
    } else {
      plan.links.push_back({name, leadsTo});
      linkPaths.emplace(name, LocalPath(entry));
    }
  }

  /// Once everything is known that they can lead to.
  void SettleLinks() {
    if (plan.links.empty()) return;
    Manifest manifest;
    for (const PlannedFile& file : plan.files) manifest.files.push_back({.name = file.name});
    manifest.emptyDirectories = plan.emptyDirectories;
    manifest.links = std::exchange(plan.links, {});
    for (const StagedTree::Link& link : LinksOf(manifest)) {
      if (link.why.empty()) {
        plan.links.push_back({link.name, link.leadsTo});
      } else {
        plan.leftOut.push_back({linkPaths.at(link.name), fmt::format("a link that {}", link.why)});
        ++plan.lost;
      }
    }
  }

  /// A directory that nothing has followed from beneath itself is empty.
  void NoteEmptyDirectory(const std::string& next) {
    if (lastDirectory.empty()) return;
    if (!next.starts_with(lastDirectory + "/")) plan.emptyDirectories.push_back(lastDirectory);
    lastDirectory.clear();
  }

  static size_t DriveOf(const QuorlSurveyEntry& entry) { return static_cast<size_t>(entry.path[0] - FIRST_LETTER); }

  std::string LocalPath(const QuorlSurveyEntry& entry) const {
    const std::string path = entry.path;
    const std::string leaf = entry.leaf;
    // Only the last component may hold a backslash of its own.
    const std::string parent = path.substr(0, path.size() - leaf.size()).substr(DRIVE_LENGTH);
    fs::path local = PathFrom(plan.drives[DriveOf(entry)].directory) / PathFrom(LocalName(parent) + leaf);
    return local.make_preferred().string();
  }

  void Unfit(const std::string& path, const std::string& why) { plan.unfit.push_back({path, why}); }

  SendPlan& plan;
  Exclusion& exclusion;
  const PlanRules& rules;
  std::map<std::string, std::string> linkPaths;  ///< On this machine, by the names that they travel under.
  std::string lastDirectory;                     ///< Of which nothing is known but its name; empty: none.
};

/// How a path of the library is one of this machine, for as long as the drives are these.
std::function<std::string(std::string_view)> LocalPaths(const std::vector<DriveMapping>& drives) {
  return [drives](std::string_view drivePath) {
    const auto drive = static_cast<size_t>(drivePath.front() - FIRST_LETTER);
    return drives[drive].directory + "/" + LocalName(std::string(drivePath.substr(DRIVE_LENGTH)));
  };
}

void RejectNameless(const fs::path& path) {
  if (path.has_filename()) return;
  throw Failure{Exit::Usage,
                "the root directory cannot be sent",
                "it has no name to arrive under",
                {"Name the directories in it."}};
}

/// Throws a Remark for a path of the selection itself, which nothing can be left out of.
void RejectWhatCannotTravel(const fs::path& path, bool devices) {
  const std::string name = path.filename().string();
  if (name.find_first_of("\\*?><\"|:") != std::string::npos)
    throw Remark{path.string(), "a name with one of \\ * ? > < \" | : cannot travel"};
  if (IsReservedName(name)) throw Remark{path.string(), "receivers keep such names to themselves"};
  std::error_code error;
  const fs::file_type type = fs::status(path, error).type();
  if (devices && type == fs::file_type::block) return;
  if (type != fs::file_type::regular && type != fs::file_type::directory) throw Remark{path.string(), KindOf(type)};
}

void RejectSameName(const std::vector<fs::path>& chosen, const fs::path& path) {
  for (const fs::path& earlier : chosen) {
    if (earlier.filename() != path.filename()) continue;
    throw Failure{
        Exit::Usage,
        fmt::format("\"{}\" and \"{}\" would arrive under one name", Escape(earlier.string()), Escape(path.string())),
        "receivers get each path under its last component",
        {"Send them one after the other."}};
  }
}

}  // namespace

SendPlan PlanSending(const std::vector<std::string>& paths, const PlanRules& rules) {
  SendPlan plan;
  std::vector<fs::path> chosen;
  for (const std::string& text : paths) {
    try {
      const fs::path path = Absolute(text);
      if (std::find(chosen.begin(), chosen.end(), path) != chosen.end()) continue;
      RejectNameless(path);
      RejectSameName(chosen, path);
      RejectWhatCannotTravel(path, rules.devices);
      chosen.push_back(path);
    } catch (const Remark& remark) {
      plan.unfit.push_back(remark);
    }
  }
  for (const fs::path& path : chosen) {
    const size_t drive = DriveFor(path.parent_path(), plan.drives);
    plan.paths.push_back(fmt::format("{}:\\{}", plan.drives[drive].letter, path.filename().string()));
  }
  for (const DriveMapping& drive : plan.drives) MapDrive(drive.letter, drive.directory.c_str());
  std::vector<const char*> texts;
  for (const std::string& path : plan.paths) texts.push_back(path.c_str());
  const auto exclusion = std::make_shared<Exclusion>(rules.exclude);
  plan.exclusion = exclusion;
  if (rules.links != Links::Follow) exclusion->LeaveOutLinks(LocalPaths(plan.drives));
  SetSelectionFilter(&Exclusion::Filter, exclusion.get());
  Survey survey(plan, *exclusion, rules);
  const auto count = static_cast<uint32_t>(texts.size());
  if (SurveySelection(texts.data(), count, rules.subdirectories ? 1 : 0, &Survey::Tell, &survey) == 0)
    throw std::bad_alloc();
  survey.Finish();
  return plan;
}

}  // namespace quorl::cli
