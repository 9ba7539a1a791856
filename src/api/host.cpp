// What a host needs beside the thirteen functions where the platform has no window messages and no drive letters.
#include <quorl/host.h>

#include "api/roles.h"
#include "platform/real_machine.h"

namespace {

uint32_t PhaseOf(quorl::SendPhase phase) {
  switch (phase) {
    case quorl::SendPhase::Idle:
    case quorl::SendPhase::Ready: return QUORL_PHASE_IDLE;
    case quorl::SendPhase::Announcing:
    case quorl::SendPhase::Streaming: return QUORL_PHASE_STREAMING;
    case quorl::SendPhase::Finishing: return QUORL_PHASE_FINISHING;
    case quorl::SendPhase::Repairing: return QUORL_PHASE_REPAIRING;
    case quorl::SendPhase::Ended: return QUORL_PHASE_OVER;
  }
  return QUORL_PHASE_IDLE;
}

uint32_t PhaseOf(quorl::ReceivePhase phase) {
  switch (phase) {
    case quorl::ReceivePhase::Idle: return QUORL_PHASE_IDLE;
    case quorl::ReceivePhase::Receiving: return QUORL_PHASE_STREAMING;
    case quorl::ReceivePhase::Repairing: return QUORL_PHASE_REPAIRING;
    case quorl::ReceivePhase::Complete:
    case quorl::ReceivePhase::Failed:
    case quorl::ReceivePhase::Stopped: return QUORL_PHASE_OVER;
  }
  return QUORL_PHASE_IDLE;
}

uint32_t StateOf(quorl::ReceiverState state) {
  switch (state) {
    case quorl::ReceiverState::Listening:
    case quorl::ReceiverState::Waiting: return QUORL_RECEIVER_WAITING;
    case quorl::ReceiverState::Master: return QUORL_RECEIVER_MASTER;
    case quorl::ReceiverState::Complete: return QUORL_RECEIVER_COMPLETE;
    case quorl::ReceiverState::Failed: return QUORL_RECEIVER_FAILED;
  }
  return QUORL_RECEIVER_WAITING;
}

}  // namespace

QuorlWindow CreateHostWindow(QuorlWindowProc proc, void* context) {
  return quorl::CreateHostWindow(proc, context);
}

void DestroyHostWindow(QuorlWindow window) {
  quorl::DestroyHostWindow(window);
}

uint32_t MapDrive(char letter, const char* directory) {
  return directory != nullptr && quorl::MapDrive(letter, directory) ? 1 : 0;
}

uint32_t SetSendRate(uint32_t kilobitsPerSecond) {
  quorl::Server().SetSendRate(kilobitsPerSecond);
  return 1;
}

uint32_t GetReceivers(uint32_t* addresses, uint32_t capacity) {
  return quorl::Server().GetReceivers(addresses, addresses == nullptr ? 0 : capacity);
}

uint32_t SetProfile(uint32_t profile) {
  if (profile > 1) return 0;
  const auto rules = profile == 0 ? quorl::Profile::Classic : quorl::Profile::Robust;
  quorl::Server().SetProfile(rules);
  quorl::Client().SetProfile(rules);
  return 1;
}

uint32_t SetReceiveRoot(const char* directory) {
  if (directory == nullptr || *directory == '\0') {
    quorl::Client().SetReceiveRoot("");
    return 1;
  }
  const auto drivePath = quorl::DrivePathOf(directory);
  if (!drivePath) return 0;
  quorl::Client().SetReceiveRoot(*drivePath);
  return 1;
}

uint32_t SetSender(uint32_t address) {
  quorl::Client().SetSender(address);
  return 1;
}

uint32_t GetReceiveState(QuorlReceiveState* state) {
  if (state == nullptr) return 0;
  const quorl::ReceiveState received = quorl::Client().GetState();
  *state = {PhaseOf(received.phase), received.complete ? 1u : 0u,
            received.files,          received.failedFiles,
            received.firstFailure,   received.blocksExpected,
            received.blocksStored,   received.blocksExpected - received.blocksStored,
            received.senderAddress,  {}};
  received.currentName.copy(state->currentFile, sizeof state->currentFile - 1);
  received.askedTarget.copy(state->askedTarget, sizeof state->askedTarget - 1);
  return 1;
}

uint32_t GetSendState(QuorlSendState* state) {
  if (state == nullptr) return 0;
  const quorl::SendState sent = quorl::Server().GetState();
  *state = {PhaseOf(sent.phase), sent.fileCount,    sent.totalBlocks,
            sent.blocksSent,     sent.blocksResent, sent.shrunkFiles};
  return 1;
}

uint32_t GetReceiverStates(QuorlReceiverState* rows, uint32_t capacity) {
  const quorl::SendState sent = quorl::Server().GetState();
  for (uint32_t i = 0; rows != nullptr && i < capacity && i < sent.receivers.size(); ++i) {
    const quorl::ReceiverReport& row = sent.receivers[i];
    rows[i] = {row.address, StateOf(row.state), row.status, row.missingBlocks.value_or(0)};
  }
  return static_cast<uint32_t>(sent.receivers.size());
}

uint32_t GetCounters(QuorlCounter* counters, uint32_t capacity) {
  std::vector<quorl::NamedCount> list = quorl::Server().GetCounters();
  const std::vector<quorl::NamedCount> ofReceiver = quorl::Client().GetCounters();
  list.insert(list.end(), ofReceiver.begin(), ofReceiver.end());
  for (uint32_t i = 0; counters != nullptr && i < capacity && i < list.size(); ++i)
    counters[i] = {list[i].name, list[i].value};
  return static_cast<uint32_t>(list.size());
}
