#include "sim/room/room.h"

#include <algorithm>

#include "protocol/endpoints.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint32_t SENDER_ADDRESS = Ipv4(10, 0, 0, 1);
constexpr uint32_t LITERAL_TARGET = QUORL_TARGET_IS_PATH;

uint32_t ReceiverAddress(size_t index) {
  return Ipv4(10, 0, static_cast<uint8_t>(1 + index / 200), static_cast<uint8_t>(1 + index % 200));
}

bool IsComplete(const RecordedMessage& message) {
  return message.number == WM_TRANS_STATUS && message.wParam == QUORL_STATUS_DONE && message.lParam != 0;
}

}  // namespace

Room::Room(const RoomOptions& options)
    : options(options), world(options.seed), sender(world.AddMachine("sender", SENDER_ADDRESS)) {
  for (size_t index = 0; index < options.receivers; ++index) {
    SimMachine& machine = world.AddMachine("receiver" + std::to_string(index), ReceiverAddress(index));
    receivers.push_back({&machine, std::make_unique<CTransClient>(machine.Seam())});
    receivers.back().client->SetProfile(options.receiverProfile);
    receivers.back().client->SetCapabilities(options.capabilities);
    receivers.back().client->SetSymbols(options.symbols);
    receivers.back().host.MakeWindow(machine);
  }
  server = std::make_unique<CTransServer>(sender.Seam());
  server->SetProfile(options.senderProfile);
  server->SetCapabilities(options.capabilities);
  server->SetSymbols(options.symbols);
  senderHost.MakeWindow(sender);
  sender.Disk().MakeDirectory(SOURCE);
}

/// In the place of the former one, if there was one.
void Room::Host::MakeWindow(SimMachine& machine) {
  if (window != nullptr) machine.DestroyWindow(window);
  window = machine.MakeWindow(procedure);
}

void Room::HandleMessages(size_t index, WindowProcedure procedure) {
  Place& place = receivers.at(index);
  place.host.procedure = std::move(procedure);
  place.host.MakeWindow(*place.machine);
}

void Room::HandleSenderMessages(WindowProcedure procedure) {
  senderHost.procedure = std::move(procedure);
  senderHost.MakeWindow(sender);
}

void Room::WriteFile(const std::string& name, uint64_t size) {
  uint64_t content = Mix(options.seed + replacements);
  for (const char character : name) content = Mix(content + static_cast<uint8_t>(character));
  for (SimDisk* disk : {&sender.Disk(), &originals}) disk->WriteSynthetic(SOURCE + ("\\" + name), size, content);
}

void Room::File(const std::string& name, uint64_t size) {
  WriteFile(name, size);
  names.push_back(name);
}

void Room::ReplaceFiles() {
  ++replacements;
  for (const std::string& name : names) WriteFile(name, originals.Length(SOURCE + ("\\" + name)).value());
}

bool Room::StartReceivers() {
  bool started = true;
  for (size_t index = 0; index < receivers.size(); ++index) started = StartReceiver(index) && started;
  return started;
}

void Room::ConfineReceivers() {
  confined = true;
  for (const Place& place : receivers) {
    place.machine->Disk().MakeDirectory(TARGET);
    place.client->SetReceiveRoot(TARGET);
  }
}

bool Room::RestartReceiver(size_t index) {
  Place& place = receivers.at(index);
  world.RunUntil([&] { return place.machine->RunningThreads() == 0; }, Duration::zero());
  place.client.reset();
  place.machine->PowerOn();
  place.client = std::make_unique<CTransClient>(place.machine->Seam());
  place.client->SetProfile(options.receiverProfile);
  place.client->SetCapabilities(options.capabilities);
  place.client->SetSymbols(options.symbols);
  if (confined) place.client->SetReceiveRoot(TARGET);
  if (place.host.procedure) place.host.MakeWindow(*place.machine);
  return StartReceiver(index);
}

void Room::RestartSender() {
  world.RunUntil([&] { return sender.RunningThreads() == 0; }, Duration::zero());
  server.reset();
  sender.PowerOn();
  server = std::make_unique<CTransServer>(sender.Seam());
  server->SetProfile(options.senderProfile);
  server->SetCapabilities(options.capabilities);
  server->SetSymbols(options.symbols);
  if (senderHost.procedure) senderHost.MakeWindow(sender);
}

bool Room::StartReceiver(size_t index) {
  ExpectTransfer(index);
  Place& place = receivers.at(index);
  bool started = false;
  place.machine->Call([&] {
    started = place.client->InitClient(place.host.window, 0, 0, place.machine->Address()) == 1;
    if (started) place.client->StartReceive();
  });
  return started;
}

std::vector<std::string> Room::SourcePaths() const {
  std::vector<std::string> paths;
  const auto entries = sender.Disk().Entries(SOURCE).value();
  for (const DirectoryEntry& entry : entries) paths.push_back(SOURCE + ("\\" + entry.name));
  return paths;
}

bool Room::Send() {
  bool started = false;
  sender.Call([&] {
    if (server->InitServer(senderHost.window, 0, 0, sender.Address()) != 1) return;
    server->SetSubDirTrans(1);
    server->SetTargetPath(LITERAL_TARGET, TARGET);
    if (server->SetSelectFiles(SourcePaths(), options.autoOpenName) != 1) return;
    server->StartSend();
    started = true;
  });
  return started;
}

void Room::SendAgain() {
  sender.Call([&] { server->StartSend(); });
}

void Room::ExpectTransfer(size_t index) {
  receivers.at(index).firstMessage = receivers.at(index).machine->Messages().size();
}

bool Room::RunUntilQuiet(Duration limit) {
  const Moment deadline = world.Now() + limit;
  const auto isQuiet = [&] {
    for (size_t index = 0; index < receivers.size(); ++index)
      if (!IsReceiverThrough(index)) return false;
    return IsSenderThrough();
  };
  while (!isQuiet()) {
    if (world.Now() >= deadline) return false;
    world.RunFor(std::min<Duration>(50ms, deadline - world.Now()));
  }
  world.RunFor(1s);
  return true;
}

bool Room::IsSenderThrough() {
  return sender.IsOff() || server->GetState().phase == SendPhase::Ended;
}

bool Room::IsReceiverThrough(size_t index) {
  if (Receiver(index).RunningThreads() == 0) return true;
  const ReceivePhase phase = Client(index).GetState().phase;
  return phase == ReceivePhase::Complete || phase == ReceivePhase::Failed || phase == ReceivePhase::Stopped;
}

bool Room::TreesIdentical(size_t index) const {
  return receivers.at(index).machine->Disk().SameTree(TARGET, sender.Disk(), SOURCE);
}

bool Room::HoldsAllFiles(size_t index) const {
  const SimDisk& disk = receivers.at(index).machine->Disk();
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    return disk.SameTree(TARGET + ("\\" + name), originals, SOURCE + ("\\" + name));
  });
}

bool Room::WasToldComplete(size_t index) const {
  const auto& messages = receivers.at(index).machine->Messages();
  const auto first = messages.begin() + static_cast<std::ptrdiff_t>(receivers.at(index).firstMessage);
  return std::any_of(first, messages.end(), IsComplete);
}

std::map<size_t, uint32_t> Room::FailedReceivers() {
  std::vector<uint32_t> buffer(401);
  server->GetErrInfo(buffer.data());
  std::map<size_t, uint32_t> failed;
  for (size_t row = 0; row < buffer[0]; ++row) {
    const auto isIt = [&](const Place& place) { return place.machine->Address() == buffer[1 + 2 * row]; };
    const auto receiver = std::find_if(receivers.begin(), receivers.end(), isIt);
    failed.emplace(receiver - receivers.begin(), buffer[2 + 2 * row]);
  }
  return failed;
}

std::vector<uint32_t> Room::Statuses(const SimMachine& machine) {
  std::vector<uint32_t> statuses;
  for (const RecordedMessage& message : machine.Messages())
    if (message.number == WM_TRANS_STATUS) statuses.push_back(static_cast<uint32_t>(message.wParam));
  return statuses;
}

}  // namespace quorl::sim
