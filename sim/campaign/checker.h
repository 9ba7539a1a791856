#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/room/room.h"

namespace quorl::sim {

/// What a run allows for.
struct CheckerOptions {
  /// Somebody lies in this room: what a receiver takes in may be his, unless it had heard of the transfer before.
  bool hasAttacker = false;
  /// The attacker also sends under the addresses of others: then nothing but safety can be asked for.
  bool attackerForgesSources = false;
  /// A transfer came before, of which datagrams may still be on their way. None says which transfer it belongs to.
  bool hasOldDatagrams = false;
};

/// Holds a room to what must be true whatever happens, from when it is made on: looks at every datagram when it is sent
/// and at every message when it is posted, and at everything once more at the end.
class Checker {
 public:
  Checker(Room& room, Profile senderProfile, Profile receiverProfile, const CheckerOptions& options);
  ~Checker();
  Checker(const Checker&) = delete;
  Checker& operator=(const Checker&) = delete;

  /// A receiver has been started again after a crash: what it said before no longer counts.
  void ReceiverRestarts(size_t index);

  /// A receiver goes on listening after an earlier transfer, of whose end it has heard or not.
  void ReceiverGoesOn(size_t index, bool knowsTheEnd) {
    receivers.at(index).goesOn = true;
    receivers.at(index).mayBeBehind = !knowsTheEnd;
  }

  /// Its power fails: what it holds is no longer what it held when it said so.
  void ReceiverLosesData(size_t index) { receivers.at(index).losesData = true; }

  /// The same for the sender, which collects and announces anew.
  void SenderRestarts();

  /// Its host announces anew in the middle of a transfer.
  void SenderBeginsAgain();

  /// The host of a receiver or of the sender calls what it likes: transfers may begin and break off at any time.
  void HostRunsWild(std::optional<size_t> receiver);

  /// The sender's host ends the transfer: from then on nobody keeps account of complete receivers.
  void SenderStops() { senderFailed = true; }

  /// A receiver's window goes away: what it would say to its host remains unsaid.
  void WindowCloses(size_t index);

  void SenderWindowCloses() { senderWindowCloses = true; }

  /// From now on somebody may lie.
  void AttackBegins();

  /// Whether a receiver has come to an end. One that has never heard of a transfer has nothing to end.
  bool IsAtRest(size_t index);

  /// Time is up, and somebody has not come to an end.
  void DoesNotEnd(bool senderIsThrough);

  /// When everything has come to rest, before the roles are torn down.
  void AtRest();

  /// After the tear-down: nothing is left behind.
  void AfterTearDown();

  void Violate(const std::string& text);

  /// Everything that was not as it must be, with the virtual time; empty when all was well.
  const std::vector<std::string>& Violations() const { return violations; }

  /// What the rules of the classic profile allow, or what no rule can help without new datagrams, and how often it
  /// happened.
  const std::map<std::string, uint64_t>& Exceptions() const { return exceptions; }

 private:
  struct Place {
    uint32_t announcements = 0;
    uint32_t completions = 0;
    bool trusts = true;  ///< What it takes in is the sender's.
    bool hasWindow = true;
    bool isWild = false;
    bool claimed = false;  ///< Has said that it is complete, also before a crash.
    bool losesData = false;
    bool goesOn = false;
    bool mayBeBehind = false;
    uintptr_t announcedFiles = 0;
  };

  /// Whether what belongs to an earlier transfer may count as of this one: it has heard of no other, or datagrams of
  /// that one may have come since.
  bool IsBehind(const Place& place) const {
    const bool hasHeardOfNoOther =
        place.announcements == 0 && (place.mayBeBehind || (place.goesOn && receiverProfile == Profile::Classic));
    return hasHeardOfNoOther || options.hasOldDatagrams || beginsAgain;
  }

  void SeeDatagram(const SentDatagram& datagram);
  void SeeReply(size_t index, const SentDatagram& datagram);
  void SeeReceiverMessage(size_t index, const RecordedMessage& message);
  void SeeSenderMessage(const RecordedMessage& message);
  void ClaimsCompletion(size_t index, const char* how);
  void CheckReceiver(size_t index);
  void FindsOutside(size_t index, const std::string& name);
  void CheckErrorReport();
  void CheckThreads(const SimMachine& machine);
  void NoteTable();

  Room& room;
  const Profile senderProfile;
  const Profile receiverProfile;
  const CheckerOptions options;
  std::vector<Place> receivers;
  std::map<const SimMachine*, size_t> indices;
  bool attacked = false;
  bool senderIsWild = false;
  bool beginsAgain = false;  // in the middle, the sender: its own datagrams are on their way
  bool senderWindowCloses = false;
  bool senderFailed = false;  ///< It ended the transfer for a reason of its own, or its host did.
  uint32_t senderAnnouncements = 0;
  std::optional<std::set<uint32_t>> tableAtEnd;  ///< Who took part when the sender ended the transfer.
  std::vector<std::string> violations;
  std::set<std::string> violated;
  std::map<std::string, uint64_t> exceptions;
};

}  // namespace quorl::sim
