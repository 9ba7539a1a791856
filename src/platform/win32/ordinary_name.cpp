#include "platform/win32/ordinary_name.h"

#include <algorithm>
#include <array>
#include <string>

namespace quorl {

namespace {

constexpr size_t LONGEST_COMPONENT = 255;
constexpr std::array<std::wstring_view, 7> DEVICES{L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$", L"CLOCK$"};

// The system takes the raised digits of some code pages for digits too.
constexpr std::wstring_view PORT_DIGITS = L"0123456789\u00B9\u00B2\u00B3";

wchar_t ToUpper(wchar_t character) {
  return character >= L'a' && character <= L'z' ? static_cast<wchar_t>(character - L'a' + L'A') : character;
}

bool IsForbidden(wchar_t character) {
  return character < L' ' || std::wstring_view(L"<>:\"/\\|?*").find(character) != std::wstring_view::npos;
}

/// `component` names a device by what stands before its first dot, spaces at the end not counted.
bool IsDevice(std::wstring_view component) {
  std::wstring stem(component.substr(0, component.find(L'.')));
  stem.erase(stem.find_last_not_of(L' ') + 1);
  std::transform(stem.begin(), stem.end(), stem.begin(), ToUpper);
  if (std::find(DEVICES.begin(), DEVICES.end(), stem) != DEVICES.end()) return true;
  const bool isPort = stem.starts_with(L"COM") || stem.starts_with(L"LPT");
  return isPort && stem.size() == 4 && PORT_DIGITS.find(stem.back()) != std::wstring_view::npos;
}

}  // namespace

bool IsOrdinaryName(std::wstring_view component) {
  if (component.empty() || component.size() > LONGEST_COMPONENT) return false;
  if (component.ends_with(L'.') || component.ends_with(L' ')) return false;
  return std::none_of(component.begin(), component.end(), IsForbidden) && !IsDevice(component);
}

}  // namespace quorl
