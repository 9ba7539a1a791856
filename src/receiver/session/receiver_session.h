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
#include "receiver/blocks/block_record.h"
#include "receiver/mail/mail.h"
#include "receiver/repair/block_repair.h"
#include "receiver/session/host_notes.h"
#include "receiver/session/other_room.h"
#include "receiver/session/receive_state.h"
#include "receiver/session/receiver_rules.h"
#include "receiver/session/replies.h"
#include "receiver/session/sender_binding.h"
#include "receiver/session/stop_flags.h"
#include "receiver/session/transfer.h"
#include "receiver/store/block_queue.h"
#include "receiver/store/writer.h"

namespace quorl {

/// What one InitClient brings to life: sockets, events, what the threads share, and the threads. Every thread holds
/// its session, so it never touches anything freed, also when CloseAll's bounded wait for it ran out.
class ReceiverSession : public std::enable_shared_from_this<ReceiverSession> {
 public:
  ReceiverSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room, Profile profile,
                  const std::string& receiveRoot, std::shared_ptr<Mail> mail);
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
  /// Blocks that count as stored in the next transfer that is announced.
  void SetHeld(BlockRanges blocks);
  /// Who hears of what is stored of the next transfer that is announced.
  void SetStoreListener(StoreListener next);
  bool IsClosed() const { return closed; }
  std::vector<BlockRange> StoredBlocks();

  /// Ends the receiver, once; on the host's thread or on one of the receiver's own. Waits at most 5000 ms.
  void CloseAll();

  // ---- the receiver's threads ----

  /// Forgets the missing blocks, the queued blocks and the gaps.
  void DestoryAll();

  /// Tells the sender a status; when that is impossible the receiver tears itself down.
  void ClientSendFinish(uint32_t status, int copies);

  /// The same, and 100 ms later the host, unless another transfer has begun by then.
  void GiveUp(uint32_t status);

  /// Starts ReportWatchThread, unless it runs.
  void StartReportWatch();

  /// Whether this receiver and its sender may say something to each other's hosts.
  bool HasMail() const { return rules.hasMail && mail->IsOn(); }
  void SendMail(const Mail::Outgoing& outgoing) { sockets.SendMail(outgoing.to, outgoing.datagram); }
  /// Asks the sender of a transfer that this receiver takes no part in.
  void Knock(uint32_t otherSender);

  /// Those that SetHeld named, once, for a transfer of the sender that they were named for.
  BlockRanges TakeHeld(uint32_t announcer);
  /// The listener for the transfer that is announced, once.
  StoreListener TakeStoreListener();

  /// Over, with everything on the disk.
  bool IsComplete();

  TransferPtr CurrentTransfer();
  void SetTransfer(TransferPtr next);
  std::string ReceiveRoot();
  std::string CurrentName();
  void SetCurrentName(const std::string& name);
  std::string AutoOpenName();
  void SetAutoOpenName(const std::string& name);

  const Machine machine;
  const ReceiverRules& rules;
  Counters counters;
  SenderBinding sender;
  ReceiverSockets sockets;
  StopFlags stop;
  Replies replies;
  HostNotes host;
  SharedRecord record;
  /// Used with the record held.
  const std::unique_ptr<BlockRepair> repair;
  BlockQueue queue;
  Writer writer;
  std::shared_ptr<Event> recvDone;
  std::shared_ptr<Event> writeDone;
  /// Set when the receive loop is to look at something else than its socket.
  std::shared_ptr<Event> wake;
  /// Set when a transfer has been announced, or the receiver is torn down.
  std::shared_ptr<Event> announced;
  /// Set when MailThread is to look at its letters.
  std::shared_ptr<Event> mailWake;
  const std::shared_ptr<Mail> mail;
  OtherRoom otherRoom;
  std::atomic<bool> senderNtPlatform = true;
  /// Something has come from the sender since the watch last looked.
  std::atomic<bool> heardSender = false;
  /// The sender has stopped the transfer.
  std::atomic<bool> stopSeen = false;
  /// The run is over for this receiver, and everything that will ever be on the disk is there.
  std::atomic<bool> ended = false;

 private:
  using ThreadBody = void (*)(ReceiverSession&);
  std::shared_ptr<Thread> StartThread(const char* name, Priority priority, ThreadBody body);
  void EndThread();
  void StartMail();
  void SayLeaving();
  void WaitForThreads();
  void CloseOutputFile();
  void CloseLeftovers();
  ReceivePhase Phase(const AnnouncedTransfer& transfer);

  std::mutex threadsLock;  // guards the handles and the start of threads against CloseAll
  std::shared_ptr<Thread> receiveThread;
  std::shared_ptr<Thread> writeThread;
  std::shared_ptr<Thread> reportWatchThread;
  std::shared_ptr<Thread> mailThread;
  std::atomic<int> liveThreads = 0;
  bool ready = false;         // the sockets are open
  bool holdsNetwork = false;  // the socket library is to be given back
  std::atomic<bool> closed = false;
  std::atomic<bool> tornDown = false;
  std::atomic<bool> leftoversClosed = false;

  std::mutex nameLock;  // guards the texts and the current transfer
  std::string curName;
  std::string aofName;
  std::string receiveRoot;
  BlockRanges held;
  Mail::Correspondent heldFor;
  StoreListener storeListener;
  TransferPtr transfer = std::make_shared<const AnnouncedTransfer>();
};

}  // namespace quorl
