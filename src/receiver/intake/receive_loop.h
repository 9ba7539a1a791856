#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "coded/catalogue.h"
#include "coded/receiver/symbol_store.h"
#include "protocol/datagrams.h"
#include "receiver/intake/due_answer.h"
#include "receiver/repair/block_repair.h"
#include "receiver/session/receiver_session.h"

namespace quorl {

/// One run of the receive loop: reads every datagram of the data socket and acts on the sender's commands. Lives on
/// ReceiveThread and is used by it alone. It never waits for the disk.
class ReceiveLoop {
 public:
  explicit ReceiveLoop(ReceiverSession& session) : session(session) {}

  /// Returns when the transfer is over, when a failure leaves nothing to do, or on teardown.
  void Run();

 private:
  enum class Next { Continue, End };

  static constexpr size_t DATAGRAMS_AT_ONCE = 32;

  /// A block that has come, in the buffer of the loop.
  struct Arrived {
    const BlockHead& head;
    std::span<const uint8_t> bytes;
    bool firstSending;
  };

  bool IsOver();
  Next ReceiveSome();
  Next TakeDatagram(const DatagramBatch::Item& datagram);
  void LetGather();
  Received Receive();
  Next LookAround();
  Next HandleWhileLeaving(const FromSender& message);

  // One handler a command.
  Next Handle(Reject reason);
  Next Drop(Count why);
  Next Handle(const Collect&);
  Next Handle(const Master& master);
  Next Handle(const Release& release);
  Next Handle(const Task& task);
  Next Handle(const Resend& resend);
  Next Handle(const Finish&);
  Next Handle(const Stop&);
  Next Handle(const EmptyDir& emptyDir);
  Next Handle(const Data& data);
  Next Handle(const ServerOs& serverOs);
  Next Handle(const AutoOpenName& autoOpenName);
  Next Handle(const Offer& offer);
  Next Handle(const Word& word);
  Next Handle(const Poll& poll);
  Next Handle(const SymbolDatagram& symbol);

  bool IsLeaving();
  bool IsCopyOfAccepted(const Task& task) const;
  std::string TargetDirFor(const Task& task);
  bool Fits(const Task& task);
  bool IsUnannounced() const;
  bool StaysUntouched() const;
  static Count CountOf(Admission refusal);
  Next TakeBlock(const Arrived& arrived);
  std::string Convert(const NameField& field) const;
  Next MakeDirectory(const NameField& name);

  // A transfer in symbols (symbol_intake.cpp).
  Next TakeCatalogue(std::span<const uint8_t> bytes);
  void SetHeldGroupsTaken();
  Next StoreWholeGroups();
  Next TakeRun(const BlockHead& first, uint32_t count, const Slab& slab, size_t offset);
  void Answer();
  std::optional<Moment> Due();

  void Store(ReceivedBlocks blocks);

  // What the repair decides, and its steps.
  template <typename Decision>
  Next Decide(Decision decision, const Arrived* arrived = nullptr);
  Next CarryOut(const RepairSteps& steps, const Arrived* arrived);
  Next Do(const AckStep& step, const Arrived*);
  Next Do(const AnswerStep& step, const Arrived*);
  Next Do(const FinishStep& step, const Arrived*);
  Next Do(const StoreStep&, const Arrived* arrived);
  Next Do(const LookStep&, const Arrived* arrived);
  Next Do(const SettleStep&, const Arrived*);
  Next Do(const PauseStep& step, const Arrived*);
  Next Do(const FinishedStep&, const Arrived*);
  Next Do(const GiveUpStep& step, const Arrived*);
  Next Do(const LeaveStep&, const Arrived*) { return Next::End; }

  ReceiverSession& session;
  DatagramBatch batch{DATAGRAMS_AT_ONCE, MAX_EMPTY_DIR_DATAGRAM};
  // Of the pace of the stream: datagrams since, and the time from one to the next before that.
  size_t counted = 0;
  Moment countedFrom{};
  Duration betweenDatagrams = FOREVER;
  NameField shownField;   // of the latest block,
  std::string shownName;  // and as it is here
  TransferPtr transfer = session.CurrentTransfer();
  std::optional<Moment> acceptedAt;  // of the announcement whose copies change nothing; none after a stop
  uint32_t answeredTo = 0;           // the sender that asked who listens; 0 for none yet
  size_t emptyDirs = 0;              // asked for since the announcement
  std::optional<uint64_t> settleRequest;
  std::optional<SymbolStore> symbols;  // of this transfer, if it goes in symbols
  Catalogue catalogue;
  DueAnswer answer{session.machine.clock.Now()};
  uint32_t stoppedTransfer = 0;  // in symbols, whose late polls mean nothing; 0 for none
};

}  // namespace quorl
