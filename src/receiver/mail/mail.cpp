// Offers, words and letters on the receiving side. What anybody in the network can force here: MOST_WORDS words that
// wait for the host, and one acceptance for each offer.
#include "receiver/mail/mail.h"

#include <algorithm>

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr size_t MOST_WORDS = 1024;
constexpr Duration BETWEEN_KNOCKS = 1000ms;

template <typename Datagram>
std::vector<uint8_t> ToBytes(const Datagram& datagram) {
  return {datagram.begin(), datagram.end()};
}

}  // namespace

void Mail::SetCapabilities(uint32_t bits) {
  const std::scoped_lock locked(lock);
  capabilities = bits;
}

bool Mail::IsOn() const {
  const std::scoped_lock locked(lock);
  return capabilities != 0;
}

bool Mail::KnowsSymbols() const {
  const std::scoped_lock locked(lock);
  return (capabilities & KNOWS_SYMBOLS) != 0;
}

bool Mail::Send(std::span<const uint8_t> text) {
  const std::scoped_lock locked(lock);
  if (capabilities == 0 || senderCapabilities == 0 || text.size() > MAX_TEXT) return false;
  if (!outbox.Add({text.begin(), text.end()}, clock.Now())) return false;
  if (wake) wake->Set();
  return true;
}

uint32_t Mail::OnTheirWay() const {
  const std::scoped_lock locked(lock);
  return static_cast<uint32_t>(outbox.Count());
}

std::optional<Mail::HeardWord> Mail::TakeWord() {
  const std::scoped_lock locked(lock);
  if (words.empty()) return std::nullopt;
  HeardWord word = std::move(words.front());
  words.pop_front();
  return word;
}

Mail::Correspondent Mail::Sender() const {
  const std::scoped_lock locked(lock);
  return {sender, session};
}

uint32_t Mail::SenderCapabilities() const {
  const std::scoped_lock locked(lock);
  return senderCapabilities;
}

std::optional<UnderWay> Mail::TransferOf(uint32_t ofSender) const {
  const std::scoped_lock locked(lock);
  return ofSender != 0 && ofSender == otherSender ? underWay : std::nullopt;
}

Mail::Outgoing Mail::TakeOffer(uint32_t from, const Offer& offer) {
  const std::scoped_lock locked(lock);
  if (sender != from || session != offer.session) {
    lastWord = 0;
    longestOffer = 0;
    // What was meant for another room would be taken for an answer in this one.
    outbox.Forget();
  }
  sender = from;
  session = offer.session;
  senderCapabilities = offer.capabilities;
  longestOffer = std::max(longestOffer, offer.size);
  underWay.reset();
  return {from, ToBytes(Build(Accept{
                    .session = session, .capabilities = capabilities, .instance = instance, .longest = longestOffer}))};
}

void Mail::TakeWord(uint32_t from, const Word& word) {
  const std::scoped_lock locked(lock);
  if (from != sender || word.session != session || word.number <= lastWord || words.size() == MOST_WORDS) return;
  lastWord = word.number;
  words.push_back({from, ToBytes(word.text)});
}

std::optional<Mail::Outgoing> Mail::Knock(uint32_t at) {
  const std::scoped_lock locked(lock);
  const Moment now = clock.Now();
  if (capabilities == 0 || (knockedAt && now - *knockedAt < BETWEEN_KNOCKS)) return std::nullopt;
  knockedAt = now;
  if (otherSender != at) underWay.reset();
  otherSender = at;
  return Outgoing{at, ToBytes(Build(Accept{.capabilities = capabilities, .instance = instance}))};
}

bool Mail::TakeReply(uint32_t from, const Reply& reply) {
  const std::scoped_lock locked(lock);
  const auto* heard = std::get_if<Heard>(&reply);
  const bool isForUs = heard && from == sender && heard->session == session && heard->instance == instance;
  const bool isNews = isForUs && outbox.TakeHeard(heard->number, clock.Now());
  const auto* transfer = std::get_if<UnderWay>(&reply);
  if (transfer && from == otherSender) underWay = *transfer;
  return isNews && heard->knowsEnd != 0;
}

std::optional<Mail::Outgoing> Mail::Say() {
  const std::scoped_lock locked(lock);
  const auto said = outbox.Say(clock.Now());
  if (!said) return std::nullopt;
  return Outgoing{
      sender, BuildText(Letter{.session = session, .instance = instance, .number = said->number, .text = said->text})};
}

std::optional<Moment> Mail::Due() const {
  const std::scoped_lock locked(lock);
  return outbox.Due();
}

void Mail::SetWake(std::shared_ptr<Event> event) {
  const std::scoped_lock locked(lock);
  wake = std::move(event);
}

}  // namespace quorl
