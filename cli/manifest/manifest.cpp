// The manifest as text. Reading is strict: there is one way to write each manifest, and everything else is none. Names
// come in ascending order, so that no name can come twice and no list has to be searched.
#include "cli/manifest/manifest.h"

#include <fmt/format.h>
#include <quorl/quorl.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <limits>
#include <numeric>
#include <optional>
#include <set>

#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr std::string_view MANIFEST = "quorl-manifest ";
constexpr std::string_view CATALOGUE = "quorl-catalogue ";
constexpr size_t LONGEST_NAME = QUORL_NAME_SIZE - 1;
constexpr size_t LONGEST_LINK = 4095;
constexpr std::string_view LINK_DIVIDER = "//";
constexpr size_t MOST_ADDRESSES = QUORL_RECEIVERS;
constexpr uint32_t NANOSECONDS = 1'000'000'000;
constexpr int64_t LATEST_TIME = int64_t{1} << 40;
constexpr size_t NANOSECOND_DIGITS = 9;
constexpr uint16_t OWNER_RUNS = 0100;

bool IsEscaped(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == '\\';
}

std::string EscapeName(std::string_view name) {
  std::string text;
  for (const char c : name) {
    if (IsEscaped(c)) {
      text += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    } else {
      text += c;
    }
  }
  return text;
}

std::optional<std::string> UnescapeName(std::string_view text) {
  std::string name;
  while (!text.empty()) {
    size_t length = 1;
    char c = text[0];
    if (c == '\\') {
      unsigned value = 0;
      length = 4;
      if (text.size() < length || text[1] != 'x') return std::nullopt;
      const auto [end, error] = std::from_chars(text.data() + 2, text.data() + length, value, 16);
      if (error != std::errc() || end != text.data() + length) return std::nullopt;
      c = static_cast<char>(value);
      if (!IsEscaped(c) || text.substr(0, length) != EscapeName({&c, 1})) return std::nullopt;
    } else if (IsEscaped(c)) {
      return std::nullopt;
    }
    name += c;
    text.remove_prefix(length);
  }
  return name;
}

bool IsName(std::string_view name) {
  if (name.empty() || name.size() > LONGEST_NAME || name.ends_with('/')) return false;
  while (!name.empty()) {
    const size_t end = std::min(name.find('/'), name.size());
    const std::string_view component = name.substr(0, end);
    if (component.empty() || component == "." || component == "..") return false;
    if (component.find_first_of(std::string_view("\0\\", 2)) != std::string_view::npos) return false;
    name.remove_prefix(std::min(end + 1, name.size()));
  }
  return true;
}

bool IsLink(const ManifestLink& link) {
  return IsName(link.name) && !link.leadsTo.empty() && link.leadsTo.size() <= LONGEST_LINK &&
         link.leadsTo.find('\0') == std::string::npos;
}

/// A number as it is printed: no sign but "-", no zero in front.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text != fmt::to_string(value)) return std::nullopt;
  return value;
}

/// What stands before the next `divider`, which goes as well; nothing when there is none.
std::optional<std::string_view> Take(std::string_view& text, char divider) {
  const size_t end = text.find(divider);
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end + 1);
  return taken;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// What follows the first word: the version, which says the kind of the digests.
std::string_view VersionOf(DigestKind kind) {
  return kind == DigestKind::Xxh3 ? "2 xxh3\n" : "1\n";
}

/// The first line goes.
std::optional<DigestKind> TakeHeader(std::string_view& text, std::string_view word) {
  if (!TakePrefix(text, word)) return std::nullopt;
  for (const DigestKind kind : {DigestKind::Blake2b, DigestKind::Xxh3})
    if (TakePrefix(text, VersionOf(kind))) return kind;
  return std::nullopt;
}

std::string FormatFile(const ManifestEntry& entry, DigestKind kind) {
  return fmt::format("file {} {}.{:09} {} {} {}\n", entry.size, entry.written.seconds, entry.written.nanoseconds,
                     entry.permissions  ? fmt::format("{:03o}", *entry.permissions)
                     : entry.executable ? "x"
                                        : "-",
                     ToHex(entry.digest, kind), EscapeName(entry.name));
}

/// The field of a "file" line that says who may do what with it.
bool ParsePermissions(std::string_view text, ManifestEntry& entry) {
  entry.executable = text == "x";
  if (text == "x" || text == "-") return true;
  uint16_t bits = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits, 8);
  if (text.size() != 3 || error != std::errc() || end != text.data() + text.size()) return false;
  entry.permissions = bits;
  entry.executable = (bits & OWNER_RUNS) != 0;
  return true;
}

/// The rest of a line after "file ".
std::optional<ManifestEntry> ParseFile(std::string_view line, DigestKind kind) {
  const auto size = Take(line, ' ');
  const auto seconds = Take(line, '.');
  const auto nanoseconds = Take(line, ' ');
  const auto permissions = Take(line, ' ');
  const auto digest = Take(line, ' ');
  // A field that lacks its divider takes none of the line, so each is asked.
  if (!size || !seconds || !nanoseconds || !permissions || !digest) return std::nullopt;
  if (nanoseconds->size() != NANOSECOND_DIGITS) return std::nullopt;
  const auto sizeValue = ParseNumber<uint64_t>(*size);
  const auto secondsValue = ParseNumber<int64_t>(*seconds);
  const std::string_view digits = nanoseconds->substr(std::min(nanoseconds->find_first_not_of('0'), size_t{8}));
  const auto nanosecondsValue = ParseNumber<uint32_t>(digits);
  const auto digestValue = FromHex(*digest, kind);
  auto name = UnescapeName(line);
  if (!sizeValue || !secondsValue || !nanosecondsValue || !digestValue || !name || !IsName(*name)) return std::nullopt;
  if (*secondsValue > LATEST_TIME || *secondsValue < -LATEST_TIME || *nanosecondsValue >= NANOSECONDS)
    return std::nullopt;
  ManifestEntry entry{std::move(*name), *sizeValue, *digestValue, {*secondsValue, *nanosecondsValue}, false, {}};
  if (!ParsePermissions(*permissions, entry)) return std::nullopt;
  return entry;
}

/// The rest of a line after "only".
std::optional<std::vector<uint32_t>> ParseOnly(std::string_view line) {
  std::vector<uint32_t> addresses;
  while (!line.empty()) {
    if (!TakePrefix(line, " ") || addresses.size() == MOST_ADDRESSES) return std::nullopt;
    const std::string_view text = line.substr(0, line.find(' '));
    const auto address = ParseAddress(text);
    if (!address) return std::nullopt;
    addresses.push_back(*address);
    line.remove_prefix(text.size());
  }
  return addresses.empty() ? std::nullopt : std::optional(addresses);
}

bool AddOnly(std::string_view line, Manifest& manifest) {
  auto addresses = ParseOnly(line);
  if (!addresses) return false;
  manifest.onlyFor = std::move(*addresses);
  return true;
}

bool AddFile(std::string_view line, bool isSorted, Manifest& manifest) {
  auto entry = ParseFile(line, manifest.kind);
  if (!entry || !manifest.emptyDirectories.empty() || !manifest.links.empty()) return false;
  if (isSorted && !manifest.files.empty() && entry->name <= manifest.files.back().name) return false;
  manifest.files.push_back(std::move(*entry));
  return true;
}

bool AddDirectory(std::string_view line, Manifest& manifest) {
  auto name = UnescapeName(line);
  if (!name || !IsName(*name) || !manifest.links.empty()) return false;
  if (!manifest.emptyDirectories.empty() && *name <= manifest.emptyDirectories.back()) return false;
  manifest.emptyDirectories.push_back(std::move(*name));
  return true;
}

/// The first "//" ends the name, which holds none.
bool AddLink(std::string_view line, Manifest& manifest) {
  const size_t end = line.find(LINK_DIVIDER);
  if (end == std::string_view::npos) return false;
  auto name = UnescapeName(line.substr(0, end));
  auto leadsTo = UnescapeName(line.substr(end + LINK_DIVIDER.size()));
  if (!name || !leadsTo || !IsLink({*name, *leadsTo})) return false;
  if (!manifest.links.empty() && *name <= manifest.links.back().name) return false;
  manifest.links.push_back({std::move(*name), std::move(*leadsTo)});
  return true;
}

/// Everything between the header and the seal, which are whole lines.
std::optional<Manifest> ParseLines(std::string_view text, DigestKind kind, bool isSorted) {
  Manifest manifest;
  manifest.kind = kind;
  // Most lines are files', and none of those is shorter; anybody may have written them.
  constexpr size_t SHORTEST_LINE = std::string_view("file 0 0.000000000 -  a\n").size();
  const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  manifest.files.reserve(std::min(lines, text.size() / (SHORTEST_LINE + HexLength(kind))));
  for (bool first = true; auto line = Take(text, '\n'); first = false) {
    const bool good = (first && TakePrefix(*line, "only")) ? AddOnly(*line, manifest)
                      : TakePrefix(*line, "file ")         ? AddFile(*line, isSorted, manifest)
                      : TakePrefix(*line, "dir ")          ? AddDirectory(*line, manifest)
                      : TakePrefix(*line, "link ")         ? AddLink(*line, manifest)
                                                           : false;
    if (!good) return std::nullopt;
  }
  return manifest;
}

/// Whether no link has the name of something else, and nothing lies beneath one.
bool HasRoomForLinks(const Manifest& manifest, std::set<std::string_view> names,
                     std::set<std::string_view> directories) {
  std::set<std::string_view> links;
  for (const ManifestLink& link : manifest.links)
    if (!IsLink(link) || !links.insert(link.name).second) return false;
  if (links.empty()) return true;
  names.merge(directories);
  const auto isTaken = [&](std::string_view link) { return names.contains(link); };
  const auto isBeneath = [&](std::string_view name) {
    for (size_t end = name.find('/'); end != std::string_view::npos; end = name.find('/', end + 1))
      if (links.contains(name.substr(0, end))) return true;
    return false;
  };
  return std::none_of(links.begin(), links.end(), isTaken) && std::none_of(links.begin(), links.end(), isBeneath) &&
         std::none_of(names.begin(), names.end(), isBeneath);
}

/// No key goes with the kind that is not made for it.
Digest SealOf(std::string_view text, DigestKind kind, const ManifestKey* key) {
  return kind == DigestKind::Blake2b ? DigestOf(text, key) : DigestOf(text, kind);
}

void AddSeal(std::string& text, DigestKind kind, const ManifestKey* key) {
  text += fmt::format("seal {} {}\n", key != nullptr ? "keyed" : "plain", ToHex(SealOf(text, kind, key), kind));
}

/// Of its text, nearly: what a name needs beyond its own bytes is rare.
size_t LengthOf(const Manifest& manifest) {
  constexpr size_t HEAD_AND_SEAL = 200, NUMBERS = 48;
  size_t length = HEAD_AND_SEAL + manifest.files.size() * (NUMBERS + HexLength(manifest.kind));
  for (const ManifestEntry& entry : manifest.files) length += entry.name.size();
  return length;
}

/// The places of the elements in the order of their names; or as they are.
template <typename Element>
std::vector<uint32_t> Places(const std::vector<Element>& elements, bool sorted) {
  const auto name = [&](uint32_t place) -> const std::string& {
    if constexpr (std::is_same_v<Element, std::string>) {
      return elements[place];
    } else {
      return elements[place].name;
    }
  };
  std::vector<uint32_t> places(elements.size());
  std::iota(places.begin(), places.end(), 0u);
  if (sorted) std::sort(places.begin(), places.end(), [&](uint32_t a, uint32_t b) { return name(a) < name(b); });
  return places;
}

std::string Format(std::string_view word, const Manifest& manifest, const ManifestKey* key) {
  assert(key == nullptr || manifest.kind == DigestKind::Blake2b);
  const bool sorted = word == MANIFEST;
  std::string text(word);
  text.reserve(LengthOf(manifest));
  text += VersionOf(manifest.kind);
  if (!manifest.onlyFor.empty()) text += "only";
  for (const uint32_t address : manifest.onlyFor) text += " " + FormatAddress(address);
  if (!manifest.onlyFor.empty()) text += '\n';
  for (const uint32_t place : Places(manifest.files, sorted)) text += FormatFile(manifest.files[place], manifest.kind);
  for (const uint32_t place : Places(manifest.emptyDirectories, sorted))
    text += "dir " + EscapeName(manifest.emptyDirectories[place]) + "\n";
  for (const uint32_t place : Places(manifest.links, sorted)) {
    const ManifestLink& link = manifest.links[place];
    text += fmt::format("link {}{}{}\n", EscapeName(link.name), LINK_DIVIDER, EscapeName(link.leadsTo));
  }
  AddSeal(text, manifest.kind, key);
  return text;
}

std::variant<ReadManifest, std::string> Parse(std::string_view word, std::string_view text, const ManifestKey* key) {
  if (text.size() > MANIFEST_LIMIT) return "the manifest is too large";
  std::string_view lines = text;
  const auto kind = TakeHeader(lines, word);
  const size_t sealLength = std::string_view("seal keyed \n").size() + HexLength(kind.value_or(DigestKind::Blake2b));
  if (!kind || lines.size() < sealLength) return "it is no manifest";
  std::string_view seal = text.substr(text.size() - sealLength);
  const std::string_view sealed = text.substr(0, text.size() - sealLength);
  lines.remove_suffix(sealLength);
  const bool keyed = *kind == DigestKind::Blake2b && seal.starts_with("seal keyed ");
  if ((!keyed && !seal.starts_with("seal plain ")) || !seal.ends_with('\n') || !sealed.ends_with('\n'))
    return "the manifest has no seal";
  seal.remove_prefix(std::string_view("seal keyed ").size());
  seal.remove_suffix(1);
  const auto digest = FromHex(seal, *kind);
  if (key != nullptr && !keyed) return "the manifest is not sealed with a key";
  const bool checked = key != nullptr || !keyed;
  if (!digest || (checked && !IsSame(*digest, SealOf(sealed, *kind, key))))
    return keyed ? "the manifest is sealed with another key, or was changed" : "the manifest was changed";
  auto manifest = ParseLines(lines, *kind, word == MANIFEST);
  if (!manifest || !IsWellFormed(*manifest)) return "the manifest is not well-formed";
  return ReadManifest{std::move(*manifest), !checked ? Seal::Unchecked : keyed ? Seal::Keyed : Seal::Plain};
}

}  // namespace

std::string FormatManifest(const Manifest& manifest, const ManifestKey* key) {
  return Format(MANIFEST, manifest, key);
}

std::string FormatCatalogue(const Manifest& catalogue, const ManifestKey* key) {
  return Format(CATALOGUE, catalogue, key);
}

CatalogueText::CatalogueText() : text(CATALOGUE) {
  text += VersionOf(DigestKind::Blake2b);
}

void CatalogueText::Add(const std::string& name, uint64_t size, FileTime written) {
  text += FormatFile({name, size, Digest{}, written, false, {}}, DigestKind::Blake2b);
}

std::string CatalogueText::Finish() {
  AddSeal(text, DigestKind::Blake2b, nullptr);
  return std::move(text);
}

void ForgetPermissions(Manifest& manifest) {
  for (ManifestEntry& file : manifest.files) file.permissions.reset();
}

std::string StoredName(std::string name) {
  std::erase_if(name, [](char c) { return std::string_view("*?><").find(c) != std::string_view::npos; });
  return name;
}

bool IsWellFormed(const Manifest& manifest) {
  std::set<std::string_view> files;
  std::set<std::string_view> directories;
  return std::all_of(manifest.files.begin(), manifest.files.end(),
                     [&](const auto& file) { return IsName(file.name) && files.insert(file.name).second; }) &&
         std::all_of(manifest.emptyDirectories.begin(), manifest.emptyDirectories.end(),
                     [&](const auto& name) { return IsName(name) && directories.insert(name).second; }) &&
         HasRoomForLinks(manifest, std::move(files), std::move(directories));
}

std::variant<ReadManifest, std::string> ParseManifest(std::string_view text, const ManifestKey* key) {
  return Parse(MANIFEST, text, key);
}

std::variant<ReadManifest, std::string> ParseCatalogue(std::string_view text, const ManifestKey* key) {
  return Parse(CATALOGUE, text, key);
}

}  // namespace quorl::cli
