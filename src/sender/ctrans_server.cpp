#include "sender/ctrans_server.h"

#include <utility>

#include "files/selection.h"
#include "sender/sender_session.h"

namespace quorl {

CTransServer::CTransServer(const Machine& machine)
    : machine(machine), selection(std::make_shared<Selection>(this->machine)) {}

CTransServer::~CTransServer() = default;

uint32_t CTransServer::InitServer(QuorlWindow window, uint32_t groupAddress, uint32_t groupPort,
                                  uint32_t localInterface) {
  DeInitServer();
  const auto selected = std::make_shared<Selection>(*CurrentSelection());
  selected->Reset();
  ReplaceSelection(selected);

  std::shared_ptr<SenderSession> fresh, earlier;
  ExpectedReceivers whom;
  {
    const std::scoped_lock lock(mutex);
    const RoomAddress room = RoomAddress::From(groupAddress, groupPort, localInterface);
    const uint32_t bits = capabilities | (symbols ? KNOWS_SYMBOLS : 0);
    fresh = std::make_shared<SenderSession>(machine, window, room, profile, bits);
    whom = std::exchange(expected, {});
  }
  const bool open = fresh->Open();
  {
    const std::scoped_lock lock(mutex);
    earlier = std::exchange(session, fresh);
  }
  if (earlier) earlier->Close();
  return open && fresh->Collect(std::move(whom)) ? 1 : 0;
}

uint32_t CTransServer::DeInitServer() {
  if (const auto current = Session()) current->Close();
  return 1;
}

int32_t CTransServer::SetSelectFiles(const std::vector<std::string>& paths, const std::string& autoOpenName) {
  const auto changed = std::make_shared<Selection>(*CurrentSelection());
  const int32_t result = changed->SetSelectFiles(paths, autoOpenName, SelectsSorted(), Filter());
  ReplaceSelection(changed);
  return result;
}

uint32_t CTransServer::SetSubDirTrans(uint32_t flag) {
  const auto changed = std::make_shared<Selection>(*CurrentSelection());
  changed->SetSubDirTrans(flag);
  ReplaceSelection(changed);
  return 1;
}

uint32_t CTransServer::SetTargetPath(uint32_t folder, const std::string& path) {
  const std::scoped_lock lock(mutex);
  targetFolder = folder;
  targetPath = path;
  return 1;
}

uint32_t CTransServer::GetIsHasInvalidChar() {
  return CurrentSelection()->GetIsHasInvalidChar();
}

uint32_t CTransServer::StartSend() {
  TransferPlan plan;
  std::shared_ptr<SenderSession> current;
  {
    const std::scoped_lock lock(mutex);
    current = session;
    plan.lists = selection->Lists();
    plan.autoOpenName = selection->AutoOpenName();
    plan.targetFolder = targetFolder;
    plan.targetPath = targetPath;
    plan.rate = sendRate;
    plan.skipped = std::exchange(skipped, BlockRanges());
    plan.listener = std::exchange(listener, nullptr);
  }
  if (current) current->StartTransfer(std::move(plan));
  return 1;
}

uint32_t CTransServer::StopSend() {
  if (const auto current = Session()) current->StopTransfer();
  return 1;
}

uint32_t CTransServer::GetErrInfo(uint32_t* errInfoBuffer) {
  if (const auto current = Session()) return current->FillErrInfo(errInfoBuffer);
  errInfoBuffer[0] = 0;
  return 0;
}

void CTransServer::SetSendRate(uint32_t kilobitsPerSecond) {
  std::shared_ptr<SenderSession> current;
  {
    const std::scoped_lock lock(mutex);
    sendRate = kilobitsPerSecond;
    current = session;
  }
  if (current) current->ChangeRate(kilobitsPerSecond);
}

uint32_t CTransServer::GetReceivers(uint32_t* addresses, uint32_t capacity) {
  const auto current = Session();
  return current ? current->FillReceivers(addresses, capacity) : 0;
}

void CTransServer::SetProfile(Profile newProfile) {
  const std::scoped_lock lock(mutex);
  profile = newProfile;
}

void CTransServer::SetSymbols(bool use) {
  const std::scoped_lock lock(mutex);
  symbols = use;
}

void CTransServer::SetCapabilities(uint32_t bits) {
  const std::scoped_lock lock(mutex);
  capabilities = bits;
}

void CTransServer::SetExpectedReceivers(ExpectedReceivers receivers) {
  const std::scoped_lock lock(mutex);
  expected = std::move(receivers);
}

bool CTransServer::SendWord(std::span<const uint8_t> text) {
  const auto current = Session();
  return current && text.size() <= MAX_TEXT && current->SendWord(text);
}

std::optional<Correspondence::Received> CTransServer::TakeLetter() {
  const auto current = Session();
  return current ? current->TakeLetter() : std::nullopt;
}

void CTransServer::SetSkippedBlocks(BlockRanges blocks) {
  const std::scoped_lock lock(mutex);
  skipped = std::move(blocks);
}

void CTransServer::SetBlockListener(BlockListener next) {
  const std::scoped_lock lock(mutex);
  listener = std::move(next);
}

SendState CTransServer::GetState() {
  const auto current = Session();
  return current ? current->State() : SendState{};
}

std::vector<NamedCount> CTransServer::GetCounters() {
  const auto current = Session();
  return current ? current->ListCounters() : Counters().List(Role::Sender);
}

std::shared_ptr<SenderSession> CTransServer::Session() {
  const std::scoped_lock lock(mutex);
  return session;
}

// Files of one directory arrive in the same order on every run, where that is allowed.
bool CTransServer::SelectsSorted() {
  const std::scoped_lock lock(mutex);
  return profile == Profile::Robust;
}

PathFilter CTransServer::Filter() {
  const std::scoped_lock lock(mutex);
  return filter;
}

void CTransServer::SetSelectionFilter(PathFilter leavesOut) {
  const std::scoped_lock lock(mutex);
  filter = std::move(leavesOut);
}

ListRules CTransServer::SelectionRules(const std::vector<std::string>& paths, bool subDirTrans) {
  return RulesFor(paths, subDirTrans, SelectsSorted(), Filter());
}

std::shared_ptr<Selection> CTransServer::CurrentSelection() {
  const std::scoped_lock lock(mutex);
  return selection;
}

void CTransServer::ReplaceSelection(std::shared_ptr<Selection> changed) {
  const std::scoped_lock lock(mutex);
  selection = std::move(changed);
}

}  // namespace quorl
