// Lies of somebody who knows the protocol: nearly everything is true. Who lies draws: FalseName(), FalseNumber(truth).
#pragma once

#include <iterator>
#include <tuple>

#include "protocol/datagrams.h"

namespace quorl::sim {

inline constexpr const char* FALSE_NAMES[] = {"\\..\\outside",
                                              "\\a\\..\\..\\outside",
                                              "..",
                                              "C:\\elsewhere",
                                              "\\",
                                              "/etc/passwd",
                                              "\\.?.\\outside",
                                              "\\data\\a",
                                              "\\data",
                                              "",
                                              "\\..?\\x",
                                              "a\x1b[2J",
                                              "\\\\host\\share",
                                              "D:outside"};

template <typename Message>
inline constexpr size_t FIELD_COUNT = std::tuple_size_v<std::remove_cvref_t<decltype(FIELDS<Message>)>>;

/// The message as it was, but for its n-th field; the whole truth where there are not so many.
template <typename Message, typename Liar>
Message Falsified(Message message, uint64_t n, Liar&& liar) {
  ForEachField<Message>([&]<typename Value>(const Field<Message, Value>& field) {
    if (n-- != 0) return;
    Value& value = message.*field.member;
    if constexpr (std::is_same_v<Value, NameField>) value = NameField::From(liar.FalseName());
    if constexpr (std::is_unsigned_v<Value>) value = static_cast<Value>(liar.FalseNumber(value));
  });
  return message;
}

}  // namespace quorl::sim
