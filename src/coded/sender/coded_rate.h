// How fast a stream of symbols goes where nobody has named a rate. Decisions only: no thread, socket, disk, clock or
// lock.
//
// With every answer a receiver says how many symbols have come. From one poll to another the difference to what has
// been sent is what it lost, exactly. So the rate is judged period by period:
//
// - It begins where any link takes it, and doubles until something gets lost.
// - What a receiver loses beyond what it always loses is a reason to be as slow as what came through, and somewhat
//   slower, so that a queue on the way gets empty again.
// - That is a trial as well. Who goes on losing as much, however slow the stream becomes in some steps, loses it for
//   other reasons: from then on that is what it always loses, and the rate goes back.
// - Afterwards the rate rises by steps that are smaller for a high rate than in proportion: so two senders on one link
//   come to equal shares. The longer nothing gets lost for it, the larger they become.
#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>

#include "platform/time.h"

namespace quorl {

class CodedRate {
 public:
  /// 100 Mbit/s.
  static constexpr uint32_t BEGIN = 100'000;
  static constexpr uint32_t LEAST = 1'000;
  static constexpr uint32_t MOST = 40'000'000;

  /// kbit/s on the wire.
  uint32_t Rate() const { return static_cast<uint32_t>(rate); }

  /// A poll leaves, behind so many symbols. What is asked of one receiver, not of all, may overtake them, and the
  /// answer tells nothing. Rounds follow each other.
  void Polled(uint32_t round, bool ofAll, uint64_t symbolsSent, Moment now);
  /// A receiver's answer: so many have come, modulo 2^32, from any beginning.
  void Take(uint32_t address, uint32_t round, uint32_t arrived, Moment now);
  void Leave(uint32_t address) { peers.erase(address); }

 private:
  struct Poll {
    uint32_t round = 0;
    bool ofAll = true;
    uint64_t sent = 0;
    Moment at{};
  };
  struct Answer {
    uint32_t round = 0;
    uint32_t arrived = 0;
  };
  struct Peer {
    Answer from, to;  ///< The first and the latest in this period; `to` is no answer before the period's.
    Moment heard{};
    double always = 0;  ///< Share of the symbols that it loses at any rate.
    double tried = 0;   ///< That it lost before the rate was taken down to see; 0: none.
  };
  /// What a period was for one receiver.
  struct Share {
    double sent = 0;
    double lost = 0;  ///< Of 1.
    double seconds = 0;
  };

  const Poll* Find(uint32_t round) const;
  Share ShareOf(const Peer& peer) const;
  double Enough(const Peer& peer) const;
  bool IsOver(Moment now) const;
  void Judge();
  void GoOnTrying();
  bool SlowDown();
  void Rise(double actual, double seconds);
  void BeginPeriod();

  double rate = BEGIN;
  double rateBefore = 0;   ///< Before it was taken down to see; 0: it was not.
  int tries = 0;           ///< How often it has been taken down since.
  int quiet = 0;           ///< Periods since it was a reason for a loss.
  bool isDoubling = true;  ///< Nothing has got lost for it so far.
  bool wasDoubling = false;
  uint32_t since = 1;      ///< The first poll of the period.
  std::deque<Poll> polls;  ///< From that one on.
  std::unordered_map<uint32_t, Peer> peers;
};

}  // namespace quorl
