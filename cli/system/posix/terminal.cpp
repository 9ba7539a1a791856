#include "cli/system/terminal.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "cli/system/posix/error.h"
#include "cli/system/restore.h"

namespace quorl::cli {
namespace {

/// How the terminal was before it was changed; nothing while it is as it was. Of the main thread.
std::optional<termios> found;

/// A process in the background would be stopped by the terminal, which its shell has seen to.
void SetInForeground(const termios& settings) {
  if (tcgetpgrp(STDIN_FILENO) == getpgrp()) tcsetattr(STDIN_FILENO, TCSADRAIN, &settings);
}

}  // namespace

bool OutputIsTerminal() {
  return isatty(STDOUT_FILENO) != 0;
}

bool ErrorIsTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

bool TerminalIsDumb() {
  const char* const terminal = std::getenv("TERM");
  return terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
}

size_t TerminalColumns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool CanAsk() {
  // A job in the background would be stopped by the terminal for reading from it.
  return isatty(STDIN_FILENO) != 0 && ErrorIsTerminal() && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

SystemError WriteOut(std::FILE* stream, std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
  return written ? SystemError() : LastError();
}

void PrepareStreams() {
  std::signal(SIGPIPE, SIG_IGN);
}

bool LocaleIsUnicode() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    const std::string_view name = value;
    return name.ends_with("UTF-8") || name.ends_with("utf8") || name.ends_with("UTF8") || name.ends_with("utf-8");
  }
  return false;
}

struct KeyMode::State {
  termios settings{};
  bool isOutermost = false;
};

KeyMode::KeyMode(Input input) {
  termios settings{};
  if (!CanAsk() || tcgetattr(STDIN_FILENO, &settings) != 0) return;
  termios keys = settings;
  keys.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  if (input == Input::Each) {
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON);
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
  }
  if (tcsetattr(STDIN_FILENO, input == Input::Each ? TCSAFLUSH : TCSADRAIN, &keys) != 0) return;
  before = std::make_unique<State>(State{settings, !found});
  if (!found) found = settings;
}

KeyMode::~KeyMode() {
  if (!before) return;
  if (found) SetInForeground(before->settings);
  if (before->isOutermost) found.reset();
}

void RestoreTerminal() {
  if (found) SetInForeground(*found);
  found.reset();
}

void KeyMode::Forget() {
  tcflush(STDIN_FILENO, TCIFLUSH);
}

}  // namespace quorl::cli
