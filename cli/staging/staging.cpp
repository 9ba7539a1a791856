// The life of staging directories: lock, stale ones, preparation, removal.
#include "cli/staging/staging.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>
#include <utility>

#include "cli/manifest/manifest.h"
#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/staging/tree.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view RESERVED = ".quorl-";
constexpr size_t NUMBER_LENGTH = 16;

// Another receiver holds the lock alone only for as long as it removes what is stale.
constexpr auto LOCK_LIMIT = 10s;
constexpr auto LOCK_POLL = 20ms;

Failure Unusable(Exit code, const std::string& directory, const std::string& why) {
  return {code,
          fmt::format("nothing can be received into \"{}\"", Escape(directory)),
          why,
          {code == Exit::NoRoom ? "Choose a local directory with --to."
                                : "Name a directory that exists and can be written."}};
}

std::string NewName() {
  std::random_device chance;
  return fmt::format("{}{:08x}{:08x}", RESERVED, chance(), chance());
}

bool IsStagingName(std::string_view name) {
  return name.size() == RESERVED.size() + NUMBER_LENGTH && name.starts_with(RESERVED) &&
         name.find_first_not_of("0123456789abcdef", RESERVED.size()) == std::string_view::npos;
}

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool IsReservedName(std::string_view name) {
  // In any case of letters, for file systems that do not tell them apart.
  return name.size() >= RESERVED.size() &&
         std::equal(RESERVED.begin(), RESERVED.end(), name.begin(), [](char a, char b) { return a == ToLower(b); });
}

Staging::Staging(const std::string& directory) {
  std::error_code error;
  path = std::filesystem::canonical(PathFrom(directory), error).string();
  if (error) throw Unusable(Exit::LocalFiles, directory, error.message());
  target = Directory::Open(path);
  if (!target) throw Unusable(Exit::LocalFiles, directory, target.Why().text);
  // The library would refuse every transfer; better said before one comes.
  if (!target.IsOnFixedDisk()) {
    throw Unusable(Exit::NoRoom, directory,
                   "it is on a network file system or a removable disk; transfers go to fixed ones only (status 1002)");
  }
  TakeLock();
}

Staging::~Staging() {
  Discard();
}

void Staging::TakeLock() {
  if (target.Lock(Locking::Alone) == Locked::Yes) RemoveStale();
  const auto deadline = std::chrono::steady_clock::now() + LOCK_LIMIT;
  // A file system without locks has nobody who removes anything either.
  while (target.Lock(Locking::Shared) == Locked::Busy) {
    if (std::chrono::steady_clock::now() > deadline)
      throw Unusable(Exit::LocalFiles, path, "another program has locked it");
    std::this_thread::sleep_for(LOCK_POLL);
  }
  FindKept();
}

/// One receiver at a time goes on from it. Of several that nobody has, kills have left all but one: the fullest stays.
void Staging::FindKept() {
  for (const std::string& name : target.Names().value_or(std::vector<std::string>())) {
    Directory directory = IsStagingName(name) ? target.Sub(name) : Directory();
    if (!directory || !directory.Look(std::string(RECORD_NAME)) || directory.Lock(Locking::Alone) != Locked::Yes)
      continue;
    Kept found = ReadRecord(directory);
    std::string other = name;
    if (keptName.empty() || found.Bytes() > kept.Bytes()) {
      kept = std::move(found);
      std::swap(keptName, other);
      std::swap(keptLock, directory);
    }
    directory = Directory();
    if (!other.empty()) target.Remove(other);
  }
}

Directory Staging::KeptDirectory() const {
  return keptName.empty() ? Directory() : target.Sub(keptName);
}

void Staging::UseKept(const std::set<std::string>& used) {
  if (used.empty() || keptName.empty()) return;
  const Directory directory = KeptDirectory();
  for (const StagedTree::File& file : ListTree(directory).files) {
    const SplitName split(file.name);
    if (!used.contains(file.name) && file.name != RECORD_NAME) directory.Sub(split.directory).Remove(split.leaf);
  }
  std::erase_if(kept.files, [&](const auto& file) { return !used.contains(StoredName(file.first)); });
  // One that tells of what has gone is worse than none.
  if (WriteRecord(directory, kept)) directory.Remove(std::string(RECORD_NAME));
  usesKept = true;
}

SystemError Staging::Record(RecordText soFar) const {
  return current.empty() ? SystemError() : WriteRecord(Open(), std::move(soFar));
}

SystemError Staging::Keep(const Kept& left) {
  if (const SystemError error = WriteRecord(Open(), left)) return error;
  keptLock = std::move(currentLock);
  if (!keptName.empty() && keptName != current) target.Remove(keptName);
  keptName = std::exchange(current, "");
  kept = left;
  return {};
}

void Staging::RemoveStale() {
  for (const std::string& name : target.Names().value_or(std::vector<std::string>())) {
    const auto thing = IsStagingName(name) ? target.Look(name) : std::nullopt;
    const bool ours = thing && thing->kind == NamedThing::Kind::Directory && thing->isOurs;
    if (!ours || target.Sub(name).Look(std::string(RECORD_NAME))) continue;
    if (target.Remove(name)) ++staleRemoved;
  }
}

void Staging::Prepare(const std::function<bool(const std::string& path)>& use) {
  ++prepared;
  if (usesKept) {
    next = keptName;
    if (!use(NextPath())) throw Unusable(Exit::LocalFiles, path, "it has been removed");
    return;
  }
  next = NewName();
  if (const SystemError error = target.MakePrivate(next)) throw Unusable(Exit::LocalFiles, path, error.text);
  const bool usable = use(NextPath());
  target.Remove(next);
  if (!usable) throw Unusable(Exit::LocalFiles, path, "it has been removed, or its name holds a backslash");
}

void Staging::Begin() {
  Discard();
  current = next;
  if (std::exchange(usesKept, false)) {
    currentLock = std::move(keptLock);
    keptName.clear();
    kept = Kept();
    return;
  }
  // The library may have made it already, or will find it.
  target.MakePrivate(current);
  currentLock = Open();
  currentLock.Lock(Locking::Alone);
}

Directory Staging::Open() const {
  return target.Sub(current);
}

bool Staging::Holds(const std::string& name) const {
  return Open().Look(name).has_value();
}

std::optional<std::string> Staging::ReadWhole(const std::string& name, uint64_t limit) const {
  const Directory directory = Open();
  const auto thing = directory.Look(name);
  if (!thing || thing->size > limit) return std::nullopt;
  OpenedFile file = directory.Read(name);
  std::string text(static_cast<size_t>(thing->size), '\0');
  if (!file || file.Read(text) != text.size()) return std::nullopt;
  return text;
}

bool Staging::Discard() {
  // Some systems remove nothing that is open.
  currentLock = Directory();
  return current.empty() || target.Remove(std::exchange(current, ""));
}

}  // namespace quorl::cli
