#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quorl {

/// A file descriptor that is closed when its owner goes, which leaves errno as it is: it tells why something failed.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number(number) {}
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }
  ~Descriptor() {
    if (number < 0) return;
    const int error = errno;
    close(number);
    errno = error;
  }

  explicit operator bool() const { return number >= 0; }
  int Get() const { return number; }
  int Release() { return std::exchange(number, -1); }
  void Close() { *this = Descriptor(); }

 private:
  int number = -1;
};

}  // namespace quorl
