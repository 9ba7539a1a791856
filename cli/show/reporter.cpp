// What the command tells, and in which form: lines, a block that is redrawn, JSON, the log.
#include "cli/show/reporter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <utility>

#include "cli/show/escape.h"
#include "cli/show/progress.h"
#include "cli/system/terminal.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr size_t WIDEST = 100;

// Of terminals that keep a stack of titles; others take no notice.
constexpr std::string_view PUSH_TITLE = "\x1b[22;0t";
constexpr std::string_view POP_TITLE = "\x1b[23;0t";
constexpr int SCHEMA = 1;

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool WantsColor(ColorStyle style) {
  if (style != ColorStyle::Auto) return style == ColorStyle::Always;
  return OutputIsTerminal() && ErrorIsTerminal() && !TerminalIsDumb() && !IsSet("NO_COLOR");
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

/// The letters of bars and shortened names, for a terminal that shows no more than ASCII.
std::string InAscii(std::string text) {
  for (const auto& [drawn, plain] : {std::pair{"█", '#'}, {"░", '.'}, {"…", '~'}}) {
    for (size_t at = text.find(drawn); at != std::string::npos; at = text.find(drawn, at))
      text.replace(at, std::strlen(drawn), 1, plain);
  }
  return text;
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
  block = options.progress == ProgressStyle::Auto && !options.json && ErrorIsTerminal() && !TerminalIsDumb();
  Emit(Fact("hello")
           .Add("program", "quorl")
           .Add("version", QUORL_VERSION)
           .Add("schema", SCHEMA)
           .Add("command", command));
}

void Reporter::Open() {
  if (const auto failure = WhyLost()) throw Failure(*failure);
  if (options.log.empty()) return;
  log = AppendedFile::Open(options.log);
  if (log) return;
  throw Failure{Exit::LocalFiles,
                fmt::format("the log \"{}\" cannot be written", Escape(options.log)),
                log.Why().text,
                {"Name another file with --log."}};
}

Reporter::~Reporter() {
  ClearProgress();
  if (titled) WriteOut(stderr, POP_TITLE);
}

/// A program relies on its facts. One that stops reading has had enough of them.
std::optional<Failure> Reporter::WhyLost() const {
  if (!lost || lost.kind == SystemError::Kind::NoReader) return std::nullopt;
  return Failure{Exit::Other, "the facts for --json cannot be written", lost.text, {}};
}

bool Reporter::Wants(Level level) const {
  const uint32_t depth = level == Level::Protocol ? 2 : level == Level::Files ? 1 : 0;
  return depth <= options.verbosity;
}

void Reporter::Say(Level level, const Fact& fact, std::string_view text) {
  if (!Wants(level)) return;
  Emit(fact);
  if (text.empty()) return;
  Log(text);
  if (options.json || (options.quiet && level != Level::Always)) return;
  ClearProgress();
  WriteOut(options.textToError ? stderr : stdout, fmt::format("{}\n", text));
}

void Reporter::Warn(const Fact& fact, std::string_view text) {
  Emit(fact);
  Log(fmt::format("warning: {}", text));
  if (options.quiet) return;
  ClearProgress();
  WriteOut(stderr, fmt::format("{} {}\n", Painted(Tint::Doubtful, "warning:"), text));
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
  WriteOut(stderr, fmt::format("{}{}\n", Painted(Tint::Bad, TITLE), text.substr(TITLE.size())));
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
    WriteOut(stderr, fmt::format("quorl: {}\n", view.plain));
    return;
  }
  if (!unseen) unseen.emplace(KeyMode::Input::Lines);
  if (options.title) SetTitle(view.plain);
  Draw(view);
}

void Reporter::Draw(const ProgressView& view) {
  std::string drawn = shownLines > 1 ? fmt::format("\x1b[{}A", shownLines - 1) : "";
  for (size_t i = 0; i < view.lines.size(); ++i) {
    drawn +=
        fmt::format("{}\r{}\x1b[K", i == 0 ? "" : "\n", LocaleIsUnicode() ? view.lines[i] : InAscii(view.lines[i]));
  }
  WriteOut(stderr, drawn + "\x1b[J");
  shownLines = view.lines.size();
}

void Reporter::SetTitle(std::string_view text) {
  WriteOut(stderr, fmt::format("{}\x1b]0;quorl: {}\x07", titled ? "" : PUSH_TITLE, text));
  titled = true;
}

void Reporter::ClearProgress() {
  if (shownLines == 0) return;
  if (!block) WriteOut(stderr, "\n");
  if (block) WriteOut(stderr, shownLines > 1 ? fmt::format("\x1b[{}A\r\x1b[J", shownLines - 1) : "\r\x1b[J");
  shownLines = 0;
}

void Reporter::Ask(std::string_view text) {
  ClearProgress();
  WriteOut(stderr, text);
  shownLines = 1;
}

int Reporter::End(int exitCode) {
  ClearProgress();
  unseen.reset();
  Emit(result.Add("exit_code", exitCode));
  const auto failure = WhyLost();
  if (!failure || exitCode != 0) return exitCode;
  Complain(*failure);
  return static_cast<int>(failure->code);
}

size_t Reporter::Width() const {
  const size_t columns = TerminalColumns();
  return columns == 0 ? WIDEST : std::min(columns, WIDEST);
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
  const SystemError error =
      WriteOut(stdout, fmt::format("{{\"seq\":{},\"t_ms\":{},{}}}\n", sequence++, elapsed, fact.Fields()));
  if (!lost) lost = error;
}

void Reporter::Log(std::string_view text) {
  if (!log) return;
  std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  const std::string time = fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(now));
  std::istringstream lines(WithoutColor(text));
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) log.Write(fmt::format("{} {}\n", time, line));
  }
}

}  // namespace quorl::cli
