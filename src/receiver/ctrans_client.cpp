#include "receiver/ctrans_client.h"

#include <utility>

#include "receiver/session/receiver_session.h"

namespace quorl {

CTransClient::CTransClient(const Machine& machine)
    : machine(machine), mail(std::make_shared<Mail>(this->machine.clock)) {}

CTransClient::~CTransClient() = default;

uint32_t CTransClient::InitClient(QuorlWindow hostWindow, uint32_t groupAddress, uint32_t groupPort,
                                  uint32_t localInterface) {
  // One receiver at a time: whatever an earlier call left is closed first.
  if (const auto earlier = Exchange(nullptr)) earlier->CloseAll();
  std::shared_ptr<ReceiverSession> fresh;
  {
    const std::scoped_lock locked(lock);
    fresh = std::make_shared<ReceiverSession>(
        machine, hostWindow, RoomAddress::From(groupAddress, groupPort, localInterface), profile, receiveRoot, mail);
    fresh->SetHeld(std::exchange(held, BlockRanges()));
    fresh->SetStoreListener(std::exchange(storeListener, nullptr));
    mail->SetCapabilities(capabilities | (symbols ? KNOWS_SYMBOLS : 0));
  }
  if (!fresh->PrepareEvents()) return 0;
  const bool opened = fresh->OpenSockets();
  if (const auto other = Exchange(std::move(fresh))) other->CloseAll();
  return opened ? 1 : 0;
}

uint32_t CTransClient::DeInitClient() {
  if (const auto current = Session()) current->CloseAll();
  return 1;
}

uint32_t CTransClient::StartReceive() {
  std::shared_ptr<ReceiverSession> current;
  uint32_t address = 0;
  {
    const std::scoped_lock locked(lock);
    current = session;
    address = onlySender;
  }
  if (current) current->StartReceive(address);
  return 1;
}

uint32_t CTransClient::StopReceive() {
  return 1;
}

void CTransClient::SetProfile(Profile newProfile) {
  const std::scoped_lock locked(lock);
  profile = newProfile;
}

void CTransClient::SetSymbols(bool use) {
  const std::scoped_lock locked(lock);
  symbols = use;
}

void CTransClient::SetReceiveRoot(const std::string& drivePath) {
  const std::scoped_lock locked(lock);
  receiveRoot = drivePath;
  if (session) session->SetReceiveRoot(drivePath);
}

void CTransClient::SetSender(uint32_t address) {
  const std::scoped_lock locked(lock);
  onlySender = address;
}

void CTransClient::SetCapabilities(uint32_t bits) {
  const std::scoped_lock locked(lock);
  capabilities = bits;
}

void CTransClient::SetHeldBlocks(BlockRanges blocks) {
  const std::scoped_lock locked(lock);
  // For the session that listens, or for the one to come.
  if (session && !session->IsClosed()) {
    session->SetHeld(std::move(blocks));
  } else {
    held = std::move(blocks);
  }
}

void CTransClient::SetStoreListener(StoreListener listener) {
  const std::scoped_lock locked(lock);
  if (session && !session->IsClosed()) {
    session->SetStoreListener(std::move(listener));
  } else {
    storeListener = std::move(listener);
  }
}

std::vector<BlockRange> CTransClient::StoredBlocks() {
  const auto current = Session();
  return current ? current->StoredBlocks() : std::vector<BlockRange>();
}

ReceiveState CTransClient::GetState() {
  const auto current = Session();
  return current ? current->GetState() : ReceiveState{};
}

std::vector<NamedCount> CTransClient::GetCounters() {
  const auto current = Session();
  return current ? current->counters.List(Role::Receiver) : Counters().List(Role::Receiver);
}

std::shared_ptr<ReceiverSession> CTransClient::Session() {
  const std::scoped_lock locked(lock);
  return session;
}

std::shared_ptr<ReceiverSession> CTransClient::Exchange(std::shared_ptr<ReceiverSession> next) {
  const std::scoped_lock locked(lock);
  return std::exchange(session, std::move(next));
}

}  // namespace quorl
