// The receive loop on a transfer in symbols. What has been gathered becomes blocks here, which go the same way as those
// that came as blocks: so everything else, from the names to the last word, is as it always is, and what symbols have
// not brought is repaired block by block.
#include <algorithm>

#include "receiver/intake/receive_loop.h"

namespace quorl {

namespace {

// Bytes that wait for the disk at most. More stays where it has been gathered, and the sender is not told that it is
// there: so it goes on only as fast as the disk does.
constexpr size_t MOST_WAITING = 32 << 20;

}  // namespace

ReceiveLoop::Next ReceiveLoop::Handle(const Poll& poll) {
  if (!session.HasMail() || !session.mail->KnowsSymbols()) return Handle(Reject::UnknownCommand);
  if (!SymbolStore::Takes(poll) || poll.transfer == stoppedTransfer) return Drop(Count::DroppedUnannounced);
  if (!symbols || symbols->Transfer() != poll.transfer) {
    session.senderNtPlatform = poll.platform != 0;
    if (!IsCopyOfAccepted(poll.Announcement()) && Handle(poll.Announcement()) == Next::End) return Next::End;
    // An announcement that is none has been counted as that.
    if (transfer->task != poll.Announcement()) return Next::Continue;
    symbols.emplace(poll);
  }
  if (StoreWholeGroups() == Next::End) return Next::End;
  answer.Set(BuildLacks(symbols->Answer(poll)), session.machine.clock.Now(), std::chrono::milliseconds(poll.spread));
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const SymbolDatagram& symbol) {
  if (!session.HasMail() || !session.mail->KnowsSymbols()) return Handle(Reject::UnknownCommand);
  if (!symbols || symbol.head.transfer != symbols->Transfer()) return Drop(Count::DroppedUnannounced);
  if (!symbols->Take(symbol)) return Next::Continue;
  if (const auto list = symbols->TakeCatalogue(); list && TakeCatalogue(*list) == Next::End) return Next::End;
  return StoreWholeGroups();
}

// Nothing is made before all of it has been understood.
ReceiveLoop::Next ReceiveLoop::TakeCatalogue(std::span<const uint8_t> bytes) {
  auto parsed = ParseCatalogue(bytes, transfer->task.fileCount, transfer->task.totalBlocks);
  if (!parsed) {
    stoppedTransfer = symbols->Transfer();
    symbols.reset();
    return Drop(Count::DroppedUnannounced);
  }
  catalogue = std::move(*parsed);
  std::vector<FileShape> shapes;
  for (const Catalogue::File& file : catalogue.files) shapes.push_back(file.shape);
  symbols->SetContents(std::move(shapes));
  SetHeldGroupsTaken();
  session.SetAutoOpenName(Convert(NameField::From(catalogue.autoOpenName)));
  for (const std::string& name : catalogue.directories)
    if (MakeDirectory(NameField::From(name)) == Next::End) return Next::End;
  return Next::Continue;
}

/// What has been stored before the transfer need not come.
void ReceiveLoop::SetHeldGroupsTaken() {
  session.record.With([&](BlockRecord& record) {
    if (record.StoredCount() == 0) return;
    const GroupLayout& contents = symbols->Contents();
    for (uint32_t group = 0; group < contents.Count(); ++group) {
      const auto isHeld = [&](const BlockRun& run) {
        for (uint32_t i = 0; i < run.count; ++i)
          if (!record.IsReceived({run.file, run.first + i})) return false;
        return true;
      };
      auto runs = contents.Runs(group);
      auto run = runs.Next();
      while (run && isHeld(*run)) run = runs.Next();
      if (!run) symbols->SetTaken(group);
    }
  });
}

ReceiveLoop::Next ReceiveLoop::StoreWholeGroups() {
  if (!symbols) return Next::Continue;
  while (session.queue.HasRoomFor(BlockQueue::ROOM - MOST_WAITING)) {
    const auto run = symbols->NextRun();
    if (!run) break;
    const auto& [number, first, count, offset, size] = run->blocks;
    const Catalogue::File& file = catalogue.files[number - 1];
    const BlockHead head{number, first, file.shape.lastBlock, 1, file.shape.tailSize, NameField::From(file.name)};
    if (TakeRun(head, count, run->slab, offset) == Next::End) return Next::End;
  }
  return Next::Continue;
}

/// Blocks that follow each other in a file and lie so in the slab. Those that are stored together are queued together,
/// and in front of what the repair makes of it that they are there.
ReceiveLoop::Next ReceiveLoop::TakeRun(const BlockHead& first, uint32_t count, const Slab& slab, size_t offset) {
  std::vector<std::pair<uint32_t, uint32_t>> runs;  // First and end, counted from `first`.
  RepairSteps next;
  session.record.With([&](BlockRecord&) {
    const Moment now = session.machine.clock.Now();
    BlockHead head = first;
    for (uint32_t i = 0; i < count; ++i, ++head.block) {
      RepairSteps steps;
      const Admission admission = session.repair->TakeData(head, true, now, steps);
      if (admission != Admission::Admitted) session.counters.Add(CountOf(admission));
      for (const RepairStep& step : steps) {
        if (!std::holds_alternative<StoreStep>(step)) {
          next.push_back(step);
        } else if (!runs.empty() && runs.back().second == i) {
          ++runs.back().second;
        } else {
          runs.emplace_back(i, i + 1);
        }
      }
    }
  });
  for (const auto& [begin, end] : runs) {
    BlockHead head = first;
    head.block += begin;
    size_t size = 0;
    for (uint32_t i = begin; i < end; ++i) size += first.Shape().BytesInBlock(first.block + i);
    Store({transfer, head, true, end - begin, slab, {slab.get() + offset + begin * BLOCK_SIZE, size}});
  }
  return CarryOut(next, nullptr);
}

void ReceiveLoop::Answer() {
  if (const auto datagram = answer.Take(session.machine.clock.Now()))
    session.sockets.SendToSender(session.replies.Sender(), *datagram);
}

/// When there is something to do without a datagram.
std::optional<Moment> ReceiveLoop::Due() {
  const auto due = session.record.With([&](BlockRecord&) { return session.repair->Due(); });
  const auto answerDue = answer.Due();
  return due && answerDue ? std::min(*due, *answerDue) : (due ? due : answerDue);
}

}  // namespace quorl
