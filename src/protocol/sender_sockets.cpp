// The order of the steps is fixed: who watches a sender start sees the same calls, and each failing step has a line of
// its own in the debug output.
#include "protocol/sender_sockets.h"

#include "protocol/datagrams.h"
#include "protocol/set_up_steps.h"

namespace quorl {

using namespace std::chrono_literals;

bool SenderSockets::Open(QuorlWindow hostWindow) {
  if (!OpenSendAndReply()) {
    Close();
    return false;
  }
  switch (LookForAnotherSender()) {
    case Probe::Free: break;
    case Probe::Busy: machine.windows.Post(hostWindow, {WM_TRANS_STATUS, QUORL_STATUS_GROUP_BUSY, 0, {}}); return false;
    case Probe::Failed: Close(); return false;
  }
  if (!OpenReport()) {
    Close();
    return false;
  }
  return true;
}

void SenderSockets::Close() {
  for (const auto& socket : {sendSocket, replySocket, reportSocket})
    if (socket) socket->Close();
  if (holdsNetwork.exchange(false)) machine.network.Stop();
}

bool SenderSockets::OpenSendAndReply() {
  Network& network = machine.network;
  const uint32_t local = room.localInterface;
  return RunSteps(
      machine.debug,
      {
          {[&] { return (holdsNetwork = network.Start()); }, "\nQuorl------Initialize Winsock2.2 Failed!\n"},
          {[&] { return (sendSocket = network.OpenDatagramSocket()) != nullptr; },
           "\nQuorl------Create Send Socket Failed!\n"},
          {[&] { return (replySocket = network.OpenDatagramSocket()) != nullptr; },
           "\nQuorl------Create Receive Socket Failed!\n"},
          {[&] { return sendSocket->SetReuseAddress(); }, "\nQuorl------Set Send Socket Resuse Address Failed!\n"},
          {[&] { return replySocket->SetReuseAddress(); }, "\nQuorl------Set Receive Socket Resuse Address Failed!\n"},
          {[&] {
             return replySocket->Bind({local, room.ReplyPort()});
           },
           "\nQuorl------Bind Receive socket host Address Failed!\n"},
          {[&] {
             return sendSocket->Bind({local, 0});
           },
           "\nQuorl-----Bind Send socket with host Address Failed!\n"},
          {[&] { return sendSocket->SetMulticastInterface(local); }, "\nQuorl-----Can not support MultiCast!\n"},
          {[&] { return sendSocket->JoinGroup(room.group.address, local); },
           "\nQuorl-----Add send IP to Membership failed\n"},
          {[&] { return sendSocket->SetTimeToLive(MULTICAST_TTL); }, "\nQuorl-----Set Send Socket TTL Failed!\n"},
      });
}

SenderSockets::Probe SenderSockets::LookForAnotherSender() {
  std::shared_ptr<DatagramSocket> probe;
  std::shared_ptr<Event> interrupt;
  const uint32_t local = room.localInterface;
  const bool ready =
      RunSteps(machine.debug,
               {
                   {[&] { return (probe = machine.network.OpenDatagramSocket()) != nullptr; },
                    "\nQuorl-----Create Find Server Socket Failed!\n"},
                   {[&] { return probe->SetReuseAddress(); }, "\nQuorl-----Set Find socket Reuse address Failed!\n"},
                   {[&] {
                      return probe->Bind({local, room.group.port});
                    },
                    "\nQuorl-----Bind Find Socket with Host IP Failed!\n"},
                   {[&] { return probe->SetMulticastInterface(local); }, "\nQuorl-----Can not MultiCast!\n"},
                   {[&] { return probe->JoinGroup(room.group.address, local); },
                    "\nQuorl-----Add find socket address to Membership Failed\n"},
                   {[&] { return probe->SetTimeToLive(MULTICAST_TTL); }, "\nQuorl-----Set Find Socket TTL Failed!\n"},
                   {[&] { return (interrupt = machine.threads.MakeEvent()) != nullptr; },
                    "\nQuorl-----Create Find Socket Event Failed!\n"},
               });
  const Probe result = ready ? ListenOnGroup(*probe, *interrupt) : Probe::Failed;
  if (probe) probe->Close();
  return result;
}

SenderSockets::Probe SenderSockets::ListenOnGroup(DatagramSocket& probe, Event& interrupt) {
  // Three bytes are enough to know a datagram of the system; a longer one is cut to them.
  std::array<uint8_t, HEADER_SIZE> start{};
  const Received received = probe.Receive(start, 100ms, &interrupt);
  if (received.outcome == Received::Outcome::Failed) {
    machine.debug.Write("\nQuorl-----Find Socket Select Find Event Failed!\n");
    return Probe::Failed;
  }
  const bool busy =
      received.outcome == Received::Outcome::Datagram && HasMagic(std::span(start).first(received.length));
  if (busy) otherSender = received.from.address;
  if (busy) machine.debug.Write("\nQuorl----- Another server with same MultiAddress has Exist!\n");
  probe.LeaveGroup(room.group.address, room.localInterface);
  return busy ? Probe::Busy : Probe::Free;
}

bool SenderSockets::OpenReport() {
  const uint32_t local = room.localInterface;
  return RunSteps(machine.debug, {
                                     {[&] { return (reportSocket = machine.network.OpenDatagramSocket()) != nullptr; },
                                      "\nQuorl------Create Send Report Socket Failed!\n"},
                                     {[&] { return reportSocket->SetReuseAddress(); },
                                      "\nQuorl------Set Send report Socket Resuse Address Failed!\n"},
                                     {[&] {
                                        return reportSocket->Bind({local, 0});
                                      },
                                      "\nQuorl-----Bind Send report socket with host Address Failed!\n"},
                                     {[&] { return reportSocket->SetMulticastInterface(local); },
                                      "\nQuorl-----Send Report Socket Can not support MultiCast!\n"},
                                     {[&] { return reportSocket->JoinGroup(REPORT_GROUP.address, local); },
                                      "\nQuorl-----Add send report IP to Membership failed\n"},
                                     {[&] { return reportSocket->SetTimeToLive(MULTICAST_TTL); },
                                      "\nQuorl-----Set Send report Socket TTL Failed!\n"},
                                 });
}

}  // namespace quorl
