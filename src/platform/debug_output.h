#pragma once

#include <string_view>

namespace quorl {

/// The platform's debug output: fixed English lines for whoever watches the library at work. Any thread may use it.
class DebugOutput {
 public:
  virtual ~DebugOutput() = default;
  virtual void Write(std::string_view text) = 0;
};

}  // namespace quorl
