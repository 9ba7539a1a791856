// What every fuzz target uses.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <type_traits>

/// Stops the run when something does not hold that must.
#define MUST(CONDITION) ((CONDITION) ? void() : quorl::fuzz::Fail(__FILE__, __LINE__, #CONDITION))

namespace quorl::fuzz {

[[noreturn]] inline void Fail(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

/// The bytes of an input, read as whatever the target needs. Beyond their end everything is 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes(data, size) {}

  bool IsEmpty() const { return bytes.empty(); }

  template <typename Number>
  Number Take() {
    static_assert(std::is_unsigned_v<Number>);
    Number number = 0;
    const auto taken = TakeBytes(sizeof(Number));
    for (size_t i = 0; i < taken.size(); ++i) number = static_cast<Number>(number | Number{taken[i]} << (8 * i));
    return number;
  }

  /// 0 to bound - 1; at most 256 values.
  uint32_t Below(uint32_t bound) { return Take<uint8_t>() % bound; }

  /// Mostly small, sometimes near the ends of what 32 bits hold: where errors live.
  uint32_t Number() {
    const uint8_t kind = Take<uint8_t>();
    if (kind < 200) return kind % 20;
    if (kind < 225) return UINT32_MAX - kind % 5;
    return Take<uint32_t>();
  }

  /// Fewer at the end of the input.
  std::span<const uint8_t> TakeBytes(size_t count) {
    const auto taken = bytes.first(std::min(count, bytes.size()));
    bytes = bytes.subspan(taken.size());
    return taken;
  }

  std::string TakeText(size_t count) {
    const auto taken = TakeBytes(count);
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const uint8_t> bytes;
};

/// What a target does with an input; each defines its own.
void Run(Input input);

}  // namespace quorl::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::fuzz::Run({data, size});
  return 0;
}
