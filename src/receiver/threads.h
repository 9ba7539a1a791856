// The procedures that a receiver's threads run.
#pragma once

namespace quorl {

class ReceiverSession;

/// Reads the data socket: ReceiveLoop. Ends with the transfer, on a failure that leaves nothing to do, or on teardown.
void ReceiveThread(ReceiverSession& session);

/// Writes queued blocks into files, and at the end tells the host. Ends with the transfer or on teardown.
void WriteThread(ReceiverSession& session);

/// Expands the gaps of the stream into missing blocks. Ends with the stream, with the transfer or on teardown.
void LostThread(ReceiverSession& session);

/// Watches the sender's heartbeat. Ends with the transfer, on teardown or when the sender is taken as lost.
void ReportWatchThread(ReceiverSession& session);

}  // namespace quorl
