#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <variant>
#include <vector>

#include "protocol/datagrams.h"
#include "sender/receiver_table.h"

namespace quorl {

/// What a sender and the younger ones among its receivers know of each other, and the letters that have come. Decisions
/// only; guarded by the context's mutex.
class Correspondence {
 public:
  struct Received {
    uint32_t address = 0;
    std::vector<uint8_t> text;
  };

  /// `capabilities` 0: nothing is offered, and nothing is taken.
  Correspondence(uint32_t session, uint32_t capabilities) : session(session), capabilities(capabilities) {}

  bool IsOn() const { return capabilities != 0; }
  Offer OurOffer() const { return {.session = session, .capabilities = capabilities}; }
  Word NextWord(std::span<const uint8_t> text) { return {.session = session, .number = ++words, .text = text}; }

  /// What an acceptance brings about.
  enum class Accepted {
    Known,     ///< Nothing more.
    TooLate,   ///< There is a transfer that its sender takes no part in.
    Replaced,  ///< The same, and the receiver of that address that did has gone.
  };
  /// `inTransfer`: one has been announced and is not over.
  Accepted TakeAccept(const Accept& accept, uint32_t address, ReceiverTable& table, bool inTransfer) const;

  /// What to answer; nothing when the letter is to be said again, or is none of ours.
  std::optional<Heard> TakeLetter(const Letter& letter, uint32_t address, ReceiverTable& table);
  /// The oldest letter.
  std::optional<Received> Take();

 private:
  const uint32_t session;
  const uint32_t capabilities;
  uint32_t words = 0;
  std::deque<Received> letters;
};

}  // namespace quorl
