#pragma once

#include "receiver/repair/block_repair.h"
#include "receiver/repair/request_window.h"

namespace quorl {

/// The repair of the robust profile.
class RobustRepair final : public BlockRepair {
 public:
  explicit RobustRepair(BlockRecord& record) : record(record) {}

  void Begin(Moment now) override;
  Admission TakeData(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) override;
  Admission TakeResend(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) override;
  void TakeLook(const BlockHead&, bool, Moment, RepairSteps&) override {}
  void TakeMaster(const Master& master, Moment now, RepairSteps& steps) override;
  bool TakeRelease(const Release& release, Moment now, RepairSteps& steps) override;
  void TakeFinish(Moment now, RepairSteps& steps) override;
  void StandDown(Moment now, RepairSteps& steps) override;
  void TakeSettled(Moment now, RepairSteps& steps) override;
  void Pass(Moment now, RepairSteps& steps) override;
  void EndHeard() override;
  std::optional<Moment> Due() const override;
  bool IsLeaving() const override { return leaving; }
  bool IsMaster() const override { return isMaster; }
  bool IsStreaming() const override { return !streamOver; }
  const StreamGaps* Gaps() const override { return &gaps; }
  void Forget() override {}

 private:
  Admission Admit(const BlockHead& head);
  Admission Take(const BlockHead& head, bool hasRoom, RepairSteps& steps);
  void GoOn(Moment now, RepairSteps& steps);
  void Answer(Moment now, RepairSteps& steps);
  void AskAgain(Moment now, RepairSteps& steps);
  void Ask(Moment now, RepairSteps& steps);
  std::optional<LostBlock> NextToAskFor();
  void KeepAlive(Moment now, RepairSteps& steps);
  void Leave(Moment now, uint32_t status, RepairSteps& steps);
  void Say(RepairSteps& steps);
  void SayAgain(Moment now, RepairSteps& steps);

  BlockRecord& record;

  StreamGaps gaps;

  bool takesPart = true;
  bool streamOver = false;
  bool answered = false;
  bool isMaster = false;
  LostBlock askedLast;
  RequestWindow requests;

  bool settling = false;  ///< Everything has come, and the disk has not answered yet.
  uint32_t keepAlives = 0;
  std::optional<Moment> keepAliveAt;

  bool leaving = false;
  uint32_t leavingStatus = 0;

  size_t said = 0;  ///< Times of what is said now: the number of missing blocks, or the last word.
  std::optional<Moment> sayAgainAt;
};

}  // namespace quorl
