#include "files/survey.h"

#include "files/file_lists.h"
#include "files/names.h"
#include "files/selection.h"

namespace quorl {

namespace {

// A receiver's target is at least a drive: "C:".
constexpr size_t SHORTEST_TARGET = 2;

/// What receivers make of a name that travels.
Obstacle OnReceivers(const Surveyed& found) {
  if (SHORTEST_TARGET + found.name.size() > LONGEST_LOCAL_PATH) return Obstacle::TooLong;
  const bool isChanged = found.leaf.find_first_of(REMOVED_CHARS) != std::string::npos;
  return isChanged ? Obstacle::DeletedChar : Obstacle::None;
}

}  // namespace

void SurveySelection(const Machine& machine, const std::vector<std::string>& paths, const ListRules& rules,
                     const SurveyListener& tell) {
  FileLists lists;
  for (const std::string& path : paths) {
    if (IsAcceptedPath(path)) {
      lists.ArrayFileName.push_back(path);
    } else {
      tell({Surveyed::Kind::LeftOut, Obstacle::PathRefused, path, path, "", 0, 0});
    }
  }
  if (lists.ArrayFileName.empty()) return;
  BuildFileList(machine, rules, lists, [&tell, &lists](Surveyed found) {
    // Whoever only asks needs no list.
    lists.ArraySendFile.clear();
    if (found.kind != Surveyed::Kind::LeftOut && found.obstacle == Obstacle::None) found.obstacle = OnReceivers(found);
    tell(found);
  });
}

}  // namespace quorl
