#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/threads.h"
#include "protocol/datagrams.h"
#include "receiver/mail/outbox.h"

namespace quorl {

/// What a receiver's host and its sender's say to each other. Lives as long as the receiver's object, so that letters
/// outlive a session. Any thread may use it.
class Mail {
 public:
  using Bytes = std::vector<uint8_t>;

  explicit Mail(Clock& clock) : clock(clock), instance(static_cast<uint32_t>(clock.Now().count()) | 1) {}

  /// 0: nothing is said or heard.
  void SetCapabilities(uint32_t bits);
  bool IsOn() const;
  bool KnowsSymbols() const;

  // ---- the host ----

  /// False when nobody has offered to take it, or there is no room.
  bool Send(std::span<const uint8_t> text);
  uint32_t OnTheirWay() const;
  struct HeardWord {
    uint32_t address = 0;
    Bytes text;
  };
  std::optional<HeardWord> TakeWord();
  uint32_t SenderCapabilities() const;
  /// The latest sender that has offered, and its session.
  using Correspondent = std::pair<uint32_t, uint32_t>;
  Correspondent Sender() const;
  /// What the sender whose transfer came too early for this receiver has said of it.
  std::optional<UnderWay> TransferOf(uint32_t sender) const;

  // ---- the threads of a session; what is returned goes to that sender's reply port ----

  struct Outgoing {
    uint32_t to = 0;
    Bytes datagram;
  };
  Outgoing TakeOffer(uint32_t sender, const Offer& offer);
  void TakeWord(uint32_t sender, const Word& word);
  /// A transfer is heard that this receiver takes no part in. Said once a second at most.
  std::optional<Outgoing> Knock(uint32_t sender);
  /// True when this sender has heard how the transfer has ended here.
  bool TakeReply(uint32_t sender, const Reply& reply);
  /// The letter that is to be said now.
  std::optional<Outgoing> Say();
  std::optional<Moment> Due() const;

  /// Set when Due may have changed; of the present session.
  void SetWake(std::shared_ptr<Event> event);

 private:
  Clock& clock;
  const uint32_t instance;

  mutable std::mutex lock;  // guards what follows
  uint32_t capabilities = 0;
  uint32_t sender = 0;  // the latest that has offered, with its session and what it is able to
  uint32_t session = 0;
  uint32_t senderCapabilities = 0;
  uint16_t longestOffer = 0;
  Outbox outbox;
  std::deque<HeardWord> words;
  uint32_t lastWord = 0;
  std::optional<Moment> knockedAt;
  uint32_t otherSender = 0;
  std::optional<UnderWay> underWay;
  std::shared_ptr<Event> wake;
};

}  // namespace quorl
