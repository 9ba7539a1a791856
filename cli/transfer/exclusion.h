// Names that `quorl send` leaves out on request.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl::cli {

/// Directories that are sent from stand as drives from this letter on, "D:" first.
inline constexpr char FIRST_LETTER = 'D';
inline constexpr size_t DRIVE_LENGTH = 2;

/// Whether a name fits a pattern: "*" stands for any characters but "/", "**" for any, "?" for one, "[a-z]" and
/// "[!a-z]" for one of a set, "\\" for the next character itself.
bool Matches(std::string_view pattern, std::string_view name);

/// The patterns of --exclude, single files and directories, and symbolic links.
class Exclusion {
 public:
  explicit Exclusion(std::vector<std::string> patterns = {}) : patterns(std::move(patterns)) {}

  /// `name`: as it would travel, "tree/sub/a.txt". A pattern with "/" is for the whole of it, or of its end behind one;
  /// any other is for its last part. One that ends with "/" is for directories.
  bool Excludes(std::string_view name, bool isDirectory) const;

  /// Leaves out every symbolic link that is met, but not one that was named; without it they are followed.
  /// `local`: a path of the library as one of this machine.
  void LeaveOutLinks(std::function<std::string(std::string_view drivePath)> local) { localPath = std::move(local); }

  /// What such a link leads to; nothing when the path is none, or is left out for its name already.
  std::optional<std::string> LinkLeftOut(std::string_view drivePath) const;

  /// Leaves out a path of the library as well.
  void Add(const std::string& drivePath) { paths.insert(drivePath); }

  /// For SetSelectionFilter, with the exclusion as its context.
  static uint32_t Filter(void* context, const char* drivePath, uint32_t isDirectory);

 private:
  std::vector<std::string> patterns;
  std::function<std::string(std::string_view)> localPath;
  std::set<std::string, std::less<>> paths;
};

}  // namespace quorl::cli
