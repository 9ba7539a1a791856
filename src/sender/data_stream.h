#pragma once

#include "protocol/datagrams.h"
#include "sender/block_source.h"
#include "sender/pacer.h"

namespace quorl {

class Transfer;

/// One run through all files of a transfer: every block once, in order.
class DataStream {
 public:
  explicit DataStream(Transfer& transfer);

  /// True when every block is out. False when the run ended early; who has to know has been told then.
  bool Run();

 private:
  bool SendFile(uint32_t number);
  bool SendBlock(uint32_t number, uint32_t block, const std::string& name);

  Transfer& transfer;
  Pacer pacer;
  BlockDatagram datagram{CMD_DATA};  ///< One buffer for the whole run: sending a block allocates nothing.
  BlockSource file;
};

}  // namespace quorl
