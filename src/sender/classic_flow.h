#pragma once

#include "sender/master_flow.h"
#include "sender/next_master.h"

namespace quorl {

/// The flow control of the classic profile, from one initialisation of the sender to the next.
class ClassicFlow final : public MasterFlow {
 public:
  explicit ClassicFlow(ReceiverTable& table) : table(table) {}

  void BeginTransfer(uint32_t count) override;
  void BlocksCounted(uint32_t count) override { totalBlocks = count; }
  void StreamSent() override {}
  bool HandOver(Orders& orders) override;
  bool TakeAck(const Ack& ack, Endpoint from, Orders& orders) override;
  bool TakeFinish(uint16_t status, Endpoint from, Orders& orders) override;
  bool TakeAnswer(uint32_t missing, Endpoint from, Orders& orders) override;
  void DatagramHandled() override { masterSeen = masterIndex; }
  WatchNext Watch(Orders& orders) override;
  std::optional<int32_t> CurrentMaster() const override;

 private:
  /// A wanted block, as a CMD_ACK names it.
  struct Request {
    uint32_t file = 0;
    uint32_t block = 0;
    friend bool operator==(const Request&, const Request&) = default;
  };

  bool HasMaster() const { return masterIndex < table.Count(); }
  bool IsMaster(Endpoint receiver) const;
  bool WantsNothing() const { return latestAck.file > fileCount; }
  bool SendMaster(uint32_t state, bool recheck, Orders& orders);
  bool ReplaceMaster(Orders& orders);
  void MarkMaster();
  void ResendBlock(Orders& orders) const;

  WatchNext WatchSilentRoom(Orders& orders);
  WatchNext WatchIdleMaster(Orders& orders);
  WatchNext WatchNewMaster(Orders& orders);
  WatchNext WatchStalledMaster(Orders& orders);
  WatchNext GiveUpFirstMaster(Orders& orders);
  WatchNext GiveUpLaterMaster(Orders& orders);

  ReceiverTable& table;
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;

  int32_t masterIndex = 0;  ///< Row of the master; the table's count when there is none.
  int32_t masterSeen = 0;   ///< The master when the latest datagram had been handled.
  Request latestAck;        ///< Whoever sent it; (0, 0) until the first one.
  PassState pass;
  bool firstMasterPending = true;  ///< No master has said yet that it lacks nothing.
  int32_t failedCount = 0;         ///< Receivers that have reported a failure.

  /// What the watchdog of one transfer remembers.
  struct Watchdog {
    Request remembered;          ///< The request of the latest cycle that saw a new one.
    bool roomAddressed = false;  ///< This cycle has already named a master to a silent room.
    int silentTries = 0;
    int doneIdle = 0;
    int newMasterIdle = 0;
    int stall = 0;
    int restarts = 0;
  };
  Watchdog watchdog;
};

}  // namespace quorl
