#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "platform/time.h"

namespace quorl {

/// Letters on their way: the oldest is said again until it is heard. Decisions only.
class Outbox {
 public:
  using Text = std::vector<uint8_t>;

  /// False when there is no room.
  bool Add(Text text, Moment now);

  /// Letter `number` has been heard. True when it is news.
  bool TakeHeard(uint32_t number, Moment now);

  /// The letter that is to be said now, if one is; it counts as said.
  struct Said {
    uint32_t number = 0;
    const Text& text;
  };
  std::optional<Said> Say(Moment now);

  /// Nobody is there any more whom the letters are for.
  void Forget();

  /// When the next one is to be said; nothing while there is none.
  std::optional<Moment> Due() const;
  size_t Count() const { return letters.size(); }

 private:
  void Begin(Moment now);

  std::deque<Text> letters;
  uint32_t firstNumber = 1;  ///< Of the oldest.
  Moment dueAt{};
  Moment givenUpAt{};
  Duration distance{};
};

}  // namespace quorl
