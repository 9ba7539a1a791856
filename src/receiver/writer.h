#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

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
  bool TakesPlace(const LocalPath& path, uint32_t file);
  /// `canPass`: another attempt may end better.
  void FailOpen(const ReceivedBlock& block, uint32_t status, bool canPass);
  void RefuseName(const ReceivedBlock& block, uint32_t status);
  void FailWrite(WriteOutcome outcome);
  void TellFailure(uint32_t status);

  ReceiverSession& session;
  TransferPtr transfer;                              // whose file is open
  std::unordered_map<std::string, uint32_t> places;  // of its files so far, robust
  uint32_t writeFile = 0;                            // the number of the open file; 0 while none is open
  std::unique_ptr<OutputFile> recvFile;
  std::string recvFileName;
  RunBuffer run;
};

}  // namespace quorl
