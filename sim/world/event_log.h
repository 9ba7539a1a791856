#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/network.h"
#include "platform/time.h"

namespace quorl::sim {

/// What happened in a world, one line an event: virtual nanoseconds, machine, event, details. Two runs from the same
/// seed give the same text.
class EventLog {
 public:
  void SetOn(bool isOn) { on = isOn; }
  bool IsOn() const { return on; }
  const std::string& Text() const { return text; }

  /// Appends a line of `parts`, divided by spaces.
  template <typename... Parts>
  void Add(Moment at, std::string_view machine, const Parts&... parts) {
    if (!on) return;
    Append(at.count());
    ((text += ' ', Append(machine)), ..., (text += ' ', Append(parts)));
    text += '\n';
  }

 private:
  void Append(std::string_view part) { text += part; }

  template <std::integral Number>
  void Append(Number number) {
    char digits[24];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
  }

  void Append(const Endpoint& endpoint);

  bool on = true;
  std::string text;
};

/// "10.0.0.1".
std::string AddressText(uint32_t address);

}  // namespace quorl::sim
