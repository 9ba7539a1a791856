#include "platform/relative_path.h"

#include <algorithm>

namespace quorl {

namespace {

bool IsAllowed(std::string_view component) {
  return component != "." && component != ".." && component.find('/') == std::string_view::npos &&
         component.find('\0') == std::string_view::npos;
}

}  // namespace

std::optional<RelativePath> RelativePath::FromText(std::string_view text) {
  RelativePath path;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\\'), text.size());
    const std::string_view component = text.substr(0, end);
    if (!IsAllowed(component)) return std::nullopt;
    if (!component.empty()) path.components.emplace_back(component);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return path;
}

RelativePath RelativePath::Parent() const {
  RelativePath parent = *this;
  if (!parent.components.empty()) parent.components.pop_back();
  return parent;
}

}  // namespace quorl
