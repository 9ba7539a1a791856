#include "cli/system/streams.h"

#include <algorithm>
#include <vector>

#include "cli/system/win32/error.h"
#include "cli/system/win32/paths.h"
#include "platform/win32/handle.h"

namespace quorl::cli {
namespace {

constexpr size_t PIECE = size_t{1} << 20;

/// The end of a pipe is an error here.
bool IsEnd(DWORD error) {
  return error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF;
}

}  // namespace

struct InputAsFile::State {};

// An open file has no second name here; it is copied like anything else.
InputAsFile::Kind InputAsFile::Look() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) ? Kind::Terminal : Kind::Stream;
}

InputAsFile::InputAsFile(const std::string& path) {
  const auto place = LongForm(path);
  Handle copy;
  if (place)
    copy = Handle(CreateFileW(place->c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_TEMPORARY, nullptr));
  if (!copy) {
    why = ErrorOf(place ? GetLastError() : ERROR_INVALID_NAME);
    return;
  }
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  std::vector<char> piece(PIECE);
  while (true) {
    DWORD count = 0;
    if (!ReadFile(input, piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr)) {
      if (!IsEnd(GetLastError())) why = LastError();
      return;
    }
    DWORD written = 0;
    if (count == 0) return;
    if (!WriteFile(copy.Get(), piece.data(), count, &written, nullptr) || written != count) {
      why = LastError();
      return;
    }
    copied += count;
  }
}

struct Outlet::State {
  HANDLE handle = nullptr;
};

Outlet Outlet::StandardOutput() {
  Outlet outlet;
  outlet.state = std::make_shared<State>(State{GetStdHandle(STD_OUTPUT_HANDLE)});
  return outlet;
}

Outlet Outlet::Open(const std::string&) {
  Outlet outlet;
  outlet.why = {SystemError::Kind::NotHere, ERROR_NOT_SUPPORTED, "this system gives out no devices as files"};
  return outlet;
}

std::optional<uint64_t> Outlet::Room() const {
  return std::nullopt;
}

std::optional<size_t> Outlet::Write(std::span<const char> bytes, std::chrono::milliseconds) {
  DWORD written = 0;
  if (WriteFile(state->handle, bytes.data(), static_cast<DWORD>(std::min(bytes.size(), PIECE)), &written, nullptr))
    return written;
  why = LastError();
  return std::nullopt;
}

SystemError Outlet::Sync() const {
  return {};
}

}  // namespace quorl::cli
