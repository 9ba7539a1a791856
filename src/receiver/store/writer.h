#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "files/names.h"
#include "platform/files.h"
#include "receiver/store/block_queue.h"
#include "receiver/store/run_buffer.h"

namespace quorl {

class ReceiverSession;

/// Puts blocks into files. Used by WriteThread, and by who closes the receiver once that has ended.
class Writer {
 public:
  explicit Writer(ReceiverSession& session) : session(session) {}

  void WriteBlocks(const ReceivedBlocks& blocks);

  /// Writes out what is pending.
  void WriteOutRun();
  /// The same, and closes the file, if one is open.
  void CloseFile();

  bool HasFile() const { return recvFile != nullptr; }
  /// The open file's local path.
  const std::string& FileName() const { return recvFileName; }

 private:
  void Write(const RunWrite& write);
  bool OpenRecvFile(const ReceivedBlocks& blocks);
  OpenedOutput Open(const LocalPath& path, uint32_t file);
  bool TakesPlace(const LocalPath& path, uint32_t file);
  bool IsFailed(uint32_t file);
  /// True when it is news.
  bool Fail(uint32_t file, uint32_t status);
  void FailOpen(const ReceivedBlocks& blocks, uint32_t status);
  void RefuseName(const ReceivedBlocks& blocks, uint32_t status);
  void FailWrite(WriteOutcome outcome);
  void TellFailure(uint32_t status);

  ReceiverSession& session;
  TransferPtr transfer;                              // whose file is open
  std::unordered_map<std::string, uint32_t> places;  // of its files so far
  uint32_t writeFile = 0;                            // the file opened last; 0 for none
  std::string writeName;                             // as it was announced
  std::unique_ptr<OutputFile> recvFile;
  std::string recvFileName;
  RunBuffer run;
};

}  // namespace quorl
