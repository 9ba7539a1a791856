// The data stream, on SendThread. No receiver is waited for and nothing is sent twice; what is missed is repaired
// afterwards. With a rate, what may leave within a millisecond goes out at once. The host is told each block's file
// name before the block leaves, and the pause between two datagrams comes after that, so that reading and telling cost
// no time of their own.
#include "sender/data_stream.h"

#include <algorithm>

namespace quorl {

namespace {

// As many as the system may cut out of one send.
constexpr size_t BLOCKS_AT_ONCE = 13;

constexpr size_t BLOCKS_AHEAD = 60;

}  // namespace

DataStream::DataStream(const TransferParts& parts)
    : parts(parts),
      pacer(parts.plan.rate),
      datagrams(parts.plan.rate == 0 ? 1 : BLOCKS_AT_ONCE, BlockDatagram(CMD_DATA)),
      file(parts.context.machine.clock, BLOCKS_AHEAD) {}

StreamEnd DataStream::Run() {
  StreamEnd end = StreamEnd::Complete;
  for (uint32_t number = 1; end == StreamEnd::Complete && number <= parts.plan.FileCount(); ++number)
    end = SendFile(number);
  // The one that a stop has cut short: the host may want to remove it while the sender is still there.
  file.Close();
  return end;
}

StreamEnd DataStream::SendFile(uint32_t number) {
  const std::string& name = parts.plan.File(number).relativeName;
  const auto announced = parts.progress.AnnouncedShape(number);
  if (announced && parts.plan.skipped.CountOf(number, announced->BlockCount()) == announced->BlockCount()) {
    parts.progress.NoteSkipped(announced->BlockCount());
    return StreamEnd::Complete;
  }
  if (!OpenForTransfer(file, parts, number)) return StreamEnd::FileUnreadable;
  const FileShape shape = file.Shape();
  // A file of one block fills one datagram.
  for (size_t i = 0; i < std::min<uint64_t>(datagrams.size(), shape.BlockCount()); ++i)
    datagrams[i].SetFile(number, name, shape);
  for (uint64_t block = 0; block < shape.BlockCount(); ++block)
    if (const StreamEnd end = SendBlock(number, static_cast<uint32_t>(block)); end != StreamEnd::Complete) return end;
  return gathered.empty() ? StreamEnd::Complete : SendGathered(number);
}

StreamEnd DataStream::SendBlock(uint32_t number, uint32_t block) {
  SenderContext& context = parts.context;
  if (parts.plan.skipped.Has(number, block)) {
    parts.progress.NoteSkipped(1);
    return parts.end.IsStopRequested() ? StreamEnd::Stopped : StreamEnd::Complete;
  }
  BlockDatagram& datagram = datagrams[gathered.size()];
  datagram.SetBlock(block);
  const auto read = file.Read(block, datagram.BlockBytes());
  if (!read) return StreamEnd::FileUnreadable;
  if (read->isShort) parts.progress.NoteShrunkFile(number);
  if (block == file.Shape().lastBlock) file.Close();

  if (parts.plan.listener) parts.plan.listener(number, block, datagram.BlockBytes().first(read->bytes));
  // A slow disk may have let the transfer be stopped meanwhile.
  if (parts.end.IsStopRequested()) return StreamEnd::Stopped;
  context.PostFileName(number, parts.plan.File(number).relativeName);
  gathered.push_back(datagram.Datagram(read->bytes));
  return gathered.size() >= pacer.Burst(MAX_DATAGRAM, datagrams.size()) ? SendGathered(number) : StreamEnd::Complete;
}

StreamEnd DataStream::SendGathered(uint32_t number) {
  SenderContext& context = parts.context;
  if (const auto next = pacer.NextSend(context.fastPacing)) parts.end.PauseUntil(*next);
  if (parts.end.IsStopRequested()) return StreamEnd::Stopped;
  if (!context.sockets.SendToGroup(gathered, parts.end.Patience())) return StreamEnd::SendFailed;
  const Moment now = context.machine.clock.Now();
  pacer.ChangeRate(context.rate);
  for (const auto& bytes : gathered) {
    pacer.Sent(now, bytes.size());
    parts.progress.NoteBlock(number, false);
  }
  gathered.clear();
  return StreamEnd::Complete;
}

}  // namespace quorl
