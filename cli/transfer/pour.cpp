#include "cli/transfer/pour.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <span>
#include <vector>

#include "cli/show/escape.h"
#include "cli/show/units.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr size_t POURED_AT_ONCE = size_t{1} << 20;
// Between two looks whether somebody wants an end, while nothing can be written.
constexpr auto PATIENCE = 100ms;

Failure Unwritable(Exit code, const Sink& sink, const std::string& why) {
  return {code, fmt::format("{} cannot be written", sink.shown), why, {}};
}

}  // namespace

Sink Sink::Open(const std::string& text) {
  Sink sink{text == "-" ? "standard output" : fmt::format("\"{}\"", Escape(text)), std::nullopt, ""};
  if (text == "-") {
    sink.outlet = Outlet::StandardOutput();
  } else {
    std::error_code ignored;
    const auto type = std::filesystem::status(PathFrom(text), ignored).type();
    if (type == std::filesystem::file_type::directory)
      throw Failure{Exit::Usage, sink.shown + " is a directory", "--output names a file or a device", {}};
    if (type == std::filesystem::file_type::regular || type == std::filesystem::file_type::not_found) {
      sink.name = PathFrom(text).filename().string();
      return sink;
    }
    sink.outlet = Outlet::Open(text);
  }
  if (!*sink.outlet) throw Unwritable(Exit::LocalFiles, sink, sink.outlet->Why().text);
  return sink;
}

std::optional<Failure> Pour(OpenedFile& file, uint64_t size, Sink& sink, const DigestProgress& progress,
                            bool& interrupted) {
  const auto room = sink.outlet->Room();
  if (room && *room < size) {
    return Unwritable(
        Exit::NoRoom, sink,
        fmt::format("it holds {}, and {} came; nothing was written", FormatBytes(*room), FormatBytes(size)));
  }
  std::vector<char> piece(POURED_AT_ONCE);
  while (const auto count = file.Read(piece)) {
    for (std::span<const char> rest(piece.data(), *count); !rest.empty();) {
      const auto written = sink.outlet->Write(rest, PATIENCE);
      if (!written) return Unwritable(Exit::LocalFiles, sink, sink.outlet->Why().text);
      rest = rest.subspan(*written);
      interrupted = !progress(*written);
      if (interrupted) return std::nullopt;
    }
    if (*count < piece.size()) {
      const SystemError error = sink.outlet->Sync();
      return error ? std::optional(Unwritable(Exit::LocalFiles, sink, error.text)) : std::nullopt;
    }
  }
  return Failure{Exit::LocalFiles, "what was received cannot be read", file.Why().text, {}};
}

}  // namespace quorl::cli
