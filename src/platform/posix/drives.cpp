// Drive letters for a system that has none. The host maps them, every path of the library goes through them.
#include "platform/posix/drives.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace quorl {

namespace {

/// The directory without links, or nothing when it is none.
std::optional<std::string> RealDirectory(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
  struct stat status {};
  if (!resolved || stat(resolved.get(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
  return resolved.get();
}

std::optional<size_t> IndexOf(char letter) {
  if (letter >= 'A' && letter <= 'Z') return letter - 'A';
  if (letter >= 'a' && letter <= 'z') return letter - 'a';
  return std::nullopt;
}

char LetterOf(size_t index) {
  return static_cast<char>('A' + index);
}

bool HasBackslash(const std::string& path) {
  return path.find('\\') != std::string::npos;
}

// Receiving removes these from the path of a target as from a file's name, which would lead to another directory.
bool HasRemovedChar(const std::string& path) {
  return path.find_first_of("*?<>") != std::string::npos;
}

bool HasDrive(const std::string& path) {
  return path.size() >= 2 && path[1] == ':';
}

/// What of `path` lies below `root`, with its leading slash; nothing when it lies elsewhere.
std::optional<std::string> Below(const std::string& path, const std::string& root) {
  if (root.empty()) return std::nullopt;
  if (root == "/") return path == "/" ? "" : path;
  if (!path.starts_with(root)) return std::nullopt;
  std::string rest = path.substr(root.size());
  if (!rest.empty() && rest[0] != '/') return std::nullopt;
  return rest;
}

std::string DriveText(size_t index, std::string rest) {
  for (char& character : rest)
    if (character == '/') character = '\\';
  return std::string(1, LetterOf(index)) + ":" + (rest.empty() ? "\\" : rest);
}

}  // namespace

std::string DrivePlace::LocalPath() const {
  std::string path = root == "/" ? "" : root;
  for (const std::string& component : below.Components()) path += "/" + component;
  return path.empty() ? "/" : path;
}

Drives::Drives() {
  roots[*IndexOf('C')] = "/";
}

bool Drives::Map(char letter, const std::string& directory) {
  const auto index = IndexOf(letter);
  const auto real = RealDirectory(directory);
  if (!index || !real) return false;
  const std::lock_guard lock(mutex);
  roots[*index] = *real;
  return true;
}

std::optional<std::string> Drives::DrivePathOf(const std::string& localDirectory) {
  const auto real = RealDirectory(localDirectory);
  if (!real || HasBackslash(*real)) return std::nullopt;
  const std::lock_guard lock(mutex);
  if (auto path = ByLongestRoot(*real); path && !HasRemovedChar(*path)) return path;
  for (size_t index = COUNT; index-- > 0;) {
    if (!roots[index].empty()) continue;
    roots[index] = *real;
    return DriveText(index, "");
  }
  return std::nullopt;
}

std::optional<std::string> Drives::DrivePathOfText(const std::string& localPath) const {
  std::string path = std::filesystem::path(localPath).lexically_normal().string();
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  if (!path.starts_with('/') || HasBackslash(path)) return std::nullopt;
  const std::lock_guard lock(mutex);
  return ByLongestRoot(path);
}

std::optional<std::string> Drives::ByLongestRoot(const std::string& localPath) const {
  std::optional<std::string> best;
  size_t bestLength = 0;
  for (size_t index = 0; index < COUNT; ++index) {
    const auto rest = Below(localPath, roots[index]);
    if (!rest || roots[index].size() <= bestLength) continue;
    bestLength = roots[index].size();
    best = DriveText(index, *rest);
  }
  return best;
}

std::optional<DrivePlace> Drives::Resolve(const std::string& drivePath) const {
  const auto index = HasDrive(drivePath) ? IndexOf(drivePath[0]) : std::nullopt;
  if (!index) return std::nullopt;
  auto below = RelativePath::FromText(std::string_view(drivePath).substr(2));
  if (!below) return std::nullopt;
  const std::lock_guard lock(mutex);
  if (roots[*index].empty()) return std::nullopt;
  return DrivePlace{roots[*index], std::move(*below)};
}

// A sender may have written the directory with slashes; those of a name from the network divide nothing.
std::optional<DrivePlace> Drives::ResolveTarget(const std::string& drivePath) const {
  std::string path = HasDrive(drivePath) ? drivePath : "C:\\" + drivePath;
  std::replace(path.begin(), path.end(), '/', '\\');
  return Resolve(path);
}

std::optional<DrivePlace> Drives::ResolveDisk(const std::string& drivePath) const {
  const auto place = ResolveTarget(drivePath);
  return place ? place : Resolve(HasDrive(drivePath) ? drivePath.substr(0, 2) : "C:");
}

}  // namespace quorl
