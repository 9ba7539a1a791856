// The repair of the classic profile, to its letter.
//
// During the stream the receiver only notes where blocks were skipped; the gaps become entries of the lostMap. The end
// of the stream completes the map, once, and its size is what the sender is told. From then on blocks leave the map as
// they come again, and a master names its first entry after each. What the map does not hold is not missing, whatever
// is on the disk: a first block
// that was lost at the very start leaves no gap, and a late copy makes one that is none.
#include "receiver/repair/classic_repair.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration EXPANSION_LIMIT = 60000ms;
constexpr Duration AFTER_LAST_ANSWER = 100ms;

void End(RepairSteps& steps) {
  steps.push_back(FinishedStep{});
  steps.push_back(LeaveStep{});
}

}  // namespace

void ClassicRepair::Begin(Moment now) {
  gapList.Begin(now, record.Room());
  seen = SequencePosition();
  answerPending = true;
}

void ClassicRepair::Forget() {
  gapList.Clear();
  lostMap.Clear();
}

Admission ClassicRepair::Admit(const BlockHead& head, bool hasRoom) {
  return hasRoom ? record.AdmitAnything(head) : Admission::QueueFull;
}

Admission ClassicRepair::TakeData(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) {
  gapList.RunUntil(now);
  if (const Admission admission = Admit(head, hasRoom); admission != Admission::Admitted) return admission;
  steps.push_back(StoreStep{});
  if (const auto gap = seen.MoveTo(head.file, head.block, head.lastBlock)) gapList.Add(*gap);
  return Admission::Admitted;
}

Admission ClassicRepair::TakeResend(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) {
  gapList.RunUntil(now);
  if (answerPending && SendAnswer(now, steps)) return Admission::Admitted;
  if (MissesNothing()) {
    ClientSendAck(Nothing(), steps);
    return Admission::Admitted;
  }
  if (lostMap.Contains({head.file, head.block})) {
    if (const Admission admission = Admit(head, hasRoom); admission != Admission::Admitted) return admission;
    lostMap.Remove({head.file, head.block});
    // What ProcessLost has to know before the block itself can make the file.
    if (head.block == 0) {
      steps.push_back(LookStep{});
    } else {
      Store(head, steps);
    }
    return Admission::Admitted;
  }
  // While all that is known is a gap there is no block to name.
  if (isMaster != 0 && seen.Block() != head.block && seen.File() != head.file)
    ClientSendAck(lostMap.First().value_or(Nothing()), steps);
  seen.MoveToResent(head.file, head.block);
  return Admission::Admitted;
}

// ProcessLost: when the first block of a file had to come again, the others of a file that does not exist are missing.
void ClassicRepair::TakeLook(const BlockHead& head, bool exists, Moment, RepairSteps& steps) {
  if (!exists) lostMap.EnterBlocks(head.file, 1, head.lastBlock);
  Store(head, steps);
}

void ClassicRepair::Store(const BlockHead& head, RepairSteps& steps) {
  steps.push_back(StoreStep{});
  const auto first = lostMap.First();
  ClientSendAck(first.value_or(Nothing()), steps);
  if (first) seen.MoveToResent(head.file, head.block);
}

void ClassicRepair::TakeMaster(const Master& master, Moment now, RepairSteps& steps) {
  gapList.RunUntil(now);
  isMaster = master.state;
  if (master.state == 0) {
    if (MissesNothing()) {
      steps.push_back(FinishStep{0});
      return End(steps);
    }
    isMaster = 1;
  }
  ClientSendAck(gapList.IsEmpty() ? lostMap.First().value_or(Nothing()) : Nothing(), steps);
}

bool ClassicRepair::TakeRelease(const Release& release, Moment now, RepairSteps& steps) {
  gapList.RunUntil(now);
  if ((release.allSent != 0 && MissesNothing()) || release.secondPass != 0) {
    End(steps);
  } else {
    isMaster = 0;
  }
  return true;
}

void ClassicRepair::TakeFinish(Moment now, RepairSteps& steps) {
  gapList.RunUntil(now);
  if (answerPending) SendAnswer(now, steps);
}

// True when nothing is missing, and the transfer is over.
bool ClassicRepair::SendAnswer(Moment now, RepairSteps& steps) {
  answerPending = false;
  lostMap.EnterBlocks(seen.File(), uint64_t{seen.Block()} + 1, seen.LastBlock());
  lostMap.EnterFiles(uint64_t{seen.File()} + 1, record.FileCount());
  steps.push_back(PauseStep{gapList.RunToEnd(now, EXPANSION_LIMIT)});
  const auto count = static_cast<uint32_t>(lostMap.Size());
  steps.push_back(AnswerStep{count});
  if (count != 0) return false;
  steps.push_back(FinishedStep{});
  steps.push_back(PauseStep{AFTER_LAST_ANSWER});
  steps.push_back(LeaveStep{});
  return true;
}

void ClassicRepair::ClientSendAck(LostBlock wanted, RepairSteps& steps) const {
  steps.push_back(AckStep{wanted, isMaster != 0});
}

}  // namespace quorl
