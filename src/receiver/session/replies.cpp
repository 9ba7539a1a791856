#include "receiver/session/replies.h"

#include "protocol/datagrams.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

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
  if (!Send(Build(Answer{missingBlocks}))) machine.debug.Write("\nQuorl-----Send Answer Failed!\n");
}

bool Replies::SendFinish(uint16_t status, int copies) {
  const auto finish = Build(Finish{status});
  if (!Send(finish)) {
    machine.debug.Write("\nQuorl-----Client send finish Failed!\n");
    return false;
  }
  for (int copy = 1; copy < copies; ++copy) {
    machine.clock.Sleep(BETWEEN_COPIES);
    Send(finish);
  }
  return true;
}

}  // namespace quorl
