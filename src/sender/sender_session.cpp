// The collection of receivers, and ReplyThread, which hears them from then on.
//
// ReplyThread takes CMD_CLIENT itself and leaves everything else to the transfer's flow control, whose decision it
// makes under the lock and whose orders it carries out outside. Each transfer has a ReplyThread of its own, which ends
// when the transfer is over, when a decision says so, or at once when the transfer is stopped. So a thread that was
// held up, in a slow read for a repair say, knows only the transfer that is over.
//
// What anybody on the network can force here: as many rows as the table may have, and through the flow control
// blocks that are sent again, one for each datagram.
#include "sender/sender_session.h"

#include <array>
#include <utility>

#include "protocol/datagrams.h"
#include "sender/announcements.h"
#include "sender/symbol_offers.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration COLLECT_PAUSE = 100ms;
constexpr Duration COLLECT_WAIT = 500ms;
constexpr Duration NEIGHBOURS_WAIT = 50ms;  ///< Others answer the question that the last of the expected has answered.
constexpr Duration FAILED_RECEIVE_PAUSE = 10ms;  ///< A socket that fails at once must not keep a processor busy.

}  // namespace

SenderSession::SenderSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile,
                             uint32_t capabilities)
    : context(std::make_shared<SenderContext>(machine, hostWindow, room, profile, capabilities)),
      transfer(std::make_shared<Transfer>(context, TransferPlan{.lists = std::make_shared<const FileLists>()})) {}

bool SenderSession::Open() {
  return context->sockets.Open(context->hostWindow);
}

bool SenderSession::Collect(ExpectedReceivers whom) {
  if (context->profile == Profile::Robust && whom.AreKnown()) {
    auto event = context->machine.threads.MakeEvent();
    const std::scoped_lock lock(context->mutex);
    expected = std::move(whom);
    allAreIn = std::move(event);
  }
  if (!StartReplyThread(Latest())) {
    Close();
    return false;
  }
  if (!Ask()) {
    context->Debug("\nQuorl-----Can not Collect Client!\n");
    Close();
    return false;
  }
  if (WaitForLastAnswers()) context->machine.clock.Sleep(NEIGHBOURS_WAIT);
  return true;
}

bool SenderSession::WaitForLastAnswers() {
  for (int i = 0; i < FURTHER_OFFERS; ++i) {
    if (WaitForAnswers(COLLECT_WAIT / FURTHER_OFFERS)) return true;
    OfferSymbolsAgain(*context, SendWait{});
  }
  return false;
}

// False when nobody could be asked.
bool SenderSession::Ask() {
  const Offer ours = context->correspondence.OurOffer();
  const auto offer = Build(ours);
  bool asked = false;
  for (int i = 0; i < ANNOUNCEMENT_COPIES; ++i) {
    if (context->correspondence.IsOn() && (ours.capabilities & KNOWS_SYMBOLS) != 0)
      context->sockets.SendToGroup(BuildPaddedOffer(ours), SendWait{});
    asked = context->sockets.SendToGroup(Build(quorl::Collect{}), SendWait{}) || asked;
    if (context->correspondence.IsOn()) context->sockets.SendToGroup(offer, SendWait{});
    if (WaitForAnswers(COLLECT_PAUSE)) break;
  }
  return asked;
}

// True when all that are expected have answered, which ends the pause.
bool SenderSession::WaitForAnswers(Duration pause) {
  if (allAreIn) return allAreIn->Wait(pause);
  context->machine.clock.Sleep(pause);
  return false;
}

// To be called with the context's mutex held.
void SenderSession::NoteAnswer() {
  if (allAreIn && expected.AreAllIn(context->table, context->correspondence.IsOn()) && !AwaitsAcceptances(*context))
    allAreIn->Set();
}

bool SenderSession::SendWord(std::span<const uint8_t> text) {
  std::vector<uint8_t> datagram;
  {
    const std::scoped_lock lock(context->mutex);
    if (!context->correspondence.IsOn() || closed) return false;
    datagram = BuildText(context->correspondence.NextWord(text));
  }
  return context->SendRepeatedly(datagram, ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE, SendWait{});
}

std::optional<Correspondence::Received> SenderSession::TakeLetter() {
  const std::scoped_lock lock(context->mutex);
  return context->correspondence.Take();
}

void SenderSession::StartTransfer(TransferPlan plan) {
  context->rate = plan.rate;
  const auto next = std::make_shared<Transfer>(context, std::move(plan));
  bool isClosed = false;
  std::shared_ptr<Transfer> earlier;
  {
    // From here on somebody else who starts a transfer, or closes the sender, finds this one and ends it.
    const std::scoped_lock lock(context->mutex);
    isClosed = closed;
    earlier = std::exchange(transfer, next);
    next->Supersede(*earlier);
  }
  earlier->Abandon();
  if (isClosed) next->Close();
  StartReplyThread(next);
  next->Start();
}

void SenderSession::ChangeRate(uint32_t kilobitsPerSecond) {
  if (context->profile == Profile::Robust) context->rate = kilobitsPerSecond;
}

void SenderSession::Close() {
  {
    const std::scoped_lock lock(context->mutex);
    closed = true;
  }
  Latest()->Close();
}

bool SenderSession::StartReplyThread(const std::shared_ptr<Transfer>& current) {
  const bool started =
      current->IsReady() && current->Adopt(context->machine.threads.Start("ReplyThread", Priority::AboveNormal,
                                                                          [self = shared_from_this(), current] {
                                                                            self->HearReceivers(*current);
                                                                            self->HearLetters(*current);
                                                                            current->ReplyThreadEnds();
                                                                          }));
  if (!started) context->Debug("\nQuorl------Create the Receive Thread Failed!\n");
  return started;
}

void SenderSession::HearReceivers(Transfer& current) {
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

/// What becomes of a transfer is told when it is over: by letters, until the sender is closed or begins another one.
void SenderSession::HearLetters(Transfer& current) {
  if (!context->correspondence.IsOn()) return;
  std::array<uint8_t, MAX_REPLY> buffer{};
  while (!current.ReplyStop()->IsSet()) {
    const Received received = context->sockets.ReceiveReply(buffer, current.ReplyStop());
    if (received.outcome == Received::Outcome::Interrupted || received.outcome == Received::Outcome::Closed) return;
    if (received.outcome == Received::Outcome::Datagram) {
      TakeLetter(current, ParseFromReceiver(std::span(buffer).first(received.length)), received.from);
    } else {
      current.ReplyStop()->Wait(FAILED_RECEIVE_PAUSE);
    }
  }
}

/// False when it was none of what younger peers say.
bool SenderSession::TakeLetter(Transfer& current, const FromReceiver& reply, Endpoint from) {
  const auto* accept = std::get_if<Accept>(&reply);
  const auto* letter = std::get_if<Letter>(&reply);
  if (!context->correspondence.IsOn() || (!accept && !letter)) return false;
  std::optional<Heard> heard;
  std::optional<UnderWay> underWay;
  {
    const std::scoped_lock lock(context->mutex);
    if (letter) heard = context->correspondence.TakeLetter(*letter, from.address, context->table);
    if (accept) {
      using Accepted = Correspondence::Accepted;
      const bool inTransfer = current.IsUnderWay();
      const Accepted accepted = context->correspondence.TakeAccept(*accept, from.address, context->table, inTransfer);
      if (accepted == Accepted::Replaced) current.TakeReply(Finish{QUORL_STATUS_LEFT}, from);
      if (accepted != Accepted::Known) underWay = current.Describe();
      NoteAnswer();
    }
  }
  if (underWay) context->sockets.Reply(from, Build(*underWay));
  if (heard) context->sockets.Reply(from, BuildHeard(*heard));
  current.CarryOutOrders();
  return true;
}

/// False when ReplyThread has to end.
bool SenderSession::Handle(Transfer& current, std::span<const uint8_t> datagram, Endpoint from) {
  FromReceiver reply = ParseFromReceiver(datagram);
  if (TakeLetter(current, reply, from)) return true;
  // A host that has offered nothing knows no such codes.
  if (std::holds_alternative<Accept>(reply) || std::holds_alternative<Letter>(reply) ||
      (std::holds_alternative<Lacks>(reply) && !context->correspondence.IsOn()))
    reply = Reject::UnknownCommand;
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
      NoteAnswer();
    }
    goesOn = current.TakeReply(reply, from);
  }
  current.CarryOutOrders();
  return goesOn;
}

uint32_t SenderSession::FillErrInfo(uint32_t* errInfoBuffer) {
  const std::scoped_lock lock(context->mutex);
  uint32_t records = 0;
  for (int32_t i = 0; i < context->table.Count() && records < QUORL_RECEIVERS; ++i) {
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
