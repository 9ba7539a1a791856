#include "platform/win32/text.h"

#include "platform/win32/system.h"

namespace quorl {

namespace {

std::optional<std::wstring> Widen(std::string_view text, DWORD flags) {
  if (text.empty()) return std::wstring();
  const int length = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(CP_ACP, flags, text.data(), length, nullptr, 0);
  if (needed <= 0) return std::nullopt;
  std::wstring wide(static_cast<size_t>(needed), L'\0');
  MultiByteToWideChar(CP_ACP, flags, text.data(), length, wide.data(), needed);
  return wide;
}

std::string Narrow(std::wstring_view text, DWORD flags) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int needed = WideCharToMultiByte(CP_ACP, flags, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<size_t>(needed > 0 ? needed : 0), '\0');
  WideCharToMultiByte(CP_ACP, flags, text.data(), length, narrow.data(), needed, nullptr, nullptr);
  return narrow;
}

}  // namespace

std::optional<std::wstring> ToWide(std::string_view text) {
  return Widen(text, MB_ERR_INVALID_CHARS);
}

std::string ToNarrow(std::wstring_view text) {
  // In UTF-8 nothing has to be replaced, and no flag is allowed.
  return Narrow(text, GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS);
}

std::string ThroughWide(const std::string& text) {
  return Narrow(Widen(text, 0).value_or(std::wstring()), 0);
}

}  // namespace quorl
