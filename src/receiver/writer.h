#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "files/names.h"
#include "platform/files.h"
#include "receiver/block_queue.h"
#include "receiver/run_buffer.h"

namespace quorl {

class ReceiverSession;

/// Puts blocks into files. Used by WriteThread, and by who closes the receiver once that has ended.
class Writer {
 public:
  explicit Writer(ReceiverSession& session) : session(session) {}

  void WriteBlock(const ReceivedBlock& block);

  /// Writes out what is pending and closes the file, if one is open.
  void CloseFile();

  bool HasFile() const { return recvFile != nullptr; }
  /// The open file's local path.
  const std::string& FileName() const { return recvFileName; }

 private:
  bool OpenRecvFile(const ReceivedBlock& block);
  void WriteOutRun();
  void FailOpen(const ReceivedBlock& block, uint32_t status);
  void FailWrite(WriteOutcome outcome);
  void TellFailure(uint32_t status);

  ReceiverSession& session;
  TransferPtr transfer;    // whose file is open
  uint32_t writeFile = 0;  // the number of the open file; 0 while none is open
  std::unique_ptr<OutputFile> recvFile;
  std::string recvFileName;
  RunBuffer run;
};

}  // namespace quorl
