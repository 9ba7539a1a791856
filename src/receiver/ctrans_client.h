#pragma once

#include <quorl/quorl.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "protocol/block_ranges.h"
#include "protocol/counters.h"
#include "protocol/profile.h"
#include "receiver/mail/mail.h"
#include "receiver/session/receive_state.h"
#include "receiver/session/transfer.h"

namespace quorl {

class ReceiverSession;

/// The receiver: what the library's receiving functions drive. Its operations may be called in any order and from any
/// thread. Everything that one InitClient brings to life lives in a session, which its threads keep alive until the
/// last of them has ended.
class CTransClient {
 public:
  explicit CTransClient(const Machine& machine);

  /// Stops no thread and closes no socket: DeInitClient does.
  ~CTransClient();

  CTransClient(const CTransClient&) = delete;
  CTransClient& operator=(const CTransClient&) = delete;

  /// Opens the sockets; no thread runs yet. 1, or 0 when something could not be set up.
  uint32_t InitClient(QuorlWindow hostWindow, uint32_t groupAddress, uint32_t groupPort, uint32_t localInterface);

  /// Ends the receiver. Waits for its threads at most 5 s. Harmless at any time. Always 1.
  uint32_t DeInitClient();

  /// Starts to listen, once for each InitClient. Always 1.
  uint32_t StartReceive();

  /// A receiver ends by itself or by DeInitClient; this does nothing. Always 1.
  uint32_t StopReceive();

  /// For the next InitClient.
  void SetProfile(Profile profile);

  /// `drivePath` "C:\a\b": everything received is placed under it, whatever the sender names; empty: follows the
  /// sender. For the next transfer that is announced.
  void SetReceiveRoot(const std::string& drivePath);

  /// The only address to listen to, network byte order; 0: anyone. For the next StartReceive.
  void SetSender(uint32_t address);

  /// For the next InitClient.
  /// Robust: whether transfers go in symbols where everybody in the room knows them. For the next Init.
  void SetSymbols(bool use);
  void SetCapabilities(uint32_t capabilities);
  bool SendLetter(std::span<const uint8_t> text) { return mail->Send(text); }
  uint32_t LettersOnTheirWay() const { return mail->OnTheirWay(); }
  std::optional<Mail::HeardWord> TakeWord() { return mail->TakeWord(); }

  /// For the next transfer that is announced.
  void SetHeldBlocks(BlockRanges blocks);
  void SetStoreListener(StoreListener listener);
  std::vector<BlockRange> StoredBlocks();

  /// Stays readable after DeInitClient, until the next InitClient.
  ReceiveState GetState();

  /// Since the latest InitClient.
  std::vector<NamedCount> GetCounters();

 private:
  std::shared_ptr<ReceiverSession> Session();
  std::shared_ptr<ReceiverSession> Exchange(std::shared_ptr<ReceiverSession> next);

  const Machine machine;
  const std::shared_ptr<Mail> mail;

  std::mutex lock;  // guards what follows
  Profile profile = Profile::Classic;
  std::string receiveRoot;
  uint32_t onlySender = 0;
  uint32_t capabilities = 0;
  bool symbols = false;
  BlockRanges held;
  StoreListener storeListener;
  std::shared_ptr<ReceiverSession> session;
};

}  // namespace quorl
