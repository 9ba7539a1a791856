#include "cli/units.h"

#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <cmath>

namespace quorl::cli {

std::optional<uint32_t> ParseRate(std::string_view text) {
  if (text == "compatible") return 0;
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
  if (bytes < 1000) return fmt::format("{} B", bytes);
  constexpr std::string_view UNITS = "kMGTPE";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  for (value /= 1000; value >= 999.5 && unit + 1 < UNITS.size(); value /= 1000) ++unit;
  int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f} {}B", value, decimals, UNITS[unit]);
}

std::string FormatRate(double bytesPerSecond) {
  return FormatBytes(static_cast<uint64_t>(std::max(bytesPerSecond, 0.0))) + "/s";
}

std::string FormatLinkRate(uint32_t kilobitsPerSecond) {
  if (kilobitsPerSecond == 0) return "the compatible pace";
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

std::string FormatAddress(uint32_t address) {
  static_assert(std::endian::native == std::endian::little);
  return fmt::format("{}.{}.{}.{}", address & 0xFF, address >> 8 & 0xFF, address >> 16 & 0xFF, address >> 24);
}

std::string Count(uint64_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

}  // namespace quorl::cli
