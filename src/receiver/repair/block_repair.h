// What a receiver misses and what it answers: the rules of the repair on the receiving side.
//
// Two sets of rules exist, one a profile. Both are decisions only: no thread, socket, clock, disk or lock. What has
// come and what time it is goes in; steps come out, which the receive loop carries out in their order. The caller makes
// sure that one decision is made at a time, and holds the record of blocks for it meanwhile.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "platform/time.h"
#include "protocol/counters.h"
#include "protocol/datagrams.h"
#include "protocol/profile.h"
#include "receiver/blocks/block_record.h"
#include "receiver/blocks/stream_gaps.h"

namespace quorl {

/// Send CMD_ACK, or where `send` is false only tell the debug output that this was its turn.
struct AckStep {
  LostBlock wanted;
  bool send = true;
};

/// Send CMD_ANSWER.
struct AnswerStep {
  uint32_t missing = 0;
};

/// Send CMD_FINISH.
struct FinishStep {
  uint32_t status = 0;
};

/// Hand the block that has come to the writer, and tell the host its name.
struct StoreStep {};

/// Look whether the file of the block that has come can be opened for writing, and tell TakeLook.
struct LookStep {};

/// Have the writer put everything that has come on the disk, and call TakeSettled when it has.
struct SettleStep {};

/// Go on only after this time.
struct PauseStep {
  Duration pause{};
};

/// The transfer is over for this receiver: the writer tells the host once it is through.
struct FinishedStep {};

/// Tell sender and host this status.
struct GiveUpStep {
  uint32_t status = 0;
};

/// Leave the receive loop.
struct LeaveStep {};

using RepairStep = std::variant<AckStep, AnswerStep, FinishStep, StoreStep, LookStep, SettleStep, PauseStep,
                                FinishedStep, GiveUpStep, LeaveStep>;
using RepairSteps = std::vector<RepairStep>;

class BlockRepair {
 public:
  virtual ~BlockRepair() = default;

  // Each appends to `steps` what is to be done.

  /// A transfer has been announced, and the record begun anew.
  virtual void Begin(Moment now) = 0;
  /// A block of the stream. Without `hasRoom` it can be neither queued nor stored, and counts as not arrived.
  virtual Admission TakeData(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) = 0;
  /// A block that was sent again.
  virtual Admission TakeResend(const BlockHead& head, bool hasRoom, Moment now, RepairSteps& steps) = 0;
  /// The answer to a LookStep of TakeResend.
  virtual void TakeLook(const BlockHead& head, bool exists, Moment now, RepairSteps& steps) = 0;
  virtual void TakeMaster(const Master& master, Moment now, RepairSteps& steps) = 0;
  /// False when it is of no meaning here.
  virtual bool TakeRelease(const Release& release, Moment now, RepairSteps& steps) = 0;
  /// The stream is over.
  virtual void TakeFinish(Moment now, RepairSteps& steps) = 0;
  /// The sender has stopped the transfer, or has been lost.
  virtual void StandDown(Moment now, RepairSteps& steps) = 0;
  /// The writer has put everything on the disk that had come when it was asked to.
  virtual void TakeSettled(Moment now, RepairSteps& steps) = 0;
  /// A file has failed, or the time that Due named has come.
  virtual void Pass(Moment now, RepairSteps& steps) = 0;

  /// The sender knows how the transfer has ended here.
  virtual void EndHeard() {}

  /// When Pass is to be called; nothing while there is nothing to wait for.
  virtual std::optional<Moment> Due() const = 0;
  /// Everything has been said and is only repeated: the sender's next room, or the host, ends that.
  virtual bool IsLeaving() const = 0;
  /// It is this receiver's turn to ask.
  virtual bool IsMaster() const = 0;
  /// The stream of the announced transfer is still to be answered.
  virtual bool IsStreaming() const = 0;
  /// How the stream of the announced transfer comes; null where nobody looks.
  virtual const StreamGaps* Gaps() const { return nullptr; }
  /// The receiver is torn down: nothing is missing any more.
  virtual void Forget() = 0;
};

/// `record` and `counters` outlive the result.
std::unique_ptr<BlockRepair> MakeBlockRepair(Profile profile, BlockRecord& record, Counters& counters);

}  // namespace quorl
