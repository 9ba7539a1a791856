#include "receiver/replies.h"

#include "protocol/datagrams.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr int ROBUST_COPIES = 3;
constexpr Duration BETWEEN_COPIES = 10ms;

}  // namespace

bool Replies::SendClient() {
  const uint8_t platform = machine.shell.IsNtPlatform() ? 1 : 0;
  if (Send(Build(Client{platform}))) return true;
  machine.debug.Write("\nQuorl-----Send client failed!\n");
  return false;
}

void Replies::SendAck(LostBlock wanted) {
  if (Send(Build(Ack{wanted.file, wanted.block}))) {
    counters.Add(Count::RepairsAsked);
  } else {
    machine.debug.Write("\nQuorl-----Client Send ACK Failed!\n");
  }
}

void Replies::SendAnswer(uint32_t missingBlocks) {
  if (!SendSurely(Build(Answer{missingBlocks}))) machine.debug.Write("\nQuorl-----Send Answer Failed!\n");
}

bool Replies::SendFinish(uint16_t status) {
  if (SendSurely(Build(Finish{status}))) return true;
  machine.debug.Write("\nQuorl-----Client send finish Failed!\n");
  return false;
}

// Nobody asks again for these datagrams when they are lost.
bool Replies::SendSurely(std::span<const uint8_t> datagram) {
  if (!Send(datagram)) return false;
  if (profile == Profile::Classic) return true;
  for (int copy = 1; copy < ROBUST_COPIES; ++copy) {
    machine.clock.Sleep(BETWEEN_COPIES);
    Send(datagram);
  }
  return true;
}

}  // namespace quorl
