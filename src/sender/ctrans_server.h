#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "files/file_lists.h"
#include "platform/machine.h"
#include "protocol/block_ranges.h"
#include "protocol/counters.h"
#include "protocol/profile.h"
#include "sender/correspondence.h"
#include "sender/expected_receivers.h"
#include "sender/send_state.h"

namespace quorl {

class Selection;
class SenderSession;
using BlockListener = std::function<void(uint32_t file, uint32_t block, std::span<const uint8_t> bytes)>;

/// The sender: what the sender's exports of <quorl/quorl.h> do. Calls in a wrong order are harmless, and so are calls
/// from several threads. Destroying it stops nothing; a host calls DeInitServer first.
class CTransServer {
 public:
  explicit CTransServer(const Machine& machine);
  ~CTransServer();

  /// Takes about 0.9 s, or less when it is known who is expected. What an earlier InitServer has left open is closed
  /// first.
  uint32_t InitServer(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort, uint32_t localInterface);
  uint32_t DeInitServer();

  int32_t SetSelectFiles(const std::vector<std::string>& paths, const std::string& autoOpenName);
  uint32_t SetSubDirTrans(uint32_t flag);
  uint32_t SetTargetPath(uint32_t folder, const std::string& path);
  uint32_t GetIsHasInvalidChar();

  /// Waits for the threads of an earlier transfer, which it stops.
  uint32_t StartSend();
  uint32_t StopSend();
  uint32_t GetErrInfo(uint32_t* errInfoBuffer);

  /// For the next StartSend, and in the robust profile at once; 0 is the system's own fixed pacing.
  void SetSendRate(uint32_t kilobitsPerSecond);
  uint32_t GetReceivers(uint32_t* addresses, uint32_t capacity);
  /// For the next InitServer.
  void SetProfile(Profile newProfile);
  /// Robust: whether transfers go in symbols where everybody in the room knows them. For the next InitServer.
  void SetSymbols(bool use);
  /// For the next InitServer.
  void SetCapabilities(uint32_t bits);
  /// For the next InitServer alone.
  void SetExpectedReceivers(ExpectedReceivers receivers);
  bool SendWord(std::span<const uint8_t> text);
  std::optional<Correspondence::Received> TakeLetter();
  /// For the next StartSend alone.
  void SetSkippedBlocks(BlockRanges blocks);
  void SetBlockListener(BlockListener listener);
  SendState GetState();
  /// Since the latest InitServer.
  std::vector<NamedCount> GetCounters();

  /// Paths that the host wants left out of a selection.
  void SetSelectionFilter(PathFilter leavesOut);
  /// How a selection of these paths would be listed.
  ListRules SelectionRules(const std::vector<std::string>& paths, bool subDirTrans);

 private:
  std::shared_ptr<SenderSession> Session();
  std::shared_ptr<Selection> CurrentSelection();
  bool SelectsSorted();
  PathFilter Filter();
  void ReplaceSelection(std::shared_ptr<Selection> changed);

  const Machine machine;
  std::mutex mutex;  ///< Guards what follows; never held across a call to the machine.
  std::shared_ptr<Selection> selection;
  std::shared_ptr<SenderSession> session;
  uint32_t targetFolder = 0;
  std::string targetPath;
  uint32_t sendRate = 0;
  Profile profile = Profile::Classic;
  PathFilter filter;
  uint32_t capabilities = 0;
  ExpectedReceivers expected;
  bool symbols = false;
  BlockRanges skipped;
  BlockListener listener;
};

}  // namespace quorl
