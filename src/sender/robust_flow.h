#pragma once

#include <unordered_set>

#include "sender/master_flow.h"

namespace quorl {

/// The flow control of the robust profile, for one transfer.
class RobustFlow final : public MasterFlow {
 public:
  explicit RobustFlow(ReceiverTable& table) : table(table) {}

  void BeginTransfer(uint32_t count) override { fileCount = count; }
  void BlocksCounted(uint32_t count) override { totalBlocks = count; }
  void StreamSent() override;
  bool HandOver(Orders& orders) override;
  bool TakeAck(const Ack& ack, Endpoint from, Orders& orders) override;
  bool TakeFinish(uint16_t status, Endpoint from, Orders& orders) override;
  bool TakeAnswer(uint32_t missing, Endpoint from, Orders& orders) override;
  void DatagramHandled() override {}
  WatchNext Watch(Orders& orders) override;
  std::optional<int32_t> CurrentMaster() const override;
  bool IsMasterSilent() const override;

 private:
  /// What the watchdog compares: whose turn it is, and how far the master has come in it. One that asks for the same
  /// blocks in a circle does not come on.
  struct Progress {
    uint32_t turn = 0;
    uint64_t blocksAskedFor = 0;  ///< Each counts once.
    bool wantsNothing = false;
    friend bool operator==(const Progress&, const Progress&) = default;
  };

  bool IsStreamSent() const { return phase == Phase::Answering || phase == Phase::Repairing; }
  bool HasMaster() const { return phase == Phase::Repairing; }
  bool IsMaster(const ClientEntry& row) const { return HasMaster() && &row == &table[masterIndex]; }
  void SendMaster(uint32_t state, Orders& orders) const;
  bool NameMaster(int32_t current, Orders& orders);
  int32_t NextMaster(int32_t current);
  bool IsGivenUp(bool wantsNothing) const;
  void GiveUpMaster(bool wantsNothing);
  bool HasAskedTooMuch() const;
  bool IsNewRequest(const Ack& ack);
  bool TakeCompletion(ClientEntry& row, Orders& orders);
  bool TakeFailure(ClientEntry& row, uint16_t status, Orders& orders);
  void ReportUnserved();
  bool End(uint32_t code, Orders& orders);
  uint32_t EndCode() const;

  ReceiverTable& table;
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;

  enum class Phase { Streaming, Answering, Repairing, Over };
  Phase phase = Phase::Streaming;
  bool secondPass = false;
  int32_t masterIndex = 0;
  Progress progress;
  uint64_t requestsInTurn = 0;
  std::unordered_set<uint64_t> askedFor;  ///< The blocks, in this turn.
  int32_t failedCount = 0;

  // The watchdog's own.
  Progress watched;
  uint64_t watchedRequests = 0;
  int idleCycles = 0;    // in which it has not come on
  int silentCycles = 0;  // in which it has not been heard
};

}  // namespace quorl
