#include "receiver/mail/outbox.h"

#include <algorithm>

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr size_t MOST_LETTERS = 4096;
constexpr Duration FIRST_DISTANCE = 20ms;
constexpr Duration LONGEST_DISTANCE = 500ms;
constexpr Duration PATIENCE = 10s;

}  // namespace

bool Outbox::Add(Text text, Moment now) {
  if (letters.size() == MOST_LETTERS) return false;
  letters.push_back(std::move(text));
  if (letters.size() == 1) Begin(now);
  return true;
}

bool Outbox::TakeHeard(uint32_t number, Moment now) {
  if (letters.empty() || number != firstNumber) return false;
  letters.pop_front();
  ++firstNumber;
  Begin(now);
  return true;
}

std::optional<Outbox::Said> Outbox::Say(Moment now) {
  if (letters.empty() || now < dueAt) return std::nullopt;
  if (now >= givenUpAt) {
    // No sender hears them any more; later letters start afresh.
    Forget();
    return std::nullopt;
  }
  dueAt = now + distance;
  distance = std::min(2 * distance, LONGEST_DISTANCE);
  return Said{firstNumber, letters.front()};
}

void Outbox::Forget() {
  firstNumber += static_cast<uint32_t>(letters.size());
  letters.clear();
}

std::optional<Moment> Outbox::Due() const {
  return letters.empty() ? std::nullopt : std::optional(dueAt);
}

void Outbox::Begin(Moment now) {
  dueAt = now;
  givenUpAt = now + PATIENCE;
  distance = FIRST_DISTANCE;
}

}  // namespace quorl
