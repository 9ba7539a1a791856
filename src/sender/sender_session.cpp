// The collection of receivers, and ReplyThread, which hears them from then on.
//
// ReplyThread takes CMD_CLIENT itself and leaves everything else to the transfer's flow control, whose decision it
// makes under the lock and whose orders it carries out outside. Each transfer has a ReplyThread of its own, which ends
// when the transfer is over, when a decision says so, or at once when the transfer is stopped. So a thread that was
// held up, in a slow read for a repair say, knows only the transfer that is over.
//
// What anybody on the network can force here: rows in the table (200 at most), and through the flow control blocks that
// are sent again, one for each datagram.
#include "sender/sender_session.h"

#include <array>

#include "protocol/datagrams.h"
#include "sender/announcements.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration COLLECT_PAUSE = 100ms;
constexpr Duration COLLECT_WAIT = 500ms;
constexpr Duration FAILED_RECEIVE_PAUSE = 10ms;  ///< A socket that fails at once must not keep a processor busy.

}  // namespace

SenderSession::SenderSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile)
    : context(std::make_shared<SenderContext>(machine, hostWindow, room, profile)),
      transfer(std::make_shared<Transfer>(context, TransferPlan{.lists = std::make_shared<const FileLists>()})) {}

bool SenderSession::Open() {
  return context->sockets.Open(context->hostWindow);
}

bool SenderSession::Collect() {
  if (!StartReplyThread(Latest())) {
    Close();
    return false;
  }
  if (!context->SendRepeatedly(Build(quorl::Collect{}), ANNOUNCEMENT_COPIES, COLLECT_PAUSE)) {
    context->Debug("\nQuorl-----Can not Collect Client!\n");
    Close();
    return false;
  }
  context->machine.clock.Sleep(COLLECT_WAIT);
  return true;
}

void SenderSession::StartTransfer(TransferPlan plan) {
  auto blocks = CountBlocks(context->machine.files, *plan.lists);
  if (!blocks) {
    context->Debug("\nQuorl-----Too many blocks to send!\n");
    context->Post(WM_TRANS_STATUS, QUORL_STATUS_FILE_UNREADABLE, 0);
    return;
  }
  plan.blocks = std::move(*blocks);
  Latest()->Abandon();
  const auto next = std::make_shared<Transfer>(context, std::move(plan));
  Install(next);
  StartReplyThread(next);
  next->Start();
}

void SenderSession::Install(std::shared_ptr<Transfer> next) {
  const std::scoped_lock lock(context->mutex);
  context->table.BeginTransfer();
  transfer.swap(next);
}

bool SenderSession::StartReplyThread(const std::shared_ptr<Transfer>& current) {
  const bool started =
      current->ReplyStop() &&
      current->Adopt(context->machine.threads.Start(
          "ReplyThread", Priority::AboveNormal, [self = shared_from_this(), current] { self->ReplyThread(*current); }));
  if (!started) context->Debug("\nQuorl------Create the Receive Thread Failed!\n");
  return started;
}

void SenderSession::ReplyThread(Transfer& current) {
  std::array<uint8_t, MAX_REPLY> buffer{};
  while (!current.IsOver()) {
    const Received received = context->sockets.ReceiveReply(buffer, current.ReplyStop());
    switch (received.outcome) {
      case Received::Outcome::Datagram:
        if (!Handle(current, std::span(buffer).first(received.length), received.from)) return;
        break;
      case Received::Outcome::Interrupted:
      case Received::Outcome::Closed: return;
      case Received::Outcome::TimedOut:
      case Received::Outcome::Failed: current.ReplyStop()->Wait(FAILED_RECEIVE_PAUSE); break;
    }
  }
}

/// False when ReplyThread has to end.
bool SenderSession::Handle(Transfer& current, std::span<const uint8_t> datagram, Endpoint from) {
  const FromReceiver reply = ParseFromReceiver(datagram);
  if (const auto* rejected = std::get_if<Reject>(&reply)) {
    context->counters.AddRejected(*rejected);
    if (*rejected == Reject::WrongMagic) return true;
  }
  bool goesOn = true;
  {
    const std::scoped_lock lock(context->mutex);
    if (const auto* client = std::get_if<Client>(&reply)) {
      if (client->platform == 0) context->fastPacing = false;
      if (!context->table.AddClient(from)) context->counters.Add(Count::DroppedTableFull);
    }
    goesOn = current.TakeReply(reply, from);
  }
  current.CarryOutOrders();
  return goesOn;
}

uint32_t SenderSession::FillErrInfo(uint32_t* errInfoBuffer) {
  const std::scoped_lock lock(context->mutex);
  uint32_t records = 0;
  for (int32_t i = 0; i < context->table.Count(); ++i) {
    const ClientEntry& row = context->table[i];
    if (row.status == 0) continue;
    errInfoBuffer[1 + 2 * records] = row.addr.address;
    errInfoBuffer[2 + 2 * records] = row.status;
    ++records;
  }
  errInfoBuffer[0] = records;
  return records;
}

uint32_t SenderSession::FillReceivers(uint32_t* addresses, uint32_t capacity) {
  const std::scoped_lock lock(context->mutex);
  const auto count = static_cast<uint32_t>(context->table.Count());
  for (uint32_t i = 0; i < count && i < capacity; ++i)
    addresses[i] = context->table[static_cast<int32_t>(i)].addr.address;
  return count;
}

SendState SenderSession::State() {
  const std::scoped_lock lock(context->mutex);
  return transfer->State();
}

std::shared_ptr<Transfer> SenderSession::Latest() {
  const std::scoped_lock lock(context->mutex);
  return transfer;
}

}  // namespace quorl
