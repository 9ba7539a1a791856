#include "cli/option_values.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <initializer_list>
#include <utility>

#include "cli/option_table.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

constexpr size_t LONGEST_NAME = 519;
constexpr std::chrono::seconds LONGEST_TIME = std::chrono::weeks(1);
constexpr size_t MOST_ADDRESSES = 200;

template <class Value>
Value OneOf(const std::string& text, std::initializer_list<std::pair<std::string_view, Value>> choices) {
  std::string known;
  for (const auto& [name, value] : choices) {
    if (text == name) return value;
    known += fmt::format("{}{}", known.empty() ? "" : ", ", name);
  }
  throw WrongValue{fmt::format("\"{}\" is none of {}", text, known)};
}

}  // namespace

uint32_t NumberValue(const std::string& text, uint32_t lowest, uint32_t highest) {
  uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < lowest || number > highest) {
    throw WrongValue{fmt::format("\"{}\" is no number from {} to {}", text, lowest, highest)};
  }
  return number;
}

uint32_t RateValue(const std::string& text) {
  auto rate = ParseRate(text);
  if (!rate) throw WrongValue{fmt::format("\"{}\" is no rate; say 200M, 1.5G or compatible", text)};
  return *rate;
}

std::chrono::seconds TimeValue(const std::string& text, std::chrono::seconds::rep lowest) {
  std::chrono::seconds::rep number = -1;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view unit(end, static_cast<size_t>(text.data() + text.size() - end));
  std::chrono::seconds::rep factor = unit.empty() || unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
  bool valid = error == std::errc{} && factor != 0 && number >= lowest && number <= LONGEST_TIME.count() / factor;
  if (!valid) throw WrongValue{fmt::format("\"{}\" is no time; say 30, 30s, 5m or 1h, at most a week", text)};
  return std::chrono::seconds(number * factor);
}

uint32_t AddressValue(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1 || address.s_addr == 0) {
    throw WrongValue{fmt::format("\"{}\" is no IPv4 address", text)};
  }
  return address.s_addr;
}

uint32_t GroupValue(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1 || !IN_MULTICAST(ntohl(address.s_addr))) {
    throw WrongValue{fmt::format("\"{}\" is no IPv4 multicast address (224.0.0.0 to 239.255.255.255)", text)};
  }
  return address.s_addr;
}

std::vector<uint32_t> AddressesValue(const std::string& text) {
  std::string list = text;
  if (text.starts_with('@')) {
    std::ifstream file(text.substr(1));
    list.assign(std::istreambuf_iterator<char>(file), {});
    if (!file) throw WrongValue{fmt::format("\"{}\" cannot be read", text.substr(1))};
  }
  auto separates = [](char letter) { return letter == ',' || std::isspace(static_cast<unsigned char>(letter)) != 0; };
  std::vector<uint32_t> addresses;
  for (auto from = list.begin(); from != list.end();) {
    from = std::find_if_not(from, list.end(), separates);
    auto to = std::find_if(from, list.end(), separates);
    if (from == to) break;
    uint32_t address = AddressValue(std::string(from, to));
    if (std::find(addresses.begin(), addresses.end(), address) == addresses.end()) addresses.push_back(address);
    from = to;
  }
  if (addresses.empty()) throw WrongValue{fmt::format("\"{}\" names no address", text)};
  if (addresses.size() > MOST_ADDRESSES) {
    throw WrongValue{fmt::format("\"{}\" names {} addresses, {} is the most", text, addresses.size(), MOST_ADDRESSES)};
  }
  return addresses;
}

std::string TargetValue(const std::string& text) {
  std::string target = TargetFromText(text);
  if (target.empty()) throw WrongValue{fmt::format("\"{}\" is neither an absolute directory nor a drive path", text)};
  return target;
}

std::string OpenNameValue(const std::string& text) {
  std::string name = OpenNameFromText(text);
  if (name.empty()) throw WrongValue{fmt::format("\"{}\" cannot travel", text)};
  return name;
}

std::string DirectoryValue(const std::string& text) {
  if (text.empty()) throw WrongValue{"it names no directory"};
  return text;
}

Existing ExistingValue(const std::string& text) {
  return OneOf<Existing>(text, {{"rename", Existing::Rename},
                                {"overwrite", Existing::Overwrite},
                                {"skip", Existing::Skip},
                                {"fail", Existing::Fail}});
}

ProgressStyle ProgressValue(const std::string& text) {
  return OneOf<ProgressStyle>(
      text, {{"auto", ProgressStyle::Auto}, {"plain", ProgressStyle::Plain}, {"none", ProgressStyle::None}});
}

ColorStyle ColorValue(const std::string& text) {
  return OneOf<ColorStyle>(text,
                           {{"auto", ColorStyle::Auto}, {"always", ColorStyle::Always}, {"never", ColorStyle::Never}});
}

std::string TargetFromText(const std::string& text) {
  std::string target = text;
  bool local = target.starts_with('/');
  if (local && target.find('\\') != std::string::npos) return "";
  if (local) {
    while (target.size() > 1 && target.back() == '/') target.pop_back();
    std::replace(target.begin(), target.end(), '/', '\\');
    target = "C:" + target;
  }
  bool drivePath = target.size() >= 3 && std::isalpha(static_cast<unsigned char>(target[0])) != 0 && target[1] == ':' &&
                   target[2] == '\\';
  return drivePath && target.size() <= LONGEST_NAME ? target : "";
}

std::string OpenNameFromText(const std::string& text) {
  std::string name = text;
  std::replace(name.begin(), name.end(), '/', '\\');
  if (!name.starts_with('\\')) name = "\\" + name;
  return name.size() > 1 && name.size() <= LONGEST_NAME ? name : "";
}

}  // namespace quorl::cli
