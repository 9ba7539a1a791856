// ReportWatchThread: looks for the sender's heartbeat every 4 s, and takes the sender as lost when four looks in a row
// have found none. The heartbeat comes every 5 s.
#include <quorl/quorl.h>

#include <array>

#include "protocol/datagrams.h"
#include "receiver/receiver_session.h"
#include "receiver/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration BETWEEN_CHECKS = 4000ms;
constexpr std::array<const char*, 3> MISSED_LINES = {"\n Tget  Report1 @@@\n", "\n Tget  Report2 @@@\n",
                                                     "\n Tget  Report3 @@@\n"};

// More than the socket's buffer holds.
constexpr int STRANGERS_A_CHECK = 64;

// One datagram a check, whatever else waits in the socket. Every room has its heartbeat on the same group: those of
// other rooms do not count where the sender is known.
bool HasReport(ReceiverSession& session) {
  std::array<uint8_t, LENGTH<Report>> buffer{};
  for (int strangers = 0; strangers < STRANGERS_A_CHECK; ++strangers) {
    const Received received = session.sockets.ReceiveReport(buffer);
    if (received.outcome != Received::Outcome::Datagram) return false;
    if (session.sender.Accepts(received.from.address)) return IsReport(std::span(buffer).first(received.length));
  }
  return false;
}

enum class Watch { Heard, Silent, Stopped };

Watch CheckFourTimes(ReceiverSession& session) {
  if (session.stop.IsStopped()) return Watch::Stopped;
  for (const char* missed : MISSED_LINES) {
    if (HasReport(session)) return Watch::Heard;
    session.machine.debug.Write(missed);
    if (session.stop.Stopped().Wait(BETWEEN_CHECKS)) return Watch::Stopped;
  }
  return HasReport(session) ? Watch::Heard : Watch::Silent;
}

}  // namespace

void ReportWatchThread(ReceiverSession& session) {
  for (;;) {
    switch (CheckFourTimes(session)) {
      case Watch::Stopped: return;
      case Watch::Silent:
        session.sender.SetLost();
        session.GiveUp(QUORL_STATUS_SENDER_LOST);
        return;
      case Watch::Heard:
        session.machine.debug.Write("\n Tget  Report @@@\n");
        if (session.stop.Stopped().Wait(BETWEEN_CHECKS)) return;
    }
  }
}

}  // namespace quorl
