// Names from the wire, and where they lead on this machine.
#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/machine.h"
#include "protocol/name_field.h"

namespace quorl {

/// A receiver's paths have at most so many bytes, and lose these characters where they name files.
inline constexpr size_t LONGEST_LOCAL_PATH = QUORL_PATH_LENGTH;
inline constexpr std::string_view REMOVED_CHARS = "/*?><";

/// The name in `field` as this machine's 8-bit text. Only a name from a sender of the older family that reaches an NT
/// machine changes on the way.
std::string ConvertName(const Machine& machine, const NameField& field, bool senderNtPlatform);

/// A place on this machine: the target directory as a drive path, and a name that cannot lead out of it.
struct LocalPath {
  std::string base;
  RelativePath name;
};

struct MappedPath {
  uint32_t status =
      0;           ///< 0; QUORL_STATUS_PATH_TOO_LONG; or QUORL_STATUS_FILE_UNWRITABLE: leads outside, names no file.
  LocalPath path;  ///< Meaningful with status 0 only.
};

/// Where the file `name` goes: targetDir followed directly by name, at most QUORL_PATH_LENGTH bytes once every one of
/// / * ? > < has been removed from both. Refused when what remains is not beneath the target, or names no file.
MappedPath MapFilePath(const std::string& targetDir, const std::string& name);

/// Where the directory `name` goes; nothing is removed, an empty name is the target itself. Refused when not beneath
/// the target.
MappedPath MapDirectoryPath(const std::string& targetDir, const std::string& name);

/// Makes every directory on the way from the target directory to this one. Failures show when a file is opened.
void CreateDirChain(const Machine& machine, const LocalPath& directory);

/// Makes the directories above the file `name`. As the name's illegal characters are not removed here, they are not
/// always those that MapFilePath leads to; a chain that would be refused or too long is not made. To be called before
/// the file is opened.
void CreateParentDirChain(const Machine& machine, const std::string& targetDir, const std::string& name);

}  // namespace quorl
