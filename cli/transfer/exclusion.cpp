#include "cli/transfer/exclusion.h"

#include <quorl/quorl.h>

#include <algorithm>

#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/system/files.h"

namespace quorl::cli {
namespace {

std::string_view FirstCharacter(std::string_view text) {
  return text.substr(0, std::max<size_t>(DecodeUtf8(text).length, 1));
}

/// A set at the beginning of a pattern: whether it holds the character, and what of the pattern it takes; 0 when it is
/// not closed and stands for itself.
struct Set {
  bool holds = false;
  size_t length = 0;
};
Set ReadSet(std::string_view pattern, std::string_view character) {
  size_t at = 1;
  const bool isNegated = at < pattern.size() && (pattern[at] == '!' || pattern[at] == '^');
  at += isNegated ? 1 : 0;
  bool holds = false;
  // A "]" in the first place is one of the set.
  for (bool first = true; at < pattern.size() && (first || pattern[at] != ']'); first = false) {
    const std::string_view low = FirstCharacter(pattern.substr(at));
    at += low.size();
    std::string_view high = low;
    if (at + 1 < pattern.size() && pattern[at] == '-' && pattern[at + 1] != ']') {
      high = FirstCharacter(pattern.substr(at + 1));
      at += 1 + high.size();
    }
    holds = holds || (low <= character && character <= high);
  }
  if (at >= pattern.size()) return {};
  return {holds != isNegated && character != "/", at + 1};
}

}  // namespace

bool Matches(std::string_view pattern, std::string_view name) {
  while (!pattern.empty()) {
    if (pattern.front() == '*') {
      const bool crosses = pattern.starts_with("**");
      pattern.remove_prefix(std::min(pattern.find_first_not_of('*'), pattern.size()));
      for (;; name.remove_prefix(1)) {
        if (Matches(pattern, name)) return true;
        if (name.empty() || (name.front() == '/' && !crosses)) return false;
      }
    }
    if (name.empty()) return false;
    const std::string_view character = FirstCharacter(name);
    const Set set = pattern.front() == '[' ? ReadSet(pattern, character) : Set{};
    if (set.length != 0) {
      if (!set.holds) return false;
      pattern.remove_prefix(set.length);
    } else if (pattern.front() == '?') {
      if (character == "/") return false;
      pattern.remove_prefix(1);
    } else {
      if (pattern.front() == '\\' && pattern.size() > 1) pattern.remove_prefix(1);
      if (!pattern.starts_with(character)) return false;
      pattern.remove_prefix(character.size());
    }
    name.remove_prefix(character.size());
  }
  return name.empty();
}

bool Exclusion::Excludes(std::string_view name, bool isDirectory) const {
  return std::any_of(patterns.begin(), patterns.end(), [&](std::string_view pattern) {
    const bool forDirectories = pattern.size() > 1 && pattern.ends_with('/');
    if (forDirectories && !isDirectory) return false;
    if (forDirectories) pattern.remove_suffix(1);
    if (pattern.find('/') == std::string_view::npos) return Matches(pattern, name.substr(name.rfind('/') + 1));
    if (pattern.starts_with('/')) return Matches(pattern.substr(1), name);
    return Matches(pattern, name) || Matches("**/" + std::string(pattern), name);
  });
}

std::optional<std::string> Exclusion::LinkLeftOut(std::string_view drivePath) const {
  const std::string name = LocalName(std::string(drivePath.substr(std::min(drivePath.size(), DRIVE_LENGTH))));
  if (!localPath || name.find('/') == std::string::npos || Excludes(name, false)) return std::nullopt;
  return LinkAt(localPath(drivePath));
}

uint32_t Exclusion::Filter(void* context, const char* drivePath, uint32_t isDirectory) {
  const auto& exclusion = *static_cast<const Exclusion*>(context);
  const std::string_view path = drivePath;
  // The manifest travels from a drive before those of the selection.
  if (path.front() < FIRST_LETTER) return 1;
  if (exclusion.paths.contains(path)) return 0;
  const std::string name = LocalName(path.substr(std::min(path.size(), DRIVE_LENGTH)));
  if (exclusion.Excludes(name, isDirectory != 0)) return 0;
  return isDirectory == 0 && exclusion.LinkLeftOut(path) ? 0 : 1;
}

}  // namespace quorl::cli
