#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/network.h"

namespace quorl {

/// What has been heard of a receiver that knows the younger datagrams. Outlives a transfer.
struct KnownPeer {
  uint32_t capabilities = 0;
  uint32_t instance = 0;  ///< 0: it has accepted no offer.
  uint16_t longestOffer = 0;
  uint8_t furtherOffers = 0;  ///< Of symbols, while somebody was waited for; see symbol_offers.h.
  uint32_t writer = 0;        ///< The instance whose letters are counted.
  uint32_t lastLetter = 0;
};

/// One receiver in the sender's table.
struct ClientEntry {
  Endpoint addr;           ///< Where its first CMD_CLIENT came from.
  bool noTurn = false;     ///< Never to be made master: it lacks nothing, or has been given up.
  bool needsTurn = false;  ///< Must be master again in the second pass.
  uint32_t status = 0;     ///< 0 nothing to report, 1 too much missing, 1460 given up as master, else its own failure.

  bool complete = false;              ///< Has said that it lacks nothing.
  bool reportedFailure = false;       ///< Has sent a CMD_FINISH with a failure.
  std::optional<uint32_t> missing{};  ///< What its CMD_ANSWER said.
  KnownPeer peer{};

  /// Whether the first pass may name it.
  bool IsCandidate() const { return !noTurn && status == 0; }
  /// Whether it has reacted to the end of the stream.
  bool HasAnswered() const { return missing.has_value() || complete || reportedFailure; }
};

/// The receivers that have answered the collection, in order of arrival. They are known by their IPv4 address alone: of
/// two receivers on one machine only the first gets a row. Not synchronised.
class ReceiverTable {
 public:
  explicit ReceiverTable(size_t capacity = QUORL_RECEIVERS) : rows(capacity) {}

  /// Gives the source of a CMD_CLIENT a row, unless its address has one. False when the table is full.
  bool AddClient(Endpoint source);

  /// Takes a CMD_ANSWER. Nothing missing: the receiver needs no turn. More than 30 % of `totalBlocks` missing, and more
  /// than `neverTooMuch` blocks: it is given up.
  void TakeAnswer(uint32_t address, uint32_t missing, uint32_t totalBlocks, uint32_t neverTooMuch = 0);

  /// Forgets everything that earlier transfers left in the rows; the receivers stay.
  void Forget();
  /// Forgets what they have said of an earlier transfer for the host to see, but no rule's marks.
  void ForgetAnswers();

  /// The row with this address; Count() when there is none.
  int32_t FindClient(uint32_t address) const;
  /// nullptr when there is none.
  ClientEntry* Find(uint32_t address);

  int32_t Count() const { return count; }
  ClientEntry& operator[](int32_t index);
  const ClientEntry& operator[](int32_t index) const;

  bool AllAnswered() const;

 private:
  std::vector<ClientEntry> rows;  ///< As many as there may ever be.
  int32_t count = 0;
};

}  // namespace quorl
