#include "cli/system/terminal.h"

#include <cerrno>
#include <cstdlib>
#include <optional>

#include "cli/system/restore.h"
#include "cli/system/win32/error.h"

namespace quorl::cli {
namespace {

UINT pageBefore = 0;

/// How the console was before it was changed; nothing while it is as it was. Of the main thread.
std::optional<DWORD> found;

void SetInputMode(DWORD mode) {
  SetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), mode);
}

/// A console that takes the control sequences of terminals. One that does not shows them, and is treated as a file.
bool IsTerminal(DWORD stream) {
  const HANDLE handle = GetStdHandle(stream);
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) && SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}  // namespace

void PrepareStreams() {
  // Texts are in the code page of the process, which the manifest makes UTF-8. The console outlives the process.
  pageBefore = GetConsoleOutputCP();
  if (pageBefore == 0 || !SetConsoleOutputCP(GetACP())) return;
  std::atexit([] { SetConsoleOutputCP(pageBefore); });
}

bool OutputIsTerminal() {
  return IsTerminal(STD_OUTPUT_HANDLE);
}

bool ErrorIsTerminal() {
  return IsTerminal(STD_ERROR_HANDLE);
}

bool TerminalIsDumb() {
  return false;
}

size_t TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO about{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &about)) return 0;
  return static_cast<size_t>(about.srWindow.Right - about.srWindow.Left + 1);
}

bool LocaleIsUnicode() {
  // What PrepareStreams has made the console's page.
  return GetACP() == CP_UTF8;
}

SystemError WriteOut(std::FILE* stream, std::string_view text) {
  _doserrno = ERROR_SUCCESS;
  if (std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0) return {};
  // The system has nothing against a write that finds no room for a single byte; the language's library has.
  const DWORD silent = errno == ENOSPC ? ERROR_DISK_FULL : ERROR_WRITE_FAULT;
  return ErrorOf(_doserrno != ERROR_SUCCESS ? _doserrno : silent);
}

bool CanAsk() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) && ErrorIsTerminal();
}

struct KeyMode::State {
  DWORD mode = 0;
  bool isOutermost = false;
};

KeyMode::KeyMode(Input wanted) {
  // A console shows typed keys only while somebody reads lines from it.
  if (wanted == Input::Lines) return;
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  if (!GetConsoleMode(input, &mode)) return;
  const DWORD keys = (mode & ~static_cast<DWORD>(ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT)) | ENABLE_PROCESSED_INPUT;
  if (!SetConsoleMode(input, keys)) return;
  before = std::make_unique<State>(State{mode, !found});
  if (!found) found = mode;
  Forget();
}

KeyMode::~KeyMode() {
  if (!before) return;
  if (found) SetInputMode(before->mode);
  if (before->isOutermost) found.reset();
}

void RestoreTerminal() {
  if (found) SetInputMode(*found);
  found.reset();
}

void KeyMode::Forget() {
  FlushConsoleInputBuffer(GetStdHandle(STD_INPUT_HANDLE));
}

}  // namespace quorl::cli
