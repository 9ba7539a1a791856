#include "cli/show/units.h"

#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <cmath>

namespace quorl::cli {
namespace {

/// The unit that a number of bytes is shown in, and how exactly.
struct Scale {
  double unit = 1;
  std::string_view prefix;
  int decimals = 0;

  std::string Show(uint64_t bytes) const { return fmt::format("{:.{}f}", static_cast<double>(bytes) / unit, decimals); }
};

Scale ScaleOf(uint64_t bytes) {
  constexpr std::string_view PREFIXES = "kMGTPE";
  if (bytes < 1000) return {};
  double value = static_cast<double>(bytes) / 1000;
  size_t index = 0;
  double unit = 1000;
  for (; value >= 999.5 && index + 1 < PREFIXES.size(); value /= 1000, unit *= 1000) ++index;
  return {unit, PREFIXES.substr(index, 1), value < 9.995 ? 2 : value < 99.95 ? 1 : 0};
}

}  // namespace

std::optional<uint32_t> ParseRate(std::string_view text) {
  if (text == "compatible") return 0;
  if (text == "max") return FULL_SPEED;
  double number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc{}) return std::nullopt;
  std::string_view unit = text.substr(static_cast<size_t>(end - text.data()));
  double bits = number;
  if (unit == "k" || unit == "K") {
    bits *= 1e3;
  } else if (unit == "m" || unit == "M") {
    bits *= 1e6;
  } else if (unit == "g" || unit == "G") {
    bits *= 1e9;
  } else if (!unit.empty()) {
    return std::nullopt;
  }
  double kilobits = std::floor(bits / 1000);
  if (!(kilobits >= 1 && kilobits <= 4294967295.0)) return std::nullopt;
  return static_cast<uint32_t>(kilobits);
}

std::string FormatBytes(uint64_t bytes) {
  Scale scale = ScaleOf(bytes);
  return fmt::format("{} {}B", scale.Show(bytes), scale.prefix);
}

std::string FormatPart(uint64_t part, uint64_t whole) {
  Scale scale = ScaleOf(whole);
  return fmt::format("{} of {} {}B", scale.Show(part), scale.Show(whole), scale.prefix);
}

std::string FormatRate(double bytesPerSecond) {
  return FormatBytes(static_cast<uint64_t>(std::max(bytesPerSecond, 0.0))) + "/s";
}

std::string FormatLinkRate(uint32_t kilobitsPerSecond) {
  if (kilobitsPerSecond == 0) return "the compatible pace";
  if (kilobitsPerSecond == FULL_SPEED) return "full speed";
  if (kilobitsPerSecond >= 1000000) return fmt::format("{:g} Gbit/s", kilobitsPerSecond / 1e6);
  if (kilobitsPerSecond >= 1000) return fmt::format("{:g} Mbit/s", kilobitsPerSecond / 1e3);
  return fmt::format("{} kbit/s", kilobitsPerSecond);
}

std::string FormatDuration(std::chrono::nanoseconds duration) {
  double seconds = std::chrono::duration<double>(duration).count();
  if (seconds < 59.95) return fmt::format("{:.1f} s", seconds);
  auto whole = static_cast<uint64_t>(std::llround(seconds));
  if (whole < 3600) return fmt::format("{} min {} s", whole / 60, whole % 60);
  return fmt::format("{} h {} min", whole / 3600, whole % 3600 / 60);
}

std::string FormatLeft(std::chrono::seconds duration) {
  auto seconds = duration.count();
  if (seconds < 60) return fmt::format("{} s left", seconds);
  return FormatDuration(duration) + " left";
}

std::string FormatAddress(uint32_t address) {
  static_assert(std::endian::native == std::endian::little);
  return fmt::format("{}.{}.{}.{}", address & 0xFF, address >> 8 & 0xFF, address >> 16 & 0xFF, address >> 24);
}

std::optional<uint32_t> ParseAddress(std::string_view text) {
  uint32_t address = 0;
  const char* at = text.data();
  const char* const end = text.data() + text.size();
  for (unsigned shift = 0; shift < 32; shift += 8) {
    uint8_t part = 0;
    if (shift != 0 && (at == end || *at++ != '.')) return std::nullopt;
    const auto [next, error] = std::from_chars(at, end, part);
    if (error != std::errc{}) return std::nullopt;
    address |= uint32_t{part} << shift;
    at = next;
  }
  return at == end && FormatAddress(address) == text ? std::optional(address) : std::nullopt;
}

bool IsBefore(uint32_t address, uint32_t other) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const uint32_t left = address >> shift & 0xFF;
    const uint32_t right = other >> shift & 0xFF;
    if (left != right) return left < right;
  }
  return false;
}

std::string Count(uint64_t number, std::string_view noun) {
  std::string digits = std::to_string(number);
  for (size_t place = digits.size(); place > 3; place -= 3) digits.insert(place - 3, 1, ' ');
  return fmt::format("{} {}{}", digits, noun, number == 1 ? "" : "s");
}

}  // namespace quorl::cli
