#pragma once

#include "receiver/repair/block_repair.h"
#include "receiver/repair/gap_list.h"
#include "receiver/repair/lost_map.h"
#include "receiver/repair/sequence_position.h"

namespace quorl {

/// The repair of the classic profile.
class ClassicRepair final : public BlockRepair {
 public:
  ClassicRepair(BlockRecord& record, Counters& counters)
      : record(record), lostMap(record, counters), gapList(lostMap, counters) {}

  void Begin(Moment now) override;
  Admission TakeData(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) override;
  Admission TakeResend(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) override;
  void TakeLook(const BlockHead& head, bool exists, Moment now, RepairSteps& steps) override;
  void TakeMaster(const Master& master, Moment now, RepairSteps& steps) override;
  bool TakeRelease(const Release& release, Moment now, RepairSteps& steps) override;
  void TakeFinish(Moment now, RepairSteps& steps) override;
  void StandDown(Moment, RepairSteps&) override {}
  void TakeSettled(Moment, RepairSteps&) override {}
  void Pass(Moment, RepairSteps&) override {}
  std::optional<Moment> Due() const override { return std::nullopt; }
  bool IsLeaving() const override { return false; }
  bool IsMaster() const override { return isMaster != 0; }
  bool IsStreaming() const override { return answerPending; }
  void Forget() override;

 private:
  Admission Admit(const BlockHead& head, bool hasRoom);
  bool MissesNothing() const { return lostMap.IsEmpty() && gapList.IsEmpty(); }
  LostBlock Nothing() const { return {record.FileCount() + 1, 0}; }
  bool SendAnswer(Moment now, RepairSteps& steps);
  void Store(const BlockHead& head, RepairSteps& steps);
  void ClientSendAck(LostBlock wanted, RepairSteps& steps) const;

  BlockRecord& record;
  LostMap lostMap;
  GapList gapList;
  SequencePosition seen;
  bool answerPending = false;
  uint32_t isMaster = 0;
};

}  // namespace quorl
