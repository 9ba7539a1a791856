#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::cli {

/// Something that the command tells, for programs: a type and fields, which become one JSON object. Texts may be any
/// bytes. What is no valid UTF-8 gets U+FFFD where it is not, and a second field, "<key>_hex", with all of it.
class Fact {
 public:
  explicit Fact(std::string_view type) { Add("type", type); }

  template <std::integral T>
  Fact& Add(std::string_view key, T number) {
    if constexpr (std::same_as<T, bool>) return AddRaw(key, number ? "true" : "false");
    return AddRaw(key, std::to_string(number));
  }
  Fact& Add(std::string_view key, std::string_view text);
  Fact& Add(std::string_view key, const std::vector<std::string>& texts);
  Fact& Add(std::string_view key, const std::vector<Fact>& facts);

  /// The fields as JSON writes them, without braces: "type":"x","n":1.
  const std::string& Fields() const { return fields; }

 private:
  Fact& AddRaw(std::string_view key, std::string_view json);

  std::string fields;
};

/// The text as a JSON string with its quotes. Everything that could steer a terminal is written as \uXXXX, bytes that
/// are no UTF-8 as U+FFFD.
std::string JsonString(std::string_view text);

}  // namespace quorl::cli
