#pragma once

#include <utility>

#include "platform/win32/system.h"

namespace quorl {

/// A handle that is closed with its owner.
class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE value) : value(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
  ~Handle() { Close(); }
  Handle(Handle&& other) noexcept : value(std::exchange(other.value, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    if (this != &other) {
      Close();
      value = std::exchange(other.value, nullptr);
    }
    return *this;
  }

  HANDLE Get() const { return value; }
  explicit operator bool() const { return value != nullptr; }

  /// False when the system refused; the handle is gone all the same.
  bool Close() {
    const HANDLE closing = std::exchange(value, nullptr);
    return !closing || CloseHandle(closing) != 0;
  }

 private:
  HANDLE value = nullptr;
};

}  // namespace quorl
