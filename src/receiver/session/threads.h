// The procedures that a receiver's threads run. What the rules call LostThread needs none: repair/gap_list.h.
#pragma once

namespace quorl {

class ReceiverSession;

/// Reads the data socket: ReceiveLoop. Ends with the transfer, on a failure that leaves nothing to do, or on teardown.
void ReceiveThread(ReceiverSession& session);

/// Writes queued blocks into files, and at the end tells the host. Ends with the transfer or on teardown.
void WriteThread(ReceiverSession& session);

/// Says letters to the sender's host until they are heard. Ends on teardown.
void MailThread(ReceiverSession& session);

/// Watches the sender's heartbeat. Ends with the transfer, on teardown or when the sender is taken as lost.
void ReportWatchThread(ReceiverSession& session);

}  // namespace quorl
