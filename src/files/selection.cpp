// The sender's selection: which paths are accepted, and when the lists are built anew.

#include "files/selection.h"

#include <quorl/quorl.h>

#include <new>
#include <string_view>

namespace quorl {

namespace {

constexpr size_t LONGEST_PATH = QUORL_PATH_LENGTH;
constexpr size_t SHORTEST_PATH = QUORL_SHORTEST_PATH;

// Result codes of SetSelectFiles.
constexpr int32_t ACCEPTED = 1;
constexpr int32_t PATH_TOO_LONG = 2;
constexpr int32_t PATH_TOO_SHORT = 3;
constexpr int32_t NO_DRIVE = 4;
constexpr int32_t ILLEGAL_CHAR = 5;
constexpr int32_t NO_MEMORY = 6;
constexpr int32_t NAME_LEFT_OUT = 7;

struct Verdict {
  int32_t result;
  std::string_view message;
};

// The drive letter, colon and backslash of a well-formed path are not examined for illegal characters.
Verdict CheckPath(const std::string& path) {
  if (path.size() > LONGEST_PATH) {
    return {PATH_TOO_LONG, "\nQuorl-----File Name Lenght > Max_path in CStringArray!\n"};
  }
  if (path.size() < SHORTEST_PATH) {
    return {PATH_TOO_SHORT, "\nQuorl-----File Name Lenght < 3 in CStringArray!\n"};
  }
  if (path[1] != ':') return {NO_DRIVE, "\nQuorl-----driver error\n"};
  if (path.find_first_of(ILLEGAL_NAME_CHARS, SHORTEST_PATH) != std::string::npos) {
    return {ILLEGAL_CHAR, "\nQuorl-----File Name has illegal char!\n"};
  }
  return {ACCEPTED, ""};
}

// -1 for a path without a backslash.
int32_t ParentPathLength(const std::string& path) {
  const size_t backslash = path.rfind('\\');
  return backslash == std::string::npos ? -1 : static_cast<int32_t>(backslash);
}

}  // namespace

Selection::Selection(const Machine& machine) : machine(machine), lists(std::make_shared<FileLists>()) {}

int32_t Selection::SetSelectFiles(const std::vector<std::string>& paths, const std::string& newAutoOpenName,
                                  bool sorted, const PathFilter& leavesOut) {
  ClearFileLists();
  if (paths.empty()) {
    machine.debug.Write("\nQuorl-----No files in CSringArray!\n");
    return ACCEPTED;
  }
  if (const int32_t result = AcceptPaths(paths); result != ACCEPTED) return result;
  if (BuildFileList(machine, RulesFor(paths, subDirTrans != 0, sorted, leavesOut), *lists) < 0) {
    hasInvalidChar = 1;
    return NAME_LEFT_OUT;
  }
  if (!newAutoOpenName.empty()) autoOpenName = newAutoOpenName;
  return ACCEPTED;
}

void Selection::Reset() {
  autoOpenName.clear();
  hasInvalidChar = 0;
}

// A transfer that still runs keeps the lists it started with.
void Selection::ClearFileLists() {
  lists = std::make_shared<FileLists>();
  hasInvalidChar = 0;
}

int32_t Selection::AcceptPaths(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    Verdict verdict = CheckPath(path);
    if (verdict.result == ACCEPTED) {
      try {
        lists->ArrayFileName.push_back(path);
      } catch (const std::bad_alloc&) {
        verdict = {NO_MEMORY, "\nQuorl-----Can not add file name to Array, because new memory failed!\n"};
      }
    }
    if (verdict.result != ACCEPTED) {
      machine.debug.Write(verdict.message);
      return verdict.result;
    }
  }
  return ACCEPTED;
}

bool IsAcceptedPath(const std::string& path) {
  return CheckPath(path).result == ACCEPTED;
}

ListRules RulesFor(const std::vector<std::string>& paths, bool subDirTrans, bool sorted, const PathFilter& leavesOut) {
  return {paths.empty() ? -1 : ParentPathLength(paths.back()), subDirTrans, sorted, leavesOut};
}

}  // namespace quorl
