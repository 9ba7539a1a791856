#include "protocol/receiver_sockets.h"

#include "protocol/set_up_steps.h"

namespace quorl {

namespace {

// A heartbeat is seven bytes and only the latest matters.
constexpr size_t REPORT_BUFFER_BYTES = 512;

}  // namespace

ReceiverSockets::SetUp ReceiverSockets::Open() {
  if (!OpenData()) {
    CloseData();
    machine.network.Stop();
    return SetUp::Released;
  }
  return JoinDataGroup() && OpenReport() ? SetUp::Ready : SetUp::TearDown;
}

void ReceiverSockets::CloseData() {
  if (dataSocket) dataSocket->Close();
}

void ReceiverSockets::CloseReport() {
  if (reportSocket) reportSocket->Close();
}

void ReceiverSockets::CloseMail() {
  if (mailSocket) mailSocket->Close();
}

bool ReceiverSockets::OpenMail() {
  mailSocket = machine.network.OpenDatagramSocket();
  return mailSocket && mailSocket->Bind({room.localInterface, 0});
}

bool ReceiverSockets::OpenData() {
  return RunSteps(machine.debug, {
                                     {[&] { return machine.network.Start(); }, "\n@@-----MtftpSocket startup failed\n"},
                                     {[&] { return (dataSocket = machine.network.OpenDatagramSocket()) != nullptr; },
                                      "\n@@-----Create socket failed\n"},
                                     {[&] { return dataSocket->SetReuseAddress(); }, "\n@@-----setsockeopt failed\n"},
                                 });
}

bool ReceiverSockets::JoinDataGroup() {
  const uint32_t local = room.localInterface;
  return RunSteps(machine.debug,
                  {
                      {[&] {
                         return dataSocket->Bind({local, room.group.port});
                       },
                       "\n@@-----Bind socket with sockaddr_in failed\n"},
                      // The system may grant less; the transfer then only repairs more.
                      {[&] { return dataSocket->SetReceiveBuffer(dataBuffer), true; }, ""},
                      {[&] { return dataSocket->SetMulticastInterface(local); }, "\n@@-----setsockeopt failed\n"},
                      {[&] { return dataSocket->JoinGroup(room.group.address, local); },
                       "\n@@-----setsockopt add membership failed\n"},
                      {[&] { return dataSocket->SetTimeToLive(MULTICAST_TTL); }, "\n@@-----setsockopt TTL failed\n"},
                  });
}

bool ReceiverSockets::OpenReport() {
  const uint32_t local = room.localInterface;
  return RunSteps(machine.debug, {
                                     {[&] { return (reportSocket = machine.network.OpenDatagramSocket()) != nullptr; },
                                      "\nQuorl------Create Receive Report Socket Failed!\n"},
                                     {[&] { return reportSocket->SetReuseAddress(); },
                                      "\nQuorl------Set Receive report Socket Resuse Address Failed!\n"},
                                     {[&] {
                                        return reportSocket->Bind({local, REPORT_GROUP.port});
                                      },
                                      "\nQuorl-----Bind Receive report socket with host Address Failed!\n"},
                                     {[&] { return reportSocket->SetMulticastInterface(local); },
                                      "\nQuorl-----Receive Report Socket Can not support MultiCast!\n"},
                                     {[&] { return reportSocket->JoinGroup(REPORT_GROUP.address, local); },
                                      "\nQuorl-----Add Receive report IP to Membership failed\n"},
                                     {[&] { return reportSocket->SetTimeToLive(MULTICAST_TTL); },
                                      "\nQuorl-----Set Receive report Socket TTL Failed!\n"},
                                     {[&] { return reportSocket->SetReceiveBuffer(REPORT_BUFFER_BYTES); },
                                      "\nQuorl-----Set Receive report Socket Buffer Failed!\n"},
                                     {[&] { return reportSocket->SetNonBlocking(); },
                                      "\nQuorl-----Set Receive report WSAAsyncSelect Failed!\n"},
                                 });
}

}  // namespace quorl
