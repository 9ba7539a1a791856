// The receive loop's part in the repair: what it answers at the end of the stream, the role of master, the blocks that
// come again, and the ends of a transfer.
//
// Before the receiver says in any form that it lacks nothing, it compares with what the writer has really stored, and
// takes up what is missing there. Losses that no gap shows come back this way.
#include <quorl/quorl.h>

#include <algorithm>

#include "files/names.h"
#include "receiver/receive_loop.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration EXPANSION_LIMIT = 60000ms;

// Of so few blocks a single one is more than the 30 % at which a sender gives a receiver up.
constexpr uint32_t FEW_BLOCKS = 3;

}  // namespace

ReceiveLoop::Next ReceiveLoop::Handle(const Master& master) {
  if (!takesPart) return Next::Continue;
  if (!transfer->IsAnnounced() && session.profile == Profile::Robust) return RefuseMastership();
  isMaster = master.state;
  requestTimer.Stop();
  if (master.state == 0) {
    if (session.missing.IsClear() && LacksNothing()) return EndFinished();
    isMaster = 1;
  }
  RequestNext();
  return Next::Continue;
}

// Nobody can repair a transfer that it has never heard of.
ReceiveLoop::Next ReceiveLoop::RefuseMastership() {
  takesPart = false;
  session.GiveUp(QUORL_STATUS_SENDER_LOST);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::EndFinished() {
  // A receiver that failed files leaves as well, but not as one that has everything.
  const bool unannounced = !transfer->IsAnnounced() && session.sawUnannounced;
  session.ClientSendFinish(unannounced ? uint32_t{QUORL_STATUS_SENDER_LOST} : session.missing.FileFailure());
  session.stop.SetFinished();
  return Next::End;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Release& release) {
  if (!takesPart) return Next::Continue;
  // A sender releases only those whom it has named master; that has not been heard without an announcement.
  if (!transfer->IsAnnounced() && session.profile == Profile::Robust) return Drop(Count::DroppedUnannounced);
  requestTimer.Stop();
  const bool done = release.allSent != 0 && session.missing.IsClear() && LacksNothing();
  if (done || release.secondPass != 0) {
    // The writer tells the host whether that was a complete transfer.
    session.stop.SetFinished();
    return Next::End;
  }
  isMaster = 0;
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Finish&) {
  if (!session.TakeAnswerPending() || SendAnswer() == Next::Continue) return Next::Continue;
  session.machine.debug.Write("\n-------------Receive");
  return Next::End;
}

ReceiveLoop::Next ReceiveLoop::SendAnswer() {
  MissingBlocks& missing = session.missing;
  missing.EnterBlocks(position.File(), uint64_t{position.Block()} + 1, position.LastBlock());
  missing.EnterFiles(uint64_t{position.File()} + 1, transfer->task.fileCount);
  session.lostDone->Wait(EXPANSION_LIMIT);
  // The sender gets the true number, and blocks that others ask for are taken in from the start.
  const bool knewOfNone = missing.IsClear();
  const bool settled = EnterUnstored();
  const uint32_t count = std::max(missing.CountForAnswer(), settled ? 0u : 1u);
  // A receiver that only waits for its disk is not to be given up. Without an answer its turn comes all the same.
  const bool onlySlow = !settled && knewOfNone && count == 1;
  if (!onlySlow || transfer->task.totalBlocks > FEW_BLOCKS) session.replies.SendAnswer(count);
  if (count != 0) return Next::Continue;
  session.stop.SetFinished();
  session.machine.clock.Sleep(100ms);
  return Next::End;
}

// To be asked before every claim that nothing is missing. Blocks of failed files are beyond repair.
bool ReceiveLoop::LacksNothing() {
  return EnterUnstored() && session.missing.IsClear();
}

// A slow disk keeps nobody waiting: when the writer is not through in time, the block that it is at counts as missing,
// and the answer is false. To ask for that block again does no harm; and the sender, whose watchdog looks for requests
// that change, sees this receiver get on for as long as its disk does.
bool ReceiveLoop::EnterUnstored() {
  const bool settled = session.LetWriterSettle();
  if (settled) {
    session.missing.EnterUnstored();
  } else {
    session.missing.EnterOneUnstored(session.queue.LatestPopped());
  }
  return settled;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Resend& resend) {
  // A block that contradicts what is known of its file is of no more use than one that is here already.
  const bool isUsable = BelongsToTransfer(resend.head);
  if (!isUsable && !NamesAnnouncedFile(resend.head)) return Next::Continue;
  if (session.TakeAnswerPending() && SendAnswer() == Next::End) return Next::End;
  const LostBlock block{resend.head.file, resend.head.block};
  if (session.missing.IsClear() && (isMaster == 0 || LacksNothing())) {
    RequestNext();
    return Next::Continue;
  }
  if (isUsable && session.missing.Contains(block)) {
    if (!TakeResent(resend)) return Next::Continue;
    RequestNext();
    if (wanted.file > transfer->task.fileCount) return Next::Continue;
  } else {
    if (isUsable) requestTimer.Answered(session.machine.clock.Now(), block);
    // A master whose wanted block is no longer missing, because its file has failed since, asks for the next as well.
    const bool movesOn = position.Block() != block.block && position.File() != block.file;
    if (isMaster != 0 && (movesOn || (isUsable && wanted == block))) RequestNext();
  }
  position.MoveToResent(block.file, block.block);
  return Next::Continue;
}

// False when there is no room: the block stays missing.
bool ReceiveLoop::TakeResent(const Resend& resend) {
  if (!HasRoomFor(resend.bytes)) return false;
  const LostBlock block{resend.head.file, resend.head.block};
  requestTimer.Answered(session.machine.clock.Now(), block);
  session.missing.Remove(block);
  // Before the block itself can create the file.
  if (block.block == 0) ProcessLost(resend.head);
  Queue(resend.head, resend.bytes, false);
  return true;
}

// When the first block of a file had to come again, the others of a file that does not exist are missing too.
void ReceiveLoop::ProcessLost(const BlockHead& head) {
  for (const char* line : {"\n", "Process Lost", "\n"}) session.machine.debug.Write(line);
  const std::string name = "\\" + Convert(head.name);
  const MappedPath mapped = MapDirectoryPath(transfer->targetDir, name);
  if (mapped.status != QUORL_STATUS_FILE_UNWRITABLE) CreateParentDirChain(session.machine, transfer->targetDir, name);
  if (mapped.status == 0 && session.machine.files.CanOpenOutput(mapped.path.base, mapped.path.name)) return;
  session.missing.EnterBlocks(head.file, 1, head.lastBlock);
}

// Names the first missing block, or when nothing is missing one file more than there are, in the next request.
void ReceiveLoop::RequestNext() {
  std::optional<LostBlock> first = session.missing.First();
  if (!first && isMaster != 0) {
    LacksNothing();
    first = session.missing.First();
  }
  wanted = first.value_or(LostBlock{transfer->task.fileCount + 1, 0});
  ClientSendAck();
}

void ReceiveLoop::ClientSendAck() {
  session.machine.debug.Write("\nQuorl-----Client Send ACK !\n");
  if (isMaster == 0) return;
  session.replies.SendAck(wanted);
  if (session.profile == Profile::Robust) requestTimer.Sent(session.machine.clock.Now(), wanted);
}

}  // namespace quorl
