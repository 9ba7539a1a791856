// ReportWatchThread: looks for the sender's heartbeat every 4 s, and takes the sender as lost when four looks in a row
// have found none. The heartbeat comes every 5 s. Where the rules say so, whatever else has come from the sender shows
// as well that it lives, and heartbeats are heard before anything is announced: there is a transfer then that this
// receiver takes no part in.
//
// It ends within a series of looks, too, once the receiver has come to its end: a sender that has gone by then has not
// been lost, and the host of a complete receiver is told nothing else.
#include <quorl/quorl.h>

#include <array>

#include "protocol/datagrams.h"
#include "receiver/session/receiver_session.h"
#include "receiver/session/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration BETWEEN_CHECKS = 4000ms;
constexpr Duration BETWEEN_LOOKS_WHILE_IDLE = 1000ms;
constexpr std::array<const char*, 3> MISSED_LINES = {"\n Tget  Report1 @@@\n", "\n Tget  Report2 @@@\n",
                                                     "\n Tget  Report3 @@@\n"};

// More than the socket's buffer holds.
constexpr int DATAGRAMS_A_LOOK = 1024;

// Every room has its heartbeat on the same group: those of other rooms do not count where the sender is known. By the
// old rules one datagram counts a check, whatever else waits in the socket. Where anything from the sender counts, the
// socket is emptied all the same: heartbeats that nobody had to read would be signs of life long after its end.
bool HasReport(ReceiverSession& session) {
  const bool readsAll = session.rules.everyDatagramIsLife;
  bool heard = readsAll && session.heardSender.exchange(false);
  std::array<uint8_t, LENGTH<Report>> buffer{};
  for (int i = 0; i < DATAGRAMS_A_LOOK; ++i) {
    const Received received = session.sockets.ReceiveReport(buffer);
    if (received.outcome != Received::Outcome::Datagram) break;
    if (!session.sender.Accepts(received.from.address)) continue;
    heard = heard || IsReport(std::span(buffer).first(received.length));
    if (!readsAll) break;
  }
  return heard;
}

void HearOtherRooms(ReceiverSession& session) {
  std::array<uint8_t, LENGTH<Report>> buffer{};
  for (int i = 0; i < DATAGRAMS_A_LOOK; ++i) {
    const Received received = session.sockets.ReceiveReport(buffer);
    if (received.outcome != Received::Outcome::Datagram) return;
    if (!session.sender.Accepts(received.from.address) || !IsReport(std::span(buffer).first(received.length))) continue;
    session.otherRoom.Hear(received.from.address, session.machine.clock.Now());
    session.Knock(received.from.address);
  }
}

// False when the receiver ends before a transfer is announced.
bool WaitForTransfer(ReceiverSession& session) {
  while (!session.stop.IsStopped()) {
    if (session.announced->Wait(BETWEEN_LOOKS_WHILE_IDLE)) return !session.stop.IsStopped();
    HearOtherRooms(session);
  }
  return false;
}

enum class Watch { Heard, Silent, Stopped };

Watch CheckFourTimes(ReceiverSession& session) {
  session.announced->Reset();
  if (session.stop.IsStopped()) return Watch::Stopped;
  for (const char* missed : MISSED_LINES) {
    if (HasReport(session)) return Watch::Heard;
    session.machine.debug.Write(missed);
    if (session.stop.Stopped().Wait(BETWEEN_CHECKS)) return Watch::Stopped;
  }
  return HasReport(session) ? Watch::Heard : Watch::Silent;
}

// Until the sender is lost; false when the receiver ends before.
bool WatchTransfer(ReceiverSession& session) {
  for (;;) {
    switch (CheckFourTimes(session)) {
      case Watch::Stopped: return false;
      case Watch::Silent: return true;
      case Watch::Heard:
        session.machine.debug.Write("\n Tget  Report @@@\n");
        if (session.stop.Stopped().Wait(BETWEEN_CHECKS)) return false;
    }
  }
}

}  // namespace

void ReportWatchThread(ReceiverSession& session) {
  const bool watchesEach = session.rules.watchesFromTheStart;
  do {
    if (watchesEach && !WaitForTransfer(session)) return;
    if (!WatchTransfer(session)) return;
    session.sender.SetLost();
    session.wake->Set();
    session.GiveUp(QUORL_STATUS_SENDER_LOST);
  } while (watchesEach);
}

}  // namespace quorl
