#include "sim/room/wild_host.h"

#include <array>

namespace quorl::sim {

namespace {

constexpr uint32_t LITERAL_TARGET = QUORL_TARGET_IS_PATH;
constexpr int THREADS = 2;
constexpr Duration LONGEST_CALL = std::chrono::seconds(30);

}  // namespace

WildHost::WildHost(Room& room, std::optional<size_t> receiver, uint64_t seed)
    : room(room), receiver(receiver), seed(seed), machine(receiver ? room.Receiver(*receiver) : room.Sender()) {}

void WildHost::Begin() {
  for (int i = 0; i < THREADS; ++i)
    machine.Spawn("wild host", [this, own = Mix(seed + static_cast<uint64_t>(i))] { Run(own); });
  running = THREADS;
}

void WildHost::End() {
  over = true;
  room.World().RunUntil([this] { return running == 0; }, LONGEST_CALL);
}

void WildHost::Run(uint64_t ownSeed) {
  Random random(ownSeed);
  const uint64_t longestPause = 1 + random.Below(1500);
  while (!over) {
    receiver ? CallReceiver(random) : CallSender(random);
    machine.Seam().clock.Sleep(std::chrono::milliseconds(random.Below(longestPause)));
  }
  --running;
}

void WildHost::CallReceiver(Random& random) {
  CTransClient& client = room.Client(*receiver);
  switch (random.Below(8)) {
    case 0:
    case 1: client.InitClient(room.ReceiverWindow(*receiver), 0, 0, machine.Address()); break;
    case 2:
    case 3:
    case 4: client.StartReceive(); break;
    case 5: client.StopReceive(); break;
    case 6: client.GetState(), client.GetCounters(); break;
    default: client.DeInitClient(); break;
  }
}

void WildHost::CallSender(Random& random) {
  CTransServer& server = room.Server();
  std::array<uint32_t, 401> buffer{};
  switch (random.Below(12)) {
    case 0: server.InitServer(room.SenderWindow(), 0, 0, machine.Address()); break;
    case 1:
    case 2: server.SetSelectFiles(room.SourcePaths(), ""); break;
    case 3:
    case 4: server.StartSend(); break;
    case 5: server.SetSubDirTrans(1); break;
    case 6: server.SetTargetPath(LITERAL_TARGET, Room::TARGET); break;
    case 7: server.GetErrInfo(buffer.data()); break;
    case 8: server.GetReceivers(buffer.data(), static_cast<uint32_t>(buffer.size())); break;
    case 9: server.GetIsHasInvalidChar(); break;
    case 10: server.StopSend(); break;
    default: random.Below(4) == 0 ? void(server.DeInitServer()) : void(server.GetState()), server.GetCounters(); break;
  }
}

}  // namespace quorl::sim
