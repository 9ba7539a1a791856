#include "sim/world/event_log.h"

#include <array>
#include <bit>

namespace quorl::sim {

void EventLog::Append(const Endpoint& endpoint) {
  Append(AddressText(endpoint.address));
  text += ':';
  Append(endpoint.port);
}

std::string AddressText(uint32_t address) {
  std::string result;
  for (const uint8_t number : std::bit_cast<std::array<uint8_t, 4>>(address)) {
    if (!result.empty()) result += '.';
    result += std::to_string(number);
  }
  return result;
}

}  // namespace quorl::sim
