#include "cli/show/fact.h"

#include <fmt/format.h>

#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

constexpr uint32_t REPLACEMENT = 0xFFFD;

std::string Hex(std::string_view bytes) {
  std::string hex;
  for (char byte : bytes) hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return hex;
}

/// RFC 8259, 7: beyond the first plane as a pair of surrogates.
std::string UnicodeEscape(uint32_t code) {
  if (code < 0x10000) return fmt::format("\\u{:04x}", code);
  return fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + ((code - 0x10000) >> 10), 0xDC00 + ((code - 0x10000) & 0x3FF));
}

}  // namespace

Fact& Fact::Add(std::string_view key, std::string_view text) {
  AddRaw(key, JsonString(text));
  if (!IsUtf8(text)) AddRaw(fmt::format("{}_hex", key), fmt::format("\"{}\"", Hex(text)));
  return *this;
}

Fact& Fact::Add(std::string_view key, const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ",") + JsonString(text);
  return AddRaw(key, fmt::format("[{}]", list));
}

Fact& Fact::Add(std::string_view key, const std::vector<Fact>& facts) {
  std::string list;
  for (const Fact& fact : facts) list += fmt::format("{}{{{}}}", list.empty() ? "" : ",", fact.fields);
  return AddRaw(key, fmt::format("[{}]", list));
}

Fact& Fact::AddRaw(std::string_view key, std::string_view json) {
  fields += fmt::format("{}\"{}\":{}", fields.empty() ? "" : ",", key, json);
  return *this;
}

std::string JsonString(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    Character character = DecodeUtf8(text);
    size_t length = character.length == 0 ? 1 : character.length;
    if (character.length == 0) {
      json += UnicodeEscape(REPLACEMENT);
    } else if (character.code == '"' || character.code == '\\') {
      json += fmt::format("\\{}", static_cast<char>(character.code));
    } else if (IsHarmless(character.code)) {
      json += text.substr(0, length);
    } else {
      json += UnicodeEscape(character.code);
    }
    text.remove_prefix(length);
  }
  return json + '"';
}

}  // namespace quorl::cli
