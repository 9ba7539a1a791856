// What a sender of symbols sends next, and what it makes of what receivers lack. Decisions only: no thread, socket,
// disk, clock or lock.
//
// Every group's source symbols go out once, those of some groups in turns, so that neighbours on the wire are of
// different groups. Polls ask the receivers, and each answers for each group how many symbols it lacks, counted at the
// poll: any repair symbols do, for everybody. So what is owed to a group is the most that anybody lacks, less what has
// gone out for it since that poll. Repair goes before the stream. A group stays open, its bytes in memory, until every
// receiver that takes part has it; so the slowest of them slows the stream. Who is not heard for a while does not take
// part any more, and what it lacks is left to the repair behind the stream.
//
// All are asked as often as the answers of all of them may come. In a big room that is seldom; so those who have not
// been heard, or whom everybody waits for, are asked by themselves in between.
//
// The groups of the catalogue come first and stay open to the end, for who comes late; the contents begin when every
// receiver has the catalogue. Who comes before the contents are half out takes part from there on, and what it missed
// goes out in a second pass.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <variant>
#include <vector>

#include "platform/time.h"
#include "protocol/datagrams.h"

namespace quorl {

class CodedSchedule {
 public:
  /// Groups whose bytes are in memory at most, without the catalogue's, and those that go out together.
  static constexpr uint32_t WINDOW = 128;
  static constexpr uint32_t TOGETHER = 16;

  /// `groups`: all, the catalogue's included.
  CodedSchedule(uint32_t catalogueGroups, uint32_t groups);

  // ---- receivers, known by their addresses ----

  void Join(uint32_t address, Moment now);
  /// It has failed, or left.
  void Leave(uint32_t address) { peers.erase(address); }
  void TakeLacks(uint32_t address, const Lacks& lacks, Moment now);

  // ---- what is to be done ----

  /// Get the bytes of these groups, and call Opened for each, in order.
  struct OpenStep {
    uint32_t first = 0;
    uint32_t end = 0;
  };
  struct SendStep {
    uint32_t group = 0;
    uint8_t index = 0;
  };
  struct PollStep {
    uint32_t round = 0;
    uint32_t firstGroup = 0;
    uint32_t endGroup = 0;
    uint16_t spread = 0;
    std::optional<uint32_t> only{};  ///< This receiver alone is asked; nothing: all are.
  };
  struct WaitStep {
    Moment until{};
  };
  /// Every receiver that takes part has everything.
  struct EndStep {};
  using Step = std::variant<OpenStep, SendStep, PollStep, WaitStep, EndStep>;
  Step Next(Moment now);

  /// `symbols`: how many source symbols it has; 0: nobody needs it.
  void Opened(uint32_t group, size_t symbols);

  /// No bytes of groups in front of this one are needed any more, but for the catalogue's.
  uint32_t FirstOpen() const { return firstOpen; }

 private:
  struct Group {
    size_t symbols = 0;
    size_t owed = 0;
    uint8_t nextRepair = 0;
    struct Sent {
      uint32_t round;
      size_t count;
    };
    std::vector<Sent> repairs;  ///< How many went out behind which poll.

    size_t SentSince(uint32_t round) const;
  };
  struct Peer {
    Moment heard{};
    Moment advanced{};        ///< When it had more than before, or everything that was out.
    uint32_t unanswered = 0;  ///< Polls since it was heard.
    uint32_t answered = 0;    ///< The latest round that it has answered.
    uint32_t has = 0;         ///< Everything in front of this group.
    bool hasCatalogue = false;
  };

  Group* Find(uint32_t group);
  bool EverybodyHasAll() const;
  void BeginSecondPass(Moment now);
  void ForgetSilent(Moment now);
  void Advance();
  bool MayOpen() const;
  Duration Spread() const;
  Duration PollPeriod() const;
  bool IsPollDue(Moment now) const;
  PollStep MakePoll(Moment now);
  bool IsAtRest() const;
  bool KeepsOthersWaiting(const Peer& peer) const;
  std::optional<PollStep> NextAsk(Moment now);
  std::optional<SendStep> NextRepair();
  std::optional<SendStep> NextSource();

  const uint32_t catalogueGroups;
  uint32_t groups;          ///< In front of which the pass ends.
  uint32_t missedUpTo = 0;  ///< What late receivers have missed ends in front of this one.
  uint32_t passBegan = 0;   ///< The last round before the pass.
  bool isSecondPass = false;
  std::unordered_map<uint32_t, Peer> peers;
  std::vector<Group> catalogue;
  std::deque<Group> open;  ///< Groups of the contents, from `firstOpen` on.
  uint32_t firstOpen;
  uint32_t opened = 0;  ///< Groups whose bytes have been got.
  uint32_t sent = 0;    ///< Groups whose source symbols are out.
  uint32_t turn = 0;    ///< Which group's symbol is next, from `sent` on, and which one.
  size_t turnIndex = 0;
  uint32_t owing = 0;  ///< No group in front of this one is owed anything.
  uint32_t round = 0;
  std::optional<Moment> polled;
  uint32_t askedAll = 0;        ///< The round of that poll,
  uint32_t asked = 0;           ///< and its end group.
  Moment askAgain{};            ///< When it is seen to again who keeps the others waiting,
  std::vector<uint32_t> toAsk;  ///< who is still to be asked of those,
  size_t sinceAsked = 0;        ///< and what has gone out since the latest was.
  size_t sincePoll = 0;         ///< Symbols of the stream since the latest poll.
  bool hasNews = true;          ///< Something has gone out since the latest poll that receivers are to be asked about.
};

}  // namespace quorl
