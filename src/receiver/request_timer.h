#pragma once

#include <optional>

#include "platform/time.h"
#include "receiver/lost_map.h"

namespace quorl {

/// When a master asks again for a block that does not come: after a time that follows the measured round trip as
/// RFC 6298 does, doubled each time the request is repeated. Used by one thread.
class RequestTimer {
 public:
  static constexpr Duration SHORTEST = std::chrono::milliseconds(20);
  static constexpr Duration LONGEST = std::chrono::milliseconds(400);

  /// Before anything has been measured.
  static constexpr Duration INITIAL = std::chrono::milliseconds(200);

  /// A request for `wanted` has been sent. The same one once more counts as repeated.
  void Sent(Moment now, LostBlock wanted);

  /// `block` has come. Ends the wait when it is what was asked for.
  void Answered(Moment now, LostBlock block);

  /// Nothing is waited for any more.
  void Stop() { outstanding.reset(); }

  /// When to ask again; nothing while no request is open.
  std::optional<Moment> Due() const;

 private:
  struct Request {
    LostBlock wanted;
    Moment sentAt{};
    bool repeated = false;
  };

  void Measure(Duration roundTrip);

  std::optional<Request> outstanding;
  std::optional<Duration> smoothed;
  Duration variation{};
  Duration timeout = INITIAL;
};

}  // namespace quorl
