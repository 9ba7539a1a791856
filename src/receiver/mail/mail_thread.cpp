// MailThread: says letters until they are heard, on a socket of its own, which a flood of blocks does not drown. It
// goes on after the transfer, until the receiver is torn down.
#include <array>

#include "receiver/session/receiver_session.h"
#include "receiver/session/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration AFTER_FAILED_MAIL = 10ms;

}  // namespace

void MailThread(ReceiverSession& session) {
  std::array<uint8_t, MAX_REPLY> buffer{};
  Clock& clock = session.machine.clock;
  while (!session.stop.IsAborted()) {
    session.mailWake->Reset();
    while (const auto letter = session.mail->Say()) session.SendMail(*letter);
    const auto due = session.mail->Due();
    const Duration left = due ? std::max(Duration::zero(), *due - clock.Now()) : FOREVER;
    // Aborted since the event was reset: CloseAll sets the flag first.
    if (session.stop.IsAborted()) return;
    const Received received = session.sockets.ReceiveMail(buffer, left, session.mailWake.get());
    if (received.outcome == Received::Outcome::Closed) return;
    if (received.outcome == Received::Outcome::Failed) clock.Sleep(AFTER_FAILED_MAIL);
    if (received.outcome != Received::Outcome::Datagram) continue;
    if (session.mail->TakeReply(received.from.address, ParseReply(std::span(buffer).first(received.length)))) {
      session.record.With([&](BlockRecord&) { session.repair->EndHeard(); });
      session.wake->Set();
    }
  }
}

}  // namespace quorl
