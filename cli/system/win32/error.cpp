#include "cli/system/win32/error.h"

#include <array>

#include "platform/win32/open_files.h"
#include "platform/win32/text.h"

namespace quorl::cli {
namespace {

SystemError::Kind KindOf(DWORD number) {
  using Kind = SystemError::Kind;
  switch (number) {
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return Kind::Exists;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA: return Kind::NoReader;
    default: return OutcomeOf(number) == WriteOutcome::DiskFull ? Kind::NoRoom : Kind::Other;
  }
}

}  // namespace

SystemError ErrorOf(DWORD number) {
  constexpr DWORD FLAGS = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
  std::array<wchar_t, 512> text{};
  const DWORD length = FormatMessageW(FLAGS, nullptr, number, 0, text.data(), text.size(), nullptr);
  std::string words = ToNarrow({text.data(), length});
  words.erase(words.find_last_not_of(" .\r\n") + 1);
  return {KindOf(number), static_cast<int>(number), words.empty() ? "error " + std::to_string(number) : words};
}

SystemError LastError() {
  return ErrorOf(GetLastError());
}

}  // namespace quorl::cli
