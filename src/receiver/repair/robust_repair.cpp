// The repair of the robust profile. It speaks the same datagrams as the classic one, but what is missing is what has
// not come, block by block, and "nothing is missing" is only said of what is on the disk:
//
// - Every announced block counts, those of files never seen as well, and what the sender is told is their true number.
// - A master asks for several blocks at once, each with a request of its own, and again for what does not come in time.
//   One block that cannot be had holds up no other: after some requests the next one has its turn, and so on in a
//   circle.
// - When everything has come, the writer puts it on the disk first. A disk that takes long keeps the sender waiting by
//   requests for blocks beyond the last file's end: each is another one, so that the sender sees the master get on, and
//   is served with an empty datagram.
// - The last word, that everything is there or that the rest cannot be stored, is said again and again, at growing
//   distances, and to every CMD_MASTER that shows that it has not been heard. As each kind of sender has its own word
//   for it, a receiver that has answered before says both. A younger sender that has heard it says so, and that ends
//   it.
// - A receiver that has been given up in the second pass stays as long as its sender does: another's repair may bring
//   what it lacks.
#include "receiver/repair/robust_repair.h"

#include <quorl/quorl.h>

#include <array>

namespace quorl {

using namespace std::chrono_literals;

namespace {

/// Less than the second after which a sender would doubt that it is heard.
constexpr Duration KEEP_ALIVE = 400ms;

/// How often the number of missing blocks is told; the sender does without it after half a second.
constexpr size_t ANSWERS = 3;

/// Between two times of the last word: it outlives an outage of a third of a second, and at 5 % loss one word in more
/// than a thousand million is not heard.
constexpr std::array<Duration, 6> UNTIL_SAID_AGAIN = {10ms, 10ms, 20ms, 40ms, 80ms, 160ms};

}  // namespace

void RobustRepair::Begin(Moment) {
  gaps.Begin();
  takesPart = true;
  streamOver = answered = isMaster = settling = false;
  requests.Clear();
  keepAliveAt.reset();
  sayAgainAt.reset();
  said = 0;
}

Admission RobustRepair::TakeData(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) {
  Admission admission = Admit(head);
  if (admission == Admission::Admitted) {
    gaps.Take(head, record);
    admission = Take(head, hasRoom, steps);
  }
  // It may come behind the end of the stream, and be what was missing.
  if (admission == Admission::Admitted) requests.Answered(now, {head.file, head.block});
  GoOn(now, steps);
  return admission;
}

Admission RobustRepair::TakeResend(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) {
  if (record.Generation() == 0) return Admission::Unannounced;
  Admission admission = Admit(head);
  if (admission == Admission::Admitted) admission = Take(head, hasRoom, steps);
  if (admission == Admission::Admitted) requests.Answered(now, {head.file, head.block});
  streamOver = true;
  GoOn(now, steps);
  return admission;
}

Admission RobustRepair::Admit(const BlockHead& head) {
  return takesPart ? record.AdmitAnnounced(head) : Admission::Unannounced;
}

// A block that has come already has been stored, or will be.
Admission RobustRepair::Take(const BlockHead& head, bool hasRoom, RepairSteps& steps) {
  if (record.IsReceived({head.file, head.block})) return Admission::Admitted;
  if (!hasRoom) return Admission::QueueFull;
  record.Receive({head.file, head.block});
  steps.push_back(StoreStep{});
  return Admission::Admitted;
}

void RobustRepair::TakeMaster(const Master&, Moment now, RepairSteps& steps) {
  if (!takesPart) return;
  // From the first one on again: a sender that repeats itself has not seen anything come on.
  askedLast = LostBlock();
  isMaster = true;
  if (leaving) return Say(steps);
  if (record.Generation() == 0) {
    // Nobody can repair a transfer that it has never heard of.
    takesPart = false;
    steps.push_back(GiveUpStep{QUORL_STATUS_SENDER_LOST});
    return;
  }
  streamOver = answered = true;
  requests.Clear();
  if (settling && !keepAliveAt) keepAliveAt = now + KEEP_ALIVE;
  GoOn(now, steps);
}

bool RobustRepair::TakeRelease(const Release&, Moment now, RepairSteps& steps) {
  if (record.Generation() == 0) return false;
  StandDown(now, steps);
  return true;
}

void RobustRepair::TakeFinish(Moment now, RepairSteps& steps) {
  if (record.Generation() == 0) return;
  streamOver = true;
  GoOn(now, steps);
}

void RobustRepair::StandDown(Moment now, RepairSteps& steps) {
  isMaster = false;
  requests.Clear();
  keepAliveAt.reset();
  if (record.Generation() == 0) return;
  streamOver = answered = true;
  GoOn(now, steps);
}

// What there is to do at this moment, whatever has brought it about.
void RobustRepair::GoOn(Moment now, RepairSteps& steps) {
  if (leaving || !takesPart || !streamOver) return;
  if (!record.FirstNotReceived()) {
    if (settling) return;
    settling = true;
    requests.Clear();
    sayAgainAt.reset();
    if (isMaster) keepAliveAt = now + KEEP_ALIVE;
    steps.push_back(SettleStep{});
    return;
  }
  if (!answered) Answer(now, steps);
  if (isMaster) Ask(now, steps);
}

void RobustRepair::Answer(Moment now, RepairSteps& steps) {
  answered = true;
  steps.push_back(AnswerStep{static_cast<uint32_t>(record.NotReceivedCount())});
  sayAgainAt.reset();
  if (++said < ANSWERS) sayAgainAt = now + UNTIL_SAID_AGAIN[0];
}

// What has come otherwise, or failed, is of no use any more.
void RobustRepair::AskAgain(Moment now, RepairSteps& steps) {
  while (const auto late = requests.RepeatLate(now))
    if (!record.IsReceived(*late) && !record.IsFailed(record.Generation(), late->file)) steps.push_back(AckStep{*late});
}

void RobustRepair::Ask(Moment now, RepairSteps& steps) {
  while (requests.HasRoom()) {
    const auto next = NextToAskFor();
    if (!next) return;
    askedLast = *next;
    requests.Made(now, askedLast);
    steps.push_back(AckStep{askedLast});
  }
}

// In a circle, but for what is under way.
std::optional<LostBlock> RobustRepair::NextToAskFor() {
  LostBlock from{askedLast.file, askedLast.block + 1};
  for (bool wrapped = false;;) {
    auto next = record.FirstNotReceived(from);
    if (!next) {
      if (wrapped) return std::nullopt;
      wrapped = true;
      next = record.FirstNotReceived();
    }
    if (!next || !requests.Holds(*next)) return next;
    from = {next->file, next->block + 1};
  }
}

void RobustRepair::KeepAlive(Moment now, RepairSteps& steps) {
  keepAliveAt = now + KEEP_ALIVE;
  if (const auto last = record.LastOfTransfer()) steps.push_back(AckStep{{last->file, last->block + ++keepAlives}});
}

void RobustRepair::TakeSettled(Moment now, RepairSteps& steps) {
  if (leaving || !settling) return;
  settling = false;
  keepAliveAt.reset();
  if (record.FirstNotReceived()) return GoOn(now, steps);
  if (record.IsWhole()) return Leave(now, QUORL_STATUS_DONE, steps);
  if (record.FailedFiles() != 0) return Leave(now, record.FirstFailure(), steps);
  record.ForgetUnstored();
  GoOn(now, steps);
}

void RobustRepair::Leave(Moment now, uint32_t status, RepairSteps& steps) {
  leaving = true;
  leavingStatus = status;
  said = 0;
  SayAgain(now, steps);
  steps.push_back(FinishedStep{});
}

void RobustRepair::SayAgain(Moment now, RepairSteps& steps) {
  Say(steps);
  sayAgainAt.reset();
  if (said < UNTIL_SAID_AGAIN.size()) sayAgainAt = now + UNTIL_SAID_AGAIN[said++];
}

void RobustRepair::Say(RepairSteps& steps) {
  const bool whole = leavingStatus == QUORL_STATUS_DONE;
  if (isMaster) {
    if (whole) steps.push_back(AckStep{{record.FileCount() + 1, 0}});
  } else if (whole || !answered) {
    steps.push_back(AnswerStep{static_cast<uint32_t>(record.NotReceivedCount())});
  }
  if (!whole || isMaster || answered) steps.push_back(FinishStep{leavingStatus});
}

void RobustRepair::Pass(Moment now, RepairSteps& steps) {
  const bool saysAgain = sayAgainAt && now >= *sayAgainAt;
  if (leaving) {
    if (saysAgain) SayAgain(now, steps);
    return;
  }
  if (saysAgain && record.FirstNotReceived()) Answer(now, steps);
  if (isMaster) AskAgain(now, steps);
  if (keepAliveAt && now >= *keepAliveAt) KeepAlive(now, steps);
  GoOn(now, steps);
}

void RobustRepair::EndHeard() {
  if (leaving) sayAgainAt.reset();
}

std::optional<Moment> RobustRepair::Due() const {
  if (leaving) return sayAgainAt;
  std::optional<Moment> earliest;
  for (const auto& moment : {requests.Due(), keepAliveAt, sayAgainAt})
    if (moment && (!earliest || *moment < *earliest)) earliest = moment;
  return earliest;
}

}  // namespace quorl
