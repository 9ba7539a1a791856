#pragma once

#include "sender/master_flow.h"

namespace quorl {

/// The flow control of the robust profile.
class RobustFlow final : public MasterFlow {
 public:
  RobustFlow(ReceiverTable& table, uint32_t fileCount, uint32_t totalBlocks)
      : table(table), fileCount(fileCount), totalBlocks(totalBlocks) {}

  void StreamSent() override;
  bool HandOver(Orders& orders) override;
  bool TakeAck(const Ack& ack, Endpoint from, Orders& orders) override;
  bool TakeFinish(uint16_t status, Endpoint from, Orders& orders) override;
  bool TakeAnswer(uint32_t missing, Endpoint from, Orders& orders) override;
  void DatagramHandled() override {}
  WatchNext Watch(Orders& orders) override;
  std::optional<int32_t> CurrentMaster() const override;

 private:
  /// What the watchdog compares: whose turn it is, and what the master has asked for in it.
  struct Progress {
    uint32_t turn = 0;
    uint32_t ackFile = 0;
    uint32_t ackBlock = 0;
    friend bool operator==(const Progress&, const Progress&) = default;
  };

  bool IsStreamSent() const { return phase == Phase::Answering || phase == Phase::Repairing; }
  bool HasMaster() const { return phase == Phase::Repairing; }
  bool IsMaster(const ClientEntry& row) const { return HasMaster() && &row == &table[masterIndex]; }
  void SendMaster(uint32_t state, Orders& orders) const;
  bool NameMaster(int32_t current, Orders& orders);
  int32_t NextMaster(int32_t current);
  void GiveUpMaster(bool wantsNothing);
  bool HasAskedTooMuch() const;
  bool TakeCompletion(ClientEntry& row, Orders& orders);
  bool TakeFailure(ClientEntry& row, uint16_t status, Orders& orders);
  void ReportUnserved();
  bool End(uint32_t code, Orders& orders);
  uint32_t EndCode() const;

  ReceiverTable& table;
  const uint32_t fileCount;
  const uint32_t totalBlocks;

  enum class Phase { Streaming, Answering, Repairing, Over };
  Phase phase = Phase::Streaming;
  bool secondPass = false;
  int32_t masterIndex = 0;
  Progress progress;
  uint64_t requestsInTurn = 0;
  int32_t failedCount = 0;

  // The watchdog's own.
  Progress watched;
  int idleCycles = 0;
};

}  // namespace quorl
