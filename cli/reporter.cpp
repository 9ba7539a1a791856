// What the command tells, and in which form: lines, a block that is redrawn, JSON, the log.
#include "cli/reporter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "cli/escape.h"
#include "cli/progress.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr size_t WIDEST = 100;
constexpr int SCHEMA = 1;

bool IsDumb() {
  const char* terminal = std::getenv("TERM");
  return terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
}

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool WantsColor(ColorStyle style) {
  if (style != ColorStyle::Auto) return style == ColorStyle::Always;
  return isatty(STDOUT_FILENO) != 0 && isatty(STDERR_FILENO) != 0 && !IsDumb() && !IsSet("NO_COLOR");
}

/// The text as the log and pipes want it. Names are escaped, so every ESC is one of ours.
std::string WithoutColor(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    size_t start = std::min(text.find('\x1b'), text.size());
    plain += text.substr(0, start);
    size_t end = text.find('m', start);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return plain;
}

/// The three parts, and the exit code at the right of the last line.
std::string ErrorText(const Failure& failure, size_t width) {
  std::vector<std::string> lines = {
      fmt::format("error: {}{}{}", failure.what, failure.why.empty() ? "" : ": ", failure.why)};
  for (const std::string& hint : failure.next) lines.push_back("  " + hint);
  std::string code = fmt::format("   exit code {}", static_cast<int>(failure.code));
  if (Columns(lines.back()) + code.size() > width) lines.emplace_back();
  size_t used = Columns(lines.back()) + code.size();
  lines.back() += std::string(width - std::min(width, used), ' ') + code;
  return fmt::format("{}", fmt::join(lines, "\n"));
}

}  // namespace

Reporter::Reporter(const OutputOptions& options, std::string_view command)
    : options(options), color(WantsColor(options.color)), started(Clock::now()) {
  block = options.progress == ProgressStyle::Auto && !options.json && isatty(STDERR_FILENO) != 0 && !IsDumb();
  Emit(Fact("hello")
           .Add("program", "quorl")
           .Add("version", QUORL_VERSION)
           .Add("schema", SCHEMA)
           .Add("command", command));
}

void Reporter::OpenLog() {
  if (options.log.empty()) return;
  log = std::fopen(options.log.c_str(), "ae");
  if (log != nullptr) return;
  throw Failure{Exit::LocalFiles,
                fmt::format("the log \"{}\" cannot be written", Escape(options.log)),
                std::strerror(errno),
                {"Name another file with --log."}};
}

Reporter::~Reporter() {
  ClearProgress();
  if (log != nullptr) std::fclose(log);
}

void Reporter::Say(Level level, const Fact& fact, std::string_view text) {
  uint32_t depth = level == Level::Protocol ? 2 : level == Level::Files ? 1 : 0;
  if (depth > options.verbosity) return;
  Emit(fact);
  if (text.empty()) return;
  Log(text);
  if (options.json || (options.quiet && level != Level::Always)) return;
  ClearProgress();
  Write(stdout, fmt::format("{}\n", text));
}

void Reporter::Warn(const Fact& fact, std::string_view text) {
  Emit(fact);
  Log(fmt::format("warning: {}", text));
  if (options.quiet) return;
  ClearProgress();
  Write(stderr, fmt::format("{} {}\n", Painted(Tint::Doubtful, "warning:"), text));
}

void Reporter::Complain(const Failure& failure) {
  Fact fact("error");
  Emit(fact.Add("exit_code", static_cast<int>(failure.code))
           .Add("what", failure.what)
           .Add("why", failure.why)
           .Add("next", failure.next));
  std::string text = ErrorText(failure, Width());
  Log(text);
  ClearProgress();
  constexpr std::string_view TITLE = "error:";
  Write(stderr, fmt::format("{}{}\n", Painted(Tint::Bad, TITLE), text.substr(TITLE.size())));
}

bool Reporter::WantsProgress() const {
  if (options.progress == ProgressStyle::None || (options.quiet && !options.json)) return false;
  return Clock::now() - lastProgress.value_or(started) >= Interval();
}

void Reporter::Progress(const ProgressView& view) {
  lastProgress = Clock::now();
  if (options.json) {
    Emit(view.fact);
    return;
  }
  if (!block) {
    Log(view.plain);
    Write(stderr, fmt::format("quorl: {}\n", view.plain));
    return;
  }
  std::string drawn = shownLines > 1 ? fmt::format("\x1b[{}A", shownLines - 1) : "";
  for (size_t i = 0; i < view.lines.size(); ++i) {
    drawn += fmt::format("{}\r{}\x1b[K", i == 0 ? "" : "\n", view.lines[i]);
  }
  Write(stderr, drawn + "\x1b[J");
  shownLines = view.lines.size();
}

void Reporter::ClearProgress() {
  if (shownLines == 0) return;
  if (!block) Write(stderr, "\n");
  if (block) Write(stderr, shownLines > 1 ? fmt::format("\x1b[{}A\r\x1b[J", shownLines - 1) : "\r\x1b[J");
  shownLines = 0;
}

void Reporter::Ask(std::string_view text) {
  ClearProgress();
  Write(stderr, text);
  shownLines = 1;
}

int Reporter::End(int exitCode) {
  ClearProgress();
  Emit(result.Add("exit_code", exitCode));
  return exitCode;
}

size_t Reporter::Width() const {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return WIDEST;
  return std::min<size_t>(size.ws_col, WIDEST);
}

std::string Reporter::Painted(Tint tint, std::string_view text) const {
  if (!color) return std::string(text);
  const char* code = tint == Tint::Good ? "32" : tint == Tint::Bad ? "31" : tint == Tint::Doubtful ? "33" : "1";
  return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

Clock::duration Reporter::Interval() const {
  return options.json ? 1s : block ? Clock::duration(200ms) : 10s;
}

void Reporter::Emit(const Fact& fact) {
  if (!options.json) return;
  auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count();
  Write(stdout, fmt::format("{{\"seq\":{},\"t_ms\":{},{}}}\n", sequence++, elapsed, fact.Fields()));
}

void Reporter::Log(std::string_view text) {
  if (log == nullptr) return;
  std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  fmt::print(log, "{:%Y-%m-%dT%H:%M:%S%z} {}\n", fmt::localtime(now), WithoutColor(text));
  std::fflush(log);
}

void Reporter::Write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace quorl::cli
