#pragma once

#include <span>
#include <vector>

#include "protocol/datagrams.h"
#include "sender/block_source.h"
#include "sender/pacer.h"
#include "sender/transfer_parts.h"

namespace quorl {

/// How a run through all files has ended.
enum class StreamEnd {
  Complete,        ///< Every block is out.
  Stopped,         ///< The transfer is being stopped.
  FileUnreadable,  ///< A file could not be opened or read.
  SendFailed,      ///< A block could not be sent.
};

/// One run through all files of a transfer: every block once, in order.
class DataStream {
 public:
  explicit DataStream(const TransferParts& parts);

  StreamEnd Run();

  /// Whether the disk has kept the run for as long as `limit`. Any thread.
  bool IsStuckFor(Duration limit) const { return file.IsStuckFor(limit); }

 private:
  StreamEnd SendFile(uint32_t number);
  StreamEnd SendBlock(uint32_t number, uint32_t block);
  StreamEnd SendGathered(uint32_t number);

  const TransferParts parts;
  Pacer pacer;
  std::vector<BlockDatagram> datagrams;            ///< For the whole run: sending a block allocates nothing.
  std::vector<std::span<const uint8_t>> gathered;  ///< Of them, what is to be sent at once.
  BlockSource file;
};

}  // namespace quorl
