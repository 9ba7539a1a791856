// Datagram layouts as data. A layout lists its fields once, with name, offset and member; length, building, parsing and
// printing follow from the list, so that no offset stands in the code a second time.
//
// Multi-byte fields are little-endian, packed and therefore unaligned; they are read and written byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "protocol/name_field.h"

namespace quorl {

template <typename Message, typename Value>
struct Field {
  std::string_view name;
  size_t offset;
  Value Message::*member;
};

// clang 14 does not deduce the arguments of an aggregate by itself.
template <typename Message, typename Value>
Field(std::string_view, size_t, Value Message::*) -> Field<Message, Value>;

/// The fields of `Message` in the order of the wire, a tuple of Field. Specialised beside each message.
template <typename Message>
inline constexpr auto FIELDS = std::tuple<>{};

template <typename Value>
constexpr size_t WireSize() {
  if constexpr (std::is_same_v<Value, NameField>) {
    return NAME_TEXT_SIZE + sizeof(uint32_t);
  } else {
    static_assert(std::is_unsigned_v<Value>);
    return sizeof(Value);
  }
}

template <typename Value>
Value ReadField(std::span<const uint8_t> at) {
  if constexpr (std::is_same_v<Value, NameField>) {
    NameField field;
    std::copy_n(at.begin(), NAME_TEXT_SIZE, field.text.begin());
    field.length = ReadField<uint32_t>(at.subspan(NAME_TEXT_SIZE));
    return field;
  } else {
    Value value = 0;
    for (size_t i = 0; i < sizeof(Value); ++i) value = static_cast<Value>(value | (Value{at[i]} << (8 * i)));
    return value;
  }
}

template <typename Value>
void WriteField(std::span<uint8_t> at, const Value& value) {
  if constexpr (std::is_same_v<Value, NameField>) {
    std::copy(value.text.begin(), value.text.end(), at.begin());
    WriteField(at.subspan(NAME_TEXT_SIZE), value.length);
  } else {
    for (size_t i = 0; i < sizeof(Value); ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

/// Calls `visit` with each field of `Message`, in order.
template <typename Message, typename Visit>
constexpr void ForEachField(Visit&& visit) {
  std::apply([&](const auto&... fields) { (visit(fields), ...); }, FIELDS<Message>);
}

template <typename Message, typename Value>
constexpr size_t FieldEnd(const Field<Message, Value>& field) {
  return field.offset + WireSize<Value>();
}

/// Bytes of the part of a datagram that its fields describe, the header included.
template <typename Message, size_t HeaderSize>
constexpr size_t FixedLength() {
  size_t end = HeaderSize;
  ForEachField<Message>([&](const auto& field) { end = FieldEnd(field); });
  return end;
}

/// Fields follow each other without overlap. Gaps are allowed: they travel as zeroes.
template <typename Message, size_t HeaderSize>
constexpr bool FieldsAscend() {
  bool ascend = true;
  size_t end = HeaderSize;
  ForEachField<Message>([&](const auto& field) {
    ascend = ascend && field.offset >= end;
    end = FieldEnd(field);
  });
  return ascend;
}

/// `datagram` holds at least FixedLength bytes.
template <typename Message>
Message ReadFields(std::span<const uint8_t> datagram) {
  Message message;
  ForEachField<Message>([&]<typename Value>(const Field<Message, Value>& field) {
    message.*field.member = ReadField<Value>(datagram.subspan(field.offset));
  });
  return message;
}

template <typename Message>
void WriteFields(const Message& message, std::span<uint8_t> datagram) {
  ForEachField<Message>([&](const auto& field) { WriteField(datagram.subspan(field.offset), message.*field.member); });
}

}  // namespace quorl
