#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/options.h"

namespace quorl::cli {

// What is written behind an option as the value that the command works with. All throw WrongValue.

uint32_t NumberValue(const std::string& text, uint32_t lowest, uint32_t highest);
uint32_t RateValue(const std::string& text);                                                    ///< kbit/s.
std::chrono::seconds TimeValue(const std::string& text, std::chrono::seconds::rep lowest = 0);  ///< At most a week.
uint32_t AddressValue(const std::string& text);                                                 ///< Network byte order.
uint32_t GroupValue(const std::string& text);
std::vector<uint32_t> AddressesValue(const std::string& text);  ///< "a,b" or "@file", one address a line.
std::string TargetValue(const std::string& text);
std::string OpenNameValue(const std::string& text);
std::string DirectoryValue(const std::string& text);
Existing ExistingValue(const std::string& text);
ProgressStyle ProgressValue(const std::string& text);
ColorStyle ColorValue(const std::string& text);

}  // namespace quorl::cli
