// What a host needs beside the thirteen functions where the platform has no window messages and no drive letters.
#include <quorl/host.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

#include "api/guard.h"
#include "api/roles.h"
#include "files/survey.h"
#include "platform/real_machine.h"

using quorl::Client;
using quorl::Guarded;
using quorl::Server;

namespace {

constexpr uint32_t DONE = 1;
using quorl::FAILED;

// The bytes of each structure's first members, up to the last that it was born with. A host that leaves no room for
// them was not written against any version of it.
template <typename Structure>
constexpr size_t FIRST_SIZE = 0;
template <>
constexpr size_t FIRST_SIZE<QuorlReceiveState> = offsetof(QuorlReceiveState, askedTarget) + QUORL_NAME_SIZE;
template <>
constexpr size_t FIRST_SIZE<QuorlSendState> = offsetof(QuorlSendState, blocksResent) + sizeof(uint64_t);
template <>
constexpr size_t FIRST_SIZE<QuorlReceiverState> = offsetof(QuorlReceiverState, missing) + sizeof(uint32_t);
template <>
constexpr size_t FIRST_SIZE<QuorlText> = sizeof(QuorlText);
template <>
constexpr size_t FIRST_SIZE<QuorlBlocks> = sizeof(QuorlBlocks);
template <>
constexpr size_t FIRST_SIZE<QuorlCounter> = offsetof(QuorlCounter, value) + sizeof(uint64_t);

/// Fills as much of the host's structure as the host knows.
template <typename Structure>
void Fill(void* hosts, uint32_t size, Structure values) {
  values.size = size;
  std::memcpy(hosts, &values, std::min<size_t>(size, sizeof values));
}

template <typename Structure>
bool HasRoom(const Structure* hosts) {
  return hosts != nullptr && hosts->size >= FIRST_SIZE<Structure>;
}

/// Fills at most `capacity` elements of the host's array with what `valuesAt` gives for each place, and returns how
/// many places there are.
template <typename Structure, typename ValuesAt>
uint32_t FillArray(Structure* hosts, uint32_t capacity, size_t count, const ValuesAt& valuesAt) {
  if (hosts != nullptr && capacity != 0) {
    if (!HasRoom(hosts)) return 0;
    const uint32_t size = hosts->size;
    for (size_t i = 0; i < capacity && i < count; ++i)
      Fill(reinterpret_cast<char*>(hosts) + i * size, size, valuesAt(i));
  }
  return static_cast<uint32_t>(count);
}

/// What a host says; nothing when it is more than fits.
std::optional<std::span<const uint8_t>> TextOf(const void* text, uint32_t length) {
  if (length > quorl::MAX_TEXT || (text == nullptr && length != 0)) return std::nullopt;
  return std::span(static_cast<const uint8_t*>(text), length);
}

template <typename Said>
uint32_t FillText(QuorlText* hosts, const std::optional<Said>& said) {
  if (!said) return FAILED;
  QuorlText values{.address = said->address, .length = static_cast<uint32_t>(said->text.size())};
  std::copy(said->text.begin(), said->text.end(), values.text);
  Fill(hosts, hosts->size, values);
  return DONE;
}

std::optional<quorl::BlockRanges> RangesOf(const QuorlBlocks* blocks, uint32_t count) {
  if (count != 0 && !HasRoom(blocks)) return std::nullopt;
  std::vector<quorl::BlockRange> list;
  for (uint32_t i = 0; i < count; ++i) {
    QuorlBlocks one{};
    std::memcpy(&one, reinterpret_cast<const char*>(blocks) + size_t{i} * blocks->size, sizeof one);
    list.push_back({one.file, one.first, one.count, one.length});
  }
  quorl::BlockRanges ranges;
  if (!ranges.Take(list)) return std::nullopt;
  return ranges;
}

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
    case quorl::ReceiverState::Silent: return QUORL_RECEIVER_SILENT;
    case quorl::ReceiverState::Complete: return QUORL_RECEIVER_COMPLETE;
    case quorl::ReceiverState::Failed: return QUORL_RECEIVER_FAILED;
  }
  return QUORL_RECEIVER_WAITING;
}

uint32_t KindOf(quorl::Surveyed::Kind kind) {
  switch (kind) {
    case quorl::Surveyed::Kind::File: return QUORL_SURVEY_FILE;
    case quorl::Surveyed::Kind::Directory: return QUORL_SURVEY_DIRECTORY;
    case quorl::Surveyed::Kind::LeftOut: return QUORL_SURVEY_LEFT_OUT;
  }
  return QUORL_SURVEY_LEFT_OUT;
}

uint32_t ObstacleOf(quorl::Obstacle obstacle) {
  switch (obstacle) {
    case quorl::Obstacle::None: return QUORL_OBSTACLE_NONE;
    case quorl::Obstacle::Unreadable: return QUORL_OBSTACLE_UNREADABLE;
    case quorl::Obstacle::DeletedChar: return QUORL_OBSTACLE_DELETED_CHAR;
    case quorl::Obstacle::TooLong: return QUORL_OBSTACLE_TOO_LONG;
    case quorl::Obstacle::IllegalChar: return QUORL_OBSTACLE_ILLEGAL_CHAR;
    case quorl::Obstacle::NameTooLong: return QUORL_OBSTACLE_NAME_TOO_LONG;
    case quorl::Obstacle::TooManyBlocks: return QUORL_OBSTACLE_TOO_MANY_BLOCKS;
    case quorl::Obstacle::LinkToDirectory: return QUORL_OBSTACLE_LINK_TO_DIRECTORY;
    case quorl::Obstacle::BrokenLink: return QUORL_OBSTACLE_BROKEN_LINK;
    case quorl::Obstacle::Fifo: return QUORL_OBSTACLE_FIFO;
    case quorl::Obstacle::Socket: return QUORL_OBSTACLE_SOCKET;
    case quorl::Obstacle::Device: return QUORL_OBSTACLE_DEVICE;
    case quorl::Obstacle::NotAFile: return QUORL_OBSTACLE_NOT_A_FILE;
    case quorl::Obstacle::PathRefused: return QUORL_OBSTACLE_PATH_REFUSED;
    case quorl::Obstacle::Filtered: return QUORL_OBSTACLE_FILTERED;
  }
  return QUORL_OBSTACLE_NOT_A_FILE;
}

}  // namespace

QuorlWindow CreateHostWindow(QuorlWindowProc proc, void* context) {
  return Guarded(QuorlWindow{}, [&] { return quorl::CreateHostWindow(proc, context); });
}

void DestroyHostWindow(QuorlWindow window) {
  Guarded(FAILED, [&] {
    quorl::DestroyHostWindow(window);
    return DONE;
  });
}

uint32_t MapDrive(char letter, const char* directory) {
  return Guarded(FAILED, [&] { return directory != nullptr && quorl::MapDrive(letter, directory) ? DONE : FAILED; });
}

uint32_t SetSendRate(uint32_t kilobitsPerSecond) {
  return Guarded(DONE, [&] {
    Server().SetSendRate(kilobitsPerSecond);
    return DONE;
  });
}

uint32_t GetReceivers(uint32_t* addresses, uint32_t capacity) {
  return Guarded(FAILED, [&] { return Server().GetReceivers(addresses, addresses == nullptr ? 0 : capacity); });
}

uint32_t SetExpectedReceivers(const uint32_t* addresses, uint32_t count) {
  return Guarded(DONE, [&] {
    quorl::ExpectedReceivers expected{.count = count};
    if (addresses != nullptr) expected.addresses.assign(addresses, addresses + count);
    Server().SetExpectedReceivers(std::move(expected));
    return DONE;
  });
}

uint32_t SetProfile(uint32_t profile) {
  if (profile > 2) return FAILED;
  return Guarded(FAILED, [&] {
    const auto rules = profile == 0 ? quorl::Profile::Classic : quorl::Profile::Robust;
    Server().SetProfile(rules);
    Client().SetProfile(rules);
    Server().SetSymbols(profile == 2);
    Client().SetSymbols(profile == 2);
    return DONE;
  });
}

uint32_t SetReceiveRoot(const char* directory) {
  return Guarded(FAILED, [&] {
    if (directory == nullptr || *directory == '\0') {
      Client().SetReceiveRoot("");
      return DONE;
    }
    const auto drivePath = quorl::DrivePathOf(directory);
    if (!drivePath) return FAILED;
    Client().SetReceiveRoot(*drivePath);
    return DONE;
  });
}

uint32_t SetSender(uint32_t address) {
  return Guarded(DONE, [&] {
    Client().SetSender(address);
    return DONE;
  });
}

uint32_t GetReceiveState(QuorlReceiveState* state) {
  if (!HasRoom(state)) return FAILED;
  return Guarded(FAILED, [&] {
    const quorl::ReceiveState received = Client().GetState();
    QuorlReceiveState values{.phase = PhaseOf(received.phase),
                             .complete = received.complete ? 1u : 0u,
                             .files = received.files,
                             .failedFiles = received.failedFiles,
                             .status = received.firstFailure,
                             .blocksExpected = received.blocksExpected,
                             .blocksStored = received.blocksStored,
                             .blocksMissing = received.blocksMissing,
                             .senderAddress = received.senderAddress};
    received.currentName.copy(values.currentFile, sizeof values.currentFile - 1);
    received.askedTarget.copy(values.askedTarget, sizeof values.askedTarget - 1);
    values.otherSender = received.otherSender;
    values.isMaster = received.isMaster ? 1 : 0;
    values.blocksCame = received.blocksCame;
    values.blocksLost = received.blocksLost;
    values.bytesStored = received.bytesStored;
    values.senderCapabilities = received.senderCapabilities;
    if (received.underWay) {
      values.underWay = 1;
      values.underWayTotal = received.underWay->totalBlocks;
      values.underWaySent = received.underWay->sentBlocks;
    }
    Fill(state, state->size, values);
    return DONE;
  });
}

uint32_t GetSendState(QuorlSendState* state) {
  if (!HasRoom(state)) return FAILED;
  return Guarded(FAILED, [&] {
    const quorl::SendState sent = Server().GetState();
    Fill(state, state->size,
         QuorlSendState{.phase = PhaseOf(sent.phase),
                        .files = sent.fileCount,
                        .shrunkFiles = sent.shrunkFiles,
                        .blocksTotal = sent.totalBlocks,
                        .blocksSent = sent.blocksSent,
                        .blocksResent = sent.blocksResent,
                        .blocksSkipped = sent.blocksSkipped,
                        .otherSender = sent.otherSender});
    return DONE;
  });
}

uint32_t GetReceiverStates(QuorlReceiverState* rows, uint32_t capacity) {
  return Guarded(FAILED, [&] {
    const quorl::SendState sent = Server().GetState();
    return FillArray(rows, capacity, sent.receivers.size(), [&](size_t i) {
      const quorl::ReceiverReport& row = sent.receivers[i];
      return QuorlReceiverState{.address = row.address,
                                .state = StateOf(row.state),
                                .status = row.status,
                                .missing = row.missingBlocks.value_or(0),
                                .capabilities = row.capabilities};
    });
  });
}

uint32_t GetCounters(QuorlCounter* counters, uint32_t capacity) {
  return Guarded(FAILED, [&] {
    std::vector<quorl::NamedCount> list = Server().GetCounters();
    const std::vector<quorl::NamedCount> ofReceiver = Client().GetCounters();
    list.insert(list.end(), ofReceiver.begin(), ofReceiver.end());
    return FillArray(counters, capacity, list.size(),
                     [&](size_t i) { return QuorlCounter{.name = list[i].name, .value = list[i].value}; });
  });
}

uint32_t SetSelectionFilter(QuorlFilterProc proc, void* context) {
  return Guarded(DONE, [&] {
    quorl::PathFilter filter;
    if (proc != nullptr) {
      filter = [proc, context](const std::string& path, bool isDirectory) {
        return proc(context, path.c_str(), isDirectory ? 1 : 0) == 0;
      };
    }
    Server().SetSelectionFilter(std::move(filter));
    return DONE;
  });
}

uint32_t SetCapabilities(uint32_t capabilities) {
  return Guarded(DONE, [&] {
    Server().SetCapabilities(capabilities);
    Client().SetCapabilities(capabilities);
    return DONE;
  });
}

uint32_t SendWord(const void* text, uint32_t length) {
  const auto said = TextOf(text, length);
  return Guarded(FAILED, [&] { return said && Server().SendWord(*said) ? DONE : FAILED; });
}

uint32_t TakeWord(QuorlText* word) {
  return Guarded(FAILED, [&] { return HasRoom(word) ? FillText(word, Client().TakeWord()) : FAILED; });
}

uint32_t SendLetter(const void* text, uint32_t length) {
  const auto said = TextOf(text, length);
  return Guarded(FAILED, [&] { return said && Client().SendLetter(*said) ? DONE : FAILED; });
}

uint32_t GetLettersOnTheirWay() {
  return Guarded(FAILED, [&] { return Client().LettersOnTheirWay(); });
}

uint32_t TakeLetter(QuorlText* letter) {
  return Guarded(FAILED, [&] { return HasRoom(letter) ? FillText(letter, Server().TakeLetter()) : FAILED; });
}

uint32_t SetSkippedBlocks(const QuorlBlocks* blocks, uint32_t count) {
  return Guarded(FAILED, [&] {
    auto ranges = RangesOf(blocks, count);
    if (ranges) Server().SetSkippedBlocks(std::move(*ranges));
    return ranges ? DONE : FAILED;
  });
}

uint32_t SetBlockListener(QuorlBlockProc proc, void* context) {
  return Guarded(DONE, [&] {
    quorl::BlockListener listener;
    if (proc != nullptr) {
      listener = [=](uint32_t file, uint32_t block, std::span<const uint8_t> bytes) {
        proc(context, file, block, bytes.data(), static_cast<uint32_t>(bytes.size()));
      };
    }
    Server().SetBlockListener(std::move(listener));
    return DONE;
  });
}

uint32_t SetHeldBlocks(const QuorlBlocks* blocks, uint32_t count) {
  return Guarded(FAILED, [&] {
    auto ranges = RangesOf(blocks, count);
    if (ranges) Client().SetHeldBlocks(std::move(*ranges));
    return ranges ? DONE : FAILED;
  });
}

uint32_t SetStoreListener(QuorlStoreProc proc, void* context) {
  return Guarded(DONE, [&] {
    quorl::StoreListener listener;
    if (proc != nullptr) {
      listener = [=](uint32_t file, const std::string& name, uint32_t first, std::span<const uint8_t> bytes) {
        proc(context, file, name.c_str(), first, bytes.data(), static_cast<uint32_t>(bytes.size()));
      };
    }
    Client().SetStoreListener(std::move(listener));
    return DONE;
  });
}

uint32_t GetStoredBlocks(QuorlBlocks* blocks, uint32_t capacity) {
  return Guarded(FAILED, [&] {
    const std::vector<quorl::BlockRange> stored = Client().StoredBlocks();
    return FillArray(blocks, capacity, stored.size(), [&](size_t i) {
      return QuorlBlocks{
          .file = stored[i].file, .first = stored[i].first, .count = stored[i].count, .length = stored[i].length};
    });
  });
}

uint32_t SurveySelection(const char* const* paths, uint32_t count, uint32_t subDirTrans, QuorlSurveyProc proc,
                         void* context) {
  if (proc == nullptr || (paths == nullptr && count != 0)) return FAILED;
  const auto tell = [&](const quorl::Surveyed& found) {
    const QuorlSurveyEntry entry{.size = sizeof entry,
                                 .kind = KindOf(found.kind),
                                 .obstacle = ObstacleOf(found.obstacle),
                                 .length = found.length,
                                 .blocks = found.blocks,
                                 .path = found.path.c_str(),
                                 .leaf = found.leaf.c_str(),
                                 .name = found.name.c_str()};
    proc(context, &entry);
  };
  return Guarded(FAILED, [&] {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < count; ++i) texts.emplace_back(paths[i] == nullptr ? "" : paths[i]);
    quorl::SurveySelection(quorl::RealMachine(), texts, Server().SelectionRules(texts, subDirTrans != 0), tell);
    return DONE;
  });
}
