#pragma once

#include <quorl/quorl.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "protocol/counters.h"
#include "protocol/profile.h"
#include "protocol/receiver_sockets.h"
#include "receiver/block_queue.h"
#include "receiver/host_notes.h"
#include "receiver/missing_blocks.h"
#include "receiver/receive_state.h"
#include "receiver/replies.h"
#include "receiver/sender_binding.h"
#include "receiver/stop_flags.h"
#include "receiver/transfer.h"
#include "receiver/writer.h"

namespace quorl {

/// What one InitClient brings to life: sockets, events, what the threads share, and the threads. Every thread holds
/// its session, so it never touches anything freed, also when CloseAll's bounded wait for it ran out.
class ReceiverSession : public std::enable_shared_from_this<ReceiverSession> {
 public:
  ReceiverSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile,
                  const std::string& receiveRoot);
  ~ReceiverSession();

  ReceiverSession(const ReceiverSession&) = delete;
  ReceiverSession& operator=(const ReceiverSession&) = delete;

  // ---- the host's threads ----

  /// False when the machine cannot make the events; nothing is open then.
  bool PrepareEvents();
  /// Opens the sockets; on failure everything is closed again.
  bool OpenSockets();
  /// Starts ReceiveThread and WriteThread, once. `onlySender`: the address to listen to; 0 for anyone.
  void StartReceive(uint32_t onlySender);
  void SetReceiveRoot(const std::string& drivePath);
  ReceiveState GetState();

  /// Ends the receiver, once; on the host's thread or on one of the receiver's own. Waits at most 5000 ms.
  void CloseAll();

  // ---- the receiver's threads ----

  /// Forgets the missing blocks, the queued blocks and the gaps.
  void DestoryAll();

  /// Tells the sender a status; when that is impossible the receiver tears itself down.
  void ClientSendFinish(uint32_t status);

  /// The same, and 100 ms later the host.
  void GiveUp(uint32_t status);

  /// Starts LostThread and ReportWatchThread.
  void StartTransferThreads();
  void StartReportWatch();

  /// Lets the writer put everything that has been queued on the disk, at most 400 ms. False when that was too short.
  bool LetWriterSettle();

  TransferPtr CurrentTransfer();
  void SetTransfer(TransferPtr next);
  std::string ReceiveRoot();
  std::string CurrentName();
  void SetCurrentName(const std::string& name);
  std::string AutoOpenName();
  void SetAutoOpenName(const std::string& name);

  /// CMD_ANSWER is still due in this transfer.
  bool IsAnswerPending();
  void SetAnswerPending();
  /// Whether it was due.
  bool TakeAnswerPending();

  const Machine machine;
  const Profile profile;
  Counters counters;
  SenderBinding sender;
  ReceiverSockets sockets;
  StopFlags stop;
  Replies replies;
  HostNotes host;
  MissingBlocks missing;
  BlockQueue queue;
  Writer writer;
  std::shared_ptr<Event> recvDone;
  std::shared_ptr<Event> writeDone;
  std::shared_ptr<Event> lostDone;
  std::atomic<bool> senderNtPlatform = true;
  /// A block came although nothing had been announced.
  std::atomic<bool> sawUnannounced = false;
  /// The sender has stopped the transfer.
  std::atomic<bool> stopSeen = false;
  /// The run is over for this receiver, and everything that will ever be on the disk is there.
  std::atomic<bool> ended = false;

 private:
  using ThreadBody = void (*)(ReceiverSession&);
  std::shared_ptr<Thread> StartThread(const char* name, Priority priority, ThreadBody body);
  void EndThread();
  void WaitForThreads();
  void CloseOutputFile();
  void CloseLeftovers();
  ReceivePhase Phase(const AnnouncedTransfer& transfer);

  std::mutex threadsLock;  // guards the handles and the start of threads against CloseAll
  std::shared_ptr<Thread> receiveThread;
  std::shared_ptr<Thread> writeThread;
  std::shared_ptr<Thread> lostThread;
  std::shared_ptr<Thread> reportWatchThread;
  std::atomic<int> liveThreads = 0;
  bool ready = false;         // the sockets are open
  bool holdsNetwork = false;  // the socket library is to be given back
  std::atomic<bool> closed = false;
  std::atomic<bool> tornDown = false;
  std::atomic<bool> leftoversClosed = false;

  std::mutex answerLock;
  bool answerPending = false;

  std::mutex nameLock;  // guards the texts and the current transfer
  std::string curName;
  std::string aofName;
  std::string receiveRoot;
  TransferPtr transfer = std::make_shared<const AnnouncedTransfer>();
};

}  // namespace quorl
