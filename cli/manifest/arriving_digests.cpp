#include "cli/manifest/arriving_digests.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "cli/staging/staging.h"
#include "cli/system/files.h"

namespace quorl::cli {
namespace {

// Files and stretches behind gaps that are kept in mind. What is beyond that is read at the end.
constexpr size_t MOST_ARRIVING = 256;
constexpr size_t MOST_STRETCHES = 65536;

constexpr size_t READ_BACK_AT_ONCE = size_t{64} << 10;

}  // namespace

ArrivingDigests::ArrivingDigests(const Manifest& catalogue, std::string directory)
    : catalogue(catalogue),
      directory(std::move(directory)),
      states(catalogue.files.size(), State::Untouched),
      digests(catalogue.files.size()) {}

void ArrivingDigests::Take(uint32_t number, const std::string& name, uint64_t offset, std::span<const uint8_t> bytes) {
  const bool isManifest = number == states.size() + 1 && name == MANIFEST_NAME;
  if (isStrange || isManifest) return;
  const bool isListed =
      number > 0 && number <= states.size() && StoredName(catalogue.files[number - 1].name) == StoredName(name);
  isStrange = !isListed;
  if (isListed) Take(number - 1, offset, bytes);
}

void ArrivingDigests::Take(size_t index, uint64_t offset, std::span<const uint8_t> bytes) {
  State& state = states[index];
  const ManifestEntry& entry = catalogue.files[index];
  const uint64_t end = offset + bytes.size();
  // The last block of a file may be empty.
  if (state == State::Unknown || (state == State::Known && bytes.empty())) return;
  bool isRight = state != State::Known && end <= entry.size;
  if (isRight && state == State::Untouched) {
    state = State::Arriving;
    isRight = arriving.size() < MOST_ARRIVING;
    if (isRight) arriving.emplace(index, File{RunningDigest(catalogue.kind)});
  }
  if (isRight) {
    File& file = arriving.at(index);
    isRight = offset >= file.end;
    if (isRight && offset == file.end) {
      file.digest.Add(bytes);
      file.end = end;
      isRight = CatchUp(StoredName(entry.name), file);
    } else if (isRight) {
      isRight = NoteBehind(file, offset, end);
    }
    if (isRight && file.end < entry.size) return;
    if (isRight) digests[index] = file.digest.Finish();
    stretches -= file.behind.size();
    arriving.erase(index);
  }
  state = isRight ? State::Known : State::Unknown;
}

bool ArrivingDigests::NoteBehind(File& file, uint64_t begin, uint64_t end) {
  const auto next = file.behind.upper_bound(begin);
  if (next != file.behind.begin() && std::prev(next)->second >= begin) {
    std::prev(next)->second = std::max(std::prev(next)->second, end);
    return true;
  }
  const bool isNew = file.behind.emplace(begin, end).second;
  stretches += isNew ? 1 : 0;
  return stretches <= MOST_STRETCHES;
}

bool ArrivingDigests::CatchUp(const std::string& name, File& file) {
  while (!file.behind.empty() && file.behind.begin()->first <= file.end) {
    const uint64_t end = file.behind.begin()->second;
    file.behind.erase(file.behind.begin());
    --stretches;
    if (end > file.end && !Read(name, file, end)) return false;
  }
  return true;
}

bool ArrivingDigests::Read(const std::string& name, File& file, uint64_t end) const {
  OpenedFile opened = Directory::Open(directory).Read(name);
  if (!opened) return false;
  opened.SkipTo(file.end);
  std::vector<char> room(READ_BACK_AT_ONCE);
  while (file.end < end) {
    const auto piece = std::span(room).first(static_cast<size_t>(std::min<uint64_t>(room.size(), end - file.end)));
    if (opened.Read(piece) != piece.size()) return false;
    file.digest.Add({reinterpret_cast<const uint8_t*>(piece.data()), piece.size()});
    file.end += piece.size();
  }
  return true;
}

void ArrivingDigests::Finish(const StagedTree& tree) {
  const auto isThere = [&](const std::string& name) {
    const auto found = std::lower_bound(tree.files.begin(), tree.files.end(), name,
                                        [](const auto& file, const std::string& wanted) { return file.name < wanted; });
    return found != tree.files.end() && found->name == name;
  };
  for (size_t i = 0; i < states.size() && !isStrange; ++i)
    isStrange = states[i] != State::Untouched && !isThere(StoredName(catalogue.files[i].name));
  byName.resize(states.size());
  std::iota(byName.begin(), byName.end(), 0u);
  std::sort(byName.begin(), byName.end(),
            [&](uint32_t left, uint32_t right) { return catalogue.files[left].name < catalogue.files[right].name; });
}

std::optional<Digest> ArrivingDigests::Find(std::string_view name) const {
  const auto found = std::lower_bound(byName.begin(), byName.end(), name, [&](uint32_t index, std::string_view wanted) {
    return catalogue.files[index].name < wanted;
  });
  const bool isKnown =
      !isStrange && found != byName.end() && catalogue.files[*found].name == name && states[*found] == State::Known;
  return isKnown ? std::optional(digests[*found]) : std::nullopt;
}

}  // namespace quorl::cli
