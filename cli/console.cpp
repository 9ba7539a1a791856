#include "cli/console.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

size_t TerminalWidth() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Console::Console() : terminal(isatty(STDERR_FILENO) != 0), last(std::chrono::steady_clock::now()) {}

Console::~Console() {
  ClearProgress();
}

void Console::Say(std::string_view line) {
  ClearProgress();
  fmt::print(stdout, "{}\n", line);
  std::fflush(stdout);
}

void Console::Warn(std::string_view line) {
  ClearProgress();
  fmt::print(stderr, "{}\n", line);
}

void Console::Report(const Failure& failure) {
  Warn(fmt::format("error: {}{}{}", failure.what, failure.why.empty() ? "" : ": ", failure.why));
  if (!failure.next.empty()) Warn("  " + failure.next);
}

bool Console::WantsProgress() const {
  return std::chrono::steady_clock::now() - last >= Interval();
}

void Console::Progress(std::string_view line) {
  last = std::chrono::steady_clock::now();
  if (!terminal) {
    fmt::print(stderr, "{}\n", line);
    return;
  }
  fmt::print(stderr, "\r{}\x1b[K", line.substr(0, TerminalWidth() - 1));
  std::fflush(stderr);
  shown = true;
}

void Console::ClearProgress() {
  if (!shown) return;
  fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
  shown = false;
}

std::chrono::steady_clock::duration Console::Interval() const {
  return terminal ? 200ms : 10s;
}

}  // namespace quorl::cli
