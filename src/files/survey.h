// What would travel of a selection, and what stands in the way: told by the walk that makes the lists of a transfer.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/machine.h"

namespace quorl {

/// What stands in the way of a file or directory, or changes it on its way. Those up to TooLong travel all the same.
enum class Obstacle {
  None,
  Unreadable,   ///< Cannot be opened or listed; a file ends the transfer at its turn.
  DeletedChar,  ///< Receivers delete a character from a file's name; from a directory's name they do not, and cannot
                ///< store what is in it.
  TooLong,      ///< For receivers, whatever their target is.
  IllegalChar,
  NameTooLong,  ///< For a datagram.
  TooManyBlocks,
  LinkToDirectory,
  BrokenLink,
  Fifo,
  Socket,
  Device,
  NotAFile,     ///< Something else, or nothing that is known.
  PathRefused,  ///< A path of the selection that SetSelectFiles would refuse for its form.
  Filtered      ///< By the host's wish.
};

/// One file or directory that a selection leads to.
struct Surveyed {
  enum class Kind { File, Directory, LeftOut };
  Kind kind = Kind::File;
  Obstacle obstacle = Obstacle::None;
  std::string path;     ///< "C:\data\photos\a.jpg"
  std::string leaf;     ///< The last component of the path, which may hold a backslash.
  std::string name;     ///< As it travels, "\photos\a.jpg".
  uint64_t length = 0;  ///< Of a file that can be opened.
  uint64_t blocks = 0;  ///< That it travels in.
};
using SurveyListener = std::function<void(const Surveyed&)>;

struct ListRules;

/// Tells of everything that SetSelectFiles would list for these paths, a directory before what is in it, and of what it
/// would leave out. `rules`: RulesFor them. Runs on the host's thread; opens every file once.
void SurveySelection(const Machine& machine, const std::vector<std::string>& paths, const ListRules& rules,
                     const SurveyListener& tell);

}  // namespace quorl
