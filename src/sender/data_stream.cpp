// The data stream, on SendThread. No receiver is waited for and nothing is sent twice; what is missed is repaired
// afterwards. The host is told each block's file name before the block leaves, and the pause between two datagrams
// comes after that, so that reading and telling cost no time of their own.
#include "sender/data_stream.h"

#include "sender/transfer.h"

namespace quorl {

DataStream::DataStream(Transfer& transfer) : transfer(transfer), pacer(transfer.Plan().rate) {}

bool DataStream::Run() {
  const size_t count = transfer.Plan().lists->ArraySendFile.size();
  for (size_t i = 1; i <= count; ++i)
    if (!SendFile(static_cast<uint32_t>(i))) return false;
  return true;
}

bool DataStream::SendFile(uint32_t number) {
  const FileEntry& entry = transfer.Plan().lists->ArraySendFile[number - 1];
  if (!file.Open(transfer.Context().machine.files, entry.fullPath, transfer.Plan().blocks.shapes[number - 1])) {
    transfer.OrderEnd(QUORL_STATUS_FILE_UNREADABLE);
    return false;
  }
  const FileShape shape = file.Shape();
  datagram.SetFile(number, entry.relativeName, shape);
  for (uint64_t block = 0; block < shape.BlockCount(); ++block)
    if (!SendBlock(number, static_cast<uint32_t>(block), entry.relativeName)) return false;
  return true;
}

bool DataStream::SendBlock(uint32_t number, uint32_t block, const std::string& name) {
  SenderContext& context = transfer.Context();
  datagram.SetBlock(block);
  const auto read = file.Read(block, datagram.BlockBytes());
  if (!read) {
    transfer.OrderEnd(QUORL_STATUS_FILE_UNREADABLE);
    return false;
  }
  if (read->isShort) transfer.NoteShrunkFile(number);
  if (block == file.Shape().lastBlock) file.Close();

  context.PostFileName(name);
  if (const auto next = pacer.NextSend(context.fastPacing)) transfer.PauseUntil(*next);
  if (transfer.IsStopRequested()) return false;
  const auto bytes = datagram.Datagram(read->bytes);
  if (!context.sockets.SendToGroup(bytes)) {
    transfer.FailSend("\nQuorl-----Send Data form write file!\n");
    return false;
  }
  pacer.Sent(context.machine.clock.Now(), bytes.size());
  transfer.NoteBlock(number, false);
  return true;
}

}  // namespace quorl
