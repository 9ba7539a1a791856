#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// A name below some directory: components of which none is empty, "." or "..", and none holds a slash, a backslash or
/// a NUL. It cannot name anything outside the directory, as long as no link is followed on the way.
class RelativePath {
 public:
  /// From text whose components are divided by backslashes. Leading, doubled and trailing backslashes divide nothing.
  /// Nothing when a component is not allowed. Text without components gives the directory itself.
  static std::optional<RelativePath> FromText(std::string_view text);

  const std::vector<std::string>& Components() const { return components; }
  bool IsEmpty() const { return components.empty(); }

  /// The path without its last component.
  RelativePath Parent() const;

  friend bool operator==(const RelativePath&, const RelativePath&) = default;

 private:
  std::vector<std::string> components;
};

}  // namespace quorl
