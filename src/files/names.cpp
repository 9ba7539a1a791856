// Where a name from the network leads on this machine.
//
// The sender's text is not trusted. It is appended to the target directory first, as the rules of length and removal
// want it, and only what is then really used is taken apart into components: the removal can itself create ".." out of
// a harmless component. A name that does not begin with a backslash would lengthen the target's last component and so
// name a sibling of the target; it is refused. The writer's thread asks for files, the receive loop's for directories.

#include "files/names.h"

#include <quorl/quorl.h>

namespace quorl {

namespace {

std::string WithoutRemovedChars(std::string text) {
  std::erase_if(text, [](char c) { return REMOVED_CHARS.find(c) != std::string_view::npos; });
  return text;
}

MappedPath Refused(uint32_t status) {
  return {status, {}};
}

MappedPath MapBeneath(const std::string& base, const std::string& name) {
  if (base.size() + name.size() > LONGEST_LOCAL_PATH) return Refused(QUORL_STATUS_PATH_TOO_LONG);
  const bool continuesLastComponent = !name.empty() && name.front() != '\\' && !base.ends_with('\\');
  const std::optional<RelativePath> beneath = RelativePath::FromText(name);
  if (continuesLastComponent || !beneath) return Refused(QUORL_STATUS_FILE_UNWRITABLE);
  return {0, {base, *beneath}};
}

}  // namespace

std::string ConvertName(const Machine& machine, const NameField& field, bool senderNtPlatform) {
  const std::string name(field.Text());
  return machine.shell.IsNtPlatform() && !senderNtPlatform ? machine.shell.ThroughWideText(name) : name;
}

MappedPath MapFilePath(const std::string& targetDir, const std::string& name) {
  const std::string kept = WithoutRemovedChars(name);
  const MappedPath mapped = MapBeneath(WithoutRemovedChars(targetDir), kept);
  const bool namesDirectory = kept.empty() || kept.ends_with('\\');
  return mapped.status == 0 && namesDirectory ? Refused(QUORL_STATUS_FILE_UNWRITABLE) : mapped;
}

MappedPath MapDirectoryPath(const std::string& targetDir, const std::string& name) {
  return MapBeneath(targetDir, name);
}

void CreateDirChain(const Machine& machine, const LocalPath& directory) {
  machine.files.CreateDirectories(directory.base, directory.name);
}

void CreateParentDirChain(const Machine& machine, const std::string& targetDir, const std::string& name) {
  const MappedPath parent = MapDirectoryPath(targetDir, name.substr(0, name.rfind('\\') + 1));
  if (parent.status == 0) CreateDirChain(machine, parent.path);
}

}  // namespace quorl
