#include "cli/show/progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

constexpr std::chrono::seconds WINDOW{5};
constexpr size_t PHASE_COLUMNS = 11;
constexpr size_t LONGEST_BAR = 34;
constexpr size_t SHORTEST_BAR = 10;
constexpr std::string_view GAP = "   ";

// Of labels in columns: before each line, and between two columns.
constexpr size_t INDENT = 2;
constexpr size_t BETWEEN_COLUMNS = 4;

/// As much of the beginning as fits into `columns`.
std::string_view Beginning(std::string_view text, size_t columns) {
  size_t length = 0;
  while (length < text.size()) {
    Character character = DecodeUtf8(text.substr(length));
    size_t needed = ColumnsOf(character);
    if (needed > columns) break;
    columns -= needed;
    length += std::max<size_t>(character.length, 1);
  }
  return text.substr(0, length);
}

/// As much of the end as fits.
std::string_view Ending(std::string_view text, size_t columns) {
  while (Columns(text) > columns) text.remove_prefix(std::max<size_t>(DecodeUtf8(text).length, 1));
  return text;
}

std::string Bar(double share, size_t columns) {
  auto full = static_cast<size_t>(std::clamp(share, 0.0, 1.0) * static_cast<double>(columns));
  std::string bar;
  for (size_t i = 0; i < columns; ++i) bar += i < full ? "█" : "░";
  return bar;
}

}  // namespace

void RateMeter::Add(Clock::time_point now, uint64_t total) {
  samples.push_back({now, total});
  while (samples.size() > 2 && now - samples[1].at >= WINDOW) samples.pop_front();
}

std::optional<double> RateMeter::PerSecond() const {
  if (samples.size() < 2) return std::nullopt;
  double seconds = std::chrono::duration<double>(samples.back().at - samples.front().at).count();
  double gained = static_cast<double>(samples.back().total) - static_cast<double>(samples.front().total);
  return seconds > 0 ? std::optional(std::max(gained, 0.0) / seconds) : std::nullopt;
}

std::optional<std::chrono::seconds> RateMeter::TimeFor(uint64_t rest) const {
  double seconds = std::ceil(static_cast<double>(rest) / PerSecond().value_or(0));
  if (!(seconds < 360000)) return std::nullopt;
  return std::chrono::seconds(static_cast<std::chrono::seconds::rep>(seconds));
}

uint32_t Percent(uint64_t part, uint64_t whole) {
  if (part >= whole) return 100;
  return static_cast<uint32_t>(100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string BarLine(std::string_view phase, double share, const std::vector<std::string>& parts, size_t width) {
  size_t bar = std::clamp<size_t>(width / 3, SHORTEST_BAR, LONGEST_BAR);
  std::string line = fmt::format("{:<{}}{}", phase, PHASE_COLUMNS, Bar(share, bar));
  for (const std::string& part : parts) {
    if (Columns(line) + GAP.size() + Columns(part) >= width) break;
    line += fmt::format("{}{}", GAP, part);
  }
  return std::string(Beginning(line, width - 1));
}

std::string BelowBar(const std::vector<std::string>& parts, size_t width) {
  std::string line(PHASE_COLUMNS - GAP.size(), ' ');
  for (const std::string& part : parts) {
    if (Columns(line) + GAP.size() + Columns(part) >= width) break;
    line += fmt::format("{}{}", GAP, part);
  }
  return line;
}

std::string InColumns(const std::vector<std::string>& labels, size_t width, size_t mostLines, const std::string& hint) {
  size_t column = 1;
  for (const std::string& label : labels) column = std::max(column, Columns(label) + BETWEEN_COLUMNS);
  const size_t perLine = std::max<size_t>(1, width / column);
  const bool fits = labels.size() <= perLine * mostLines;
  size_t shown = labels.size();
  if (!fits) {
    // The count of the rest takes the place of as many in the last line as it needs.
    const size_t taken = INDENT + fmt::format("... {} more{}", labels.size(), hint).size();
    shown = perLine * (mostLines - 1) + std::min(perLine - 1, (width - std::min(width, taken)) / column);
  }
  std::string text;
  for (size_t i = 0; i < shown; ++i) {
    const bool ends = i + 1 == labels.size() || (i + 1) % perLine == 0;
    text += std::string(i % perLine == 0 ? INDENT : 0, ' ') + labels[i];
    text += ends ? "" : std::string(column - Columns(labels[i]), ' ');
    if (ends && i + 1 < labels.size()) text += '\n';
  }
  if (fits) return text;
  text += std::string(shown % perLine == 0 ? INDENT : 0, ' ');
  return text + fmt::format("... {} more{}", labels.size() - shown, hint);
}

std::string LocalName(std::string_view name) {
  std::string local(name);
  std::replace(local.begin(), local.end(), '\\', '/');
  if (local.starts_with('/')) local.erase(0, 1);
  return local;
}

std::string ShownName(std::string_view name, size_t columns) {
  std::string shown = Escape(LocalName(name));
  if (Columns(shown) <= columns) return shown;
  if (columns < 3) return "";
  size_t head = (columns - 1) / 2;
  return fmt::format("{}…{}", Beginning(shown, head), Ending(shown, columns - 1 - head));
}

size_t Columns(std::string_view text) {
  size_t columns = 0;
  while (!text.empty()) {
    Character character = DecodeUtf8(text);
    columns += ColumnsOf(character);
    text.remove_prefix(std::max<size_t>(character.length, 1));
  }
  return columns;
}

}  // namespace quorl::cli
