#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "coded/catalogue.h"
#include "coded/group_layout.h"
#include "coded/sender/coded_rate.h"
#include "coded/sender/coded_schedule.h"
#include "platform/slab.h"
#include "protocol/datagrams.h"
#include "sender/block_source.h"
#include "sender/data_stream.h"
#include "sender/pacer.h"
#include "sender/transfer_parts.h"

namespace quorl {

/// One run through all files of a transfer in symbols, until every receiver that takes part has all of them. What it
/// cannot bring to somebody is left to the repair behind the stream, which knows no symbols.
class CodedStream {
 public:
  explicit CodedStream(const TransferParts& parts);

  /// Whether there are receivers, and all of them know symbols and have been reached by datagrams of that size. To be
  /// called with the context's mutex held.
  static bool Reaches(SenderContext& context);

  /// False when these files cannot be sent in symbols. To be called once, before Run.
  bool Prepare();
  StreamEnd Run();

  /// With the context's mutex held: whether it is an answer to this run, and what follows from it.
  bool IsMine(const Lacks& lacks) const { return schedule && lacks.head.transfer == poll.transfer; }
  void TakeLacks(const Lacks& lacks, uint32_t address);

  /// Whether the disk has kept the run for as long as `limit`. Any thread.
  bool IsStuckFor(Duration limit) const { return source.IsStuckFor(limit); }

 private:
  static constexpr size_t SYMBOL_DATAGRAM = LENGTH<SymbolHead> + SYMBOL_SIZE;

  /// The symbols of a group of the contents; none when it need not or cannot be sent.
  struct Group {
    Slab slab;
    size_t symbols = 0;
  };

  StreamEnd SendAll();
  uint32_t Rate() const;
  CodedSchedule::Step NextStep(std::vector<CodedSchedule::SendStep>& toSend);
  void LookAtReceivers(Moment now);
  std::optional<StreamEnd> Do(const CodedSchedule::OpenStep& step);
  std::optional<StreamEnd> Do(const CodedSchedule::PollStep& step);
  std::optional<StreamEnd> Do(const CodedSchedule::WaitStep& step);
  std::optional<StreamEnd> Send(const std::vector<CodedSchedule::SendStep>& steps);
  void MakeRepairSymbols(const std::vector<CodedSchedule::SendStep>& steps);
  std::optional<Group> ReadGroup(uint32_t group);
  bool IsSkipped(uint32_t group);
  std::optional<bool> ReadRun(const BlockRun& run, std::span<uint8_t> into, bool isAgain);
  std::span<const uint8_t> GroupBytes(uint32_t group) const;
  void NoteRepair(uint32_t group);

  const TransferParts parts;
  Pacer pacer;
  BlockSource source;
  uint32_t openFile = 0;
  std::vector<uint8_t> catalogue;
  uint32_t catalogueGroups = 0;
  GroupLayout contents;
  Poll poll;
  std::shared_ptr<Event> answered;

  // Guarded by the context's mutex.
  std::unique_ptr<CodedSchedule> schedule;
  CodedRate ownRate;          ///< Where the host has named none.
  std::set<uint32_t> joined;  ///< Receivers that take part, or did.

  // Of the thread that runs.
  SlabPool slabs{GROUP_SIZE};
  std::deque<Group> window;  ///< The contents' groups from `firstInWindow` on.
  uint32_t firstInWindow = 0;
  uint32_t readUpTo = 0;  ///< Groups of the contents that have been read once.
  uint64_t symbolsSent = 0;
  uint64_t repairBytes = 0;  ///< That are not counted as a block yet.
  std::vector<std::array<uint8_t, SYMBOL_DATAGRAM>> datagrams;
  std::vector<std::span<const uint8_t>> gathered;
};

}  // namespace quorl
