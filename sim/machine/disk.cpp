#include "sim/machine/disk.h"

#include <algorithm>
#include <cassert>
#include <cctype>

namespace quorl::sim {

namespace {

constexpr uint64_t TERABYTE = uint64_t{1} << 40;
constexpr uint64_t LONGEST_LOST_STRETCH = 64 * 1024;

char Letter(char letter) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
}

}  // namespace

struct SimDisk::Node {
  std::map<std::string, std::unique_ptr<Node>> children;
  std::shared_ptr<DiskFile> content;  ///< Nothing: a directory or a FIFO.
  bool isFifo = false;
  uint64_t number = 0;  ///< Counts the nodes of a disk as they are made.

  bool IsDirectory() const { return content == nullptr && !isFifo; }
};

struct SimDisk::Drive {
  DriveType type = DriveType::Fixed;
  uint64_t freeBytes = TERABYTE;
  Node root{};
};

SimDisk::SimDisk(Patterns& patterns) : patterns(patterns) {
  AddDrive('C', DriveType::Fixed);
}

SimDisk::~SimDisk() = default;

void SimDisk::Write(const std::string& path, std::span<const uint8_t> bytes) {
  auto& content = ContentAt(path);
  *content = DiskFile();
  content->WriteAt(0, bytes, patterns);
}

void SimDisk::Write(const std::string& path, std::string_view text) {
  Write(path, Bytes(text.begin(), text.end()));
}

void SimDisk::WriteSynthetic(const std::string& path, uint64_t length, uint64_t seed) {
  if (std::find(patterns.begin(), patterns.end(), seed) == patterns.end()) patterns.push_back(seed);
  *ContentAt(path) = DiskFile(seed, length);
}

std::optional<Bytes> SimDisk::Read(const std::string& path) const {
  const Node* const node = Find(Locate(path));
  if (node == nullptr || node->IsDirectory()) return std::nullopt;
  Bytes bytes(node->content->Length());
  node->content->ReadAt(0, bytes);
  return bytes;
}

std::optional<uint64_t> SimDisk::Length(const std::string& path) const {
  const Node* const node = Find(Locate(path));
  if (node == nullptr || node->IsDirectory()) return std::nullopt;
  return node->content->Length();
}

void SimDisk::MakeDirectory(const std::string& path) {
  [[maybe_unused]] const Node* const made = MakeDirectories(Locate(path), false);
  assert(made != nullptr && "a file or a missing drive is in the way");
}

void SimDisk::MakeFifo(const std::string& path) {
  ContentAt(path).reset();
  Find(Locate(path))->isFifo = true;
}

void SimDisk::Remove(const std::string& path) {
  Place place = Locate(path);
  if (place.names.empty()) return;
  const std::string name = place.names.back();
  place.names.pop_back();
  if (Node* const parent = Find(place)) parent->children.erase(name);
}

std::vector<std::string> SimDisk::List(const std::string& path) const {
  std::vector<std::string> names;
  if (const Node* const node = Find(Locate(path))) ListInto(*node, "", names);
  std::sort(names.begin(), names.end());
  return names;
}

std::map<std::string, Bytes> SimDisk::Tree(const std::string& path) const {
  std::map<std::string, Bytes> tree;
  for (const std::string& name : List(path))
    if (auto bytes = Read(path + "\\" + name)) tree.emplace(name, std::move(*bytes));
  return tree;
}

bool SimDisk::SameTree(const std::string& path, const SimDisk& other, const std::string& otherPath) const {
  const Node* const mine = Find(Locate(path));
  const Node* const others = Find(other.Locate(otherPath));
  return mine != nullptr && others != nullptr && SameNodes(*mine, *others);
}

void SimDisk::AddDrive(char letter, DriveType type) {
  auto& drive = drives[Letter(letter)];
  drive = std::make_unique<Drive>();
  drive->type = type;
}

void SimDisk::SetDriveType(DriveType type, char letter) {
  drives.at(Letter(letter))->type = type;
}

void SimDisk::SetFreeBytes(uint64_t bytes, char letter) {
  drives.at(Letter(letter))->freeBytes = bytes;
}

void SimDisk::LoseUnsynced(Random& random) {
  for (auto& [letter, drive] : drives) LoseUnsynced(drive->root, random);
}

void SimDisk::LoseUnsynced(Node& directory, Random& random) {
  std::erase_if(directory.children, [&](auto& entry) {
    if (entry.second->IsDirectory()) {
      LoseUnsynced(*entry.second, random);
      return false;
    }
    DiskFile& file = *entry.second->content;
    if (!file.durable && !file.isNew) return false;
    const uint64_t fate = random.Below(3);
    if (fate == 0 && file.isNew) return true;
    if (fate == 0) static_cast<FileContent&>(file) = *file.durable;
    if (fate == 1) LoseStretch(file, random);
    file.durable.reset();
    file.isNew = false;
    return false;
  });
}

void SimDisk::LoseStretch(DiskFile& file, Random& random) {
  if (file.Length() == 0) return;
  const uint64_t begin = random.Below(file.Length());
  Bytes former(1 + random.Below(std::min(file.Length() - begin, LONGEST_LOST_STRETCH)));
  if (file.durable) file.durable->ReadAt(begin, former);
  file.WriteAt(begin, former, patterns);
}

std::optional<std::vector<DirectoryEntry>> SimDisk::Entries(const std::string& path) const {
  const Place place = Locate(path);
  const Node* const node = Find(place);
  if (node == nullptr || !node->IsDirectory() || IsRefused(place.names)) return std::nullopt;
  std::vector<DirectoryEntry> entries;
  for (const auto& [name, child] : node->children)
    if (!child->isFifo) entries.push_back({name, child->IsDirectory()});
  const auto numberOf = [&](const DirectoryEntry& entry) { return node->children.at(entry.name)->number; };
  std::sort(entries.begin(), entries.end(), [&](const auto& a, const auto& b) { return numberOf(a) < numberOf(b); });
  return entries;
}

PathKind SimDisk::KindOf(const std::string& path) const {
  const Node* const node = Find(Locate(path));
  if (node == nullptr) return PathKind::Missing;
  if (node->isFifo) return PathKind::Other;
  return node->IsDirectory() ? PathKind::Directory : PathKind::File;
}

SimDisk::Handle SimDisk::OpenToRead(const std::string& path) const {
  const Place place = Locate(path);
  const Node* const node = Find(place);
  if (node == nullptr || IsRefused(place.names)) return {};
  return {node->content, place.drive};
}

void SimDisk::MakeDirectories(const std::string& base, const std::vector<std::string>& names) {
  Place place = Locate(base);
  place.names.insert(place.names.end(), names.begin(), names.end());
  MakeDirectories(place, true);
}

SimDisk::Handle SimDisk::OpenToWrite(const std::string& base, const std::vector<std::string>& names,
                                     WhenMissing whenMissing) {
  Place place = Locate(base);
  place.names.insert(place.names.end(), names.begin(), names.end());
  if (names.empty() || IsRefused(place.names)) return {};
  if (Node* const file = Find(place)) return {file->content, file->IsDirectory() ? nullptr : place.drive};
  const std::string name = place.names.back();
  place.names.pop_back();
  Node* const parent = Find(place);
  if (whenMissing == WhenMissing::Fail || parent == nullptr || !parent->IsDirectory()) return {};
  Node& file = ChildOf(*parent, name);
  file.content = std::make_shared<DiskFile>();
  file.content->isNew = true;
  return {file.content, place.drive};
}

bool SimDisk::IsStillAt(const std::string& path, const Handle& file) const {
  const Node* const node = Find(Locate(path));
  return node != nullptr && node->content == file.content;
}

bool SimDisk::WriteAt(const Handle& file, uint64_t offset, std::span<const uint8_t> bytes) {
  const uint64_t end = offset + bytes.size();
  const uint64_t growth = end > file.content->Length() ? end - file.content->Length() : 0;
  if (growth > file.drive->freeBytes) return false;
  file.drive->freeBytes -= growth;
  if (!file.content->durable) file.content->durable = *file.content;
  file.content->WriteAt(offset, bytes, patterns);
  return true;
}

DriveType SimDisk::TypeOf(const std::string& path) const {
  const Place place = Locate(path);
  return place.drive == nullptr ? DriveType::NoRoot : place.drive->type;
}

std::optional<uint64_t> SimDisk::FreeBytes(const std::string& path) const {
  const Place place = Locate(path);
  if (place.drive == nullptr) return std::nullopt;
  return place.drive->freeBytes;
}

SimDisk::Place SimDisk::Locate(const std::string& path) const {
  const bool hasLetter = path.size() >= 2 && path[1] == ':';
  const auto drive = drives.find(hasLetter ? Letter(path[0]) : 'C');
  Place place;
  if (drive != drives.end()) place.drive = drive->second.get();
  std::string_view rest = std::string_view(path).substr(hasLetter ? 2 : 0);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find_first_of("\\/"), rest.size());
    const std::string_view name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (name == "..") {
      if (!place.names.empty()) place.names.pop_back();
    } else if (!name.empty() && name != ".") {
      place.names.emplace_back(name);
    }
  }
  return place;
}

SimDisk::Node* SimDisk::Find(const Place& place) {
  Node* node = place.drive == nullptr ? nullptr : &place.drive->root;
  for (auto name = place.names.begin(); node != nullptr && name != place.names.end(); ++name) {
    const auto child = node->children.find(*name);
    node = child == node->children.end() ? nullptr : child->second.get();
  }
  return node;
}

SimDisk::Node& SimDisk::ChildOf(Node& directory, const std::string& name) {
  auto& child = directory.children[name];
  if (!child) {
    child = std::make_unique<Node>();
    child->number = nodesMade++;
  }
  return *child;
}

SimDisk::Node* SimDisk::MakeDirectories(const Place& place, bool mayRefuse) {
  if (place.drive == nullptr) return nullptr;
  Node* node = &place.drive->root;
  for (const std::string& name : place.names) {
    if (!node->IsDirectory() || (mayRefuse && IsRefused({name}))) return nullptr;
    node = &ChildOf(*node, name);
  }
  return node->IsDirectory() ? node : nullptr;
}

std::shared_ptr<DiskFile>& SimDisk::ContentAt(const std::string& path) {
  Place place = Locate(path);
  assert(!place.names.empty() && "a file has a name");
  const std::string name = place.names.back();
  place.names.pop_back();
  Node* const parent = MakeDirectories(place, false);
  assert(parent != nullptr && "a file or a missing drive is in the way");
  Node& file = ChildOf(*parent, name);
  assert(file.children.empty() && "a directory is in the way");
  if (!file.content) file.content = std::make_shared<DiskFile>();
  return file.content;
}

bool SimDisk::IsRefused(const std::vector<std::string>& names) const {
  return isRefused && std::any_of(names.begin(), names.end(), isRefused);
}

void SimDisk::ListInto(const Node& directory, const std::string& prefix, std::vector<std::string>& names) {
  for (const auto& [name, child] : directory.children) {
    names.push_back(prefix + name);
    ListInto(*child, names.back() + "\\", names);
  }
}

bool SimDisk::SameNodes(const Node& a, const Node& b) {
  if (a.IsDirectory() != b.IsDirectory()) return false;
  if (!a.IsDirectory()) return a.content->SameAs(*b.content);
  return std::equal(a.children.begin(), a.children.end(), b.children.begin(), b.children.end(),
                    [](const auto& mine, const auto& others) {
                      return mine.first == others.first && SameNodes(*mine.second, *others.second);
                    });
}

}  // namespace quorl::sim
