// What a receiver does with what has arrived, and what it ends with: decided on plain values, carried out by
// transfer/delivery.
#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/outcome/exits.h"
#include "cli/talk/messages.h"

namespace quorl::cli {

/// Free room on the disk that is received to, and the room that is still needed of it.
struct RoomOnDisk {
  uint64_t bytesNeeded = 0;  ///< At most.
  uint64_t bytesFree = 0;
  uint64_t filesNeeded = 0;           ///< At most.
  std::optional<uint64_t> filesFree;  ///< Nothing where files are not counted.
};

/// How it ended to wait for a transfer and to receive it.
struct RoundEnd {
  enum class Kind {
    Over,         ///< The transfer is over, well or not.
    TimedOut,     ///< None was announced in time.
    Interrupted,  ///< By a signal.
    Deaf,         ///< The sockets could not be opened.
    Moved,        ///< The network of this machine has changed meanwhile.
  };
  Kind kind = Kind::Over;
  bool announced = false;
  uint32_t announcements = 0;  ///< Of this transfer, and of those before it that were begun anew.
  bool stopped = false;        ///< By the sender.
  uint32_t status = 0;         ///< The QUORL_STATUS_ that ended it.
  std::string suggestedPath;   ///< What the sender suggests to open; empty: nothing.
  int signal = 0;
  QuorlReceiveState state{};
  std::optional<About> about;          ///< What the sender said of it before; nothing of an older one.
  bool isForOthers = false;            ///< As it said, and nothing of it was taken.
  bool isTooLate = false;              ///< It was agreed on before this receiver was there; the same.
  std::map<uint32_t, Digest> digests;  ///< That it said of files that were out.
  std::vector<std::string> changed;    ///< Files that the sender says have changed while they were sent.
  std::vector<QuorlBlocks> stored;     ///< Blocks that are on the disk, where it is not complete.
  RoomOnDisk room;
  uint64_t strangers = 0;  ///< Datagrams from others than the sender, dropped.
  uint64_t overflows = 0;  ///< Datagrams that this machine had no room for.
  uint64_t fragments = 0;  ///< Pieces of datagrams that it had no memory for.
  std::chrono::nanoseconds elapsed{0};

  /// Every block of every file is on the disk.
  bool IsComplete() const;
};

/// How a receiver's own transfer ended, by its state after the end.
Exit ReceiverExit(const QuorlReceiveState& state);

/// What lies in staging after the end.
struct Arrival {
  enum class Listed { Nowhere, Unusably, Well };
  bool isThere = false;  ///< The staging directory.
  Listed manifest = Listed::Nowhere;
  std::string whyUnusable;
  bool isForOthers = false;  ///< The manifest names receivers, and not this one.
  uint64_t files = 0;        ///< Found, each under a name of its own.
  bool isPlain = true;       ///< There is nothing but files and directories, and all of it could be read.
};

/// What is to be done, and what the command says and ends with if that is the last of it.
struct Verdict {
  enum class Action {
    Ignore,   ///< It was for others: nothing of it is kept, and the receiver goes on waiting.
    Discard,  ///< Nothing of it is kept.
    Keep,     ///< What is whole and right goes to its names, and the next sending goes on from the rest.
    Verify,   ///< The manifest has the next word.
    Move,     ///< It goes to its names, as far as it is whole.
  };
  Action action = Action::Discard;
  std::optional<Failure> failure;
  std::vector<Difference> differences;
};

struct JudgeRules {
  bool hasKey = false;        ///< Nothing is taken without a manifest that is sealed with it.
  bool canKeep = false;       ///< A catalogue tells what a broken transfer was to bring.
  bool allOrNothing = false;  ///< One file that is not right spoils the others.
};
Verdict JudgeArrival(const RoundEnd& end, const Arrival& arrival, const JudgeRules& rules);

/// After the comparison with the manifest. `right`: files that are as it has them; `files`: that it has.
Verdict JudgeVerified(const RoundEnd& end, std::vector<Difference> differences, uint64_t right, uint64_t files,
                      const JudgeRules& rules);

/// The same failure, after what could be saved of a broken transfer has been.
Failure AfterKeeping(Failure failure, uint64_t filesMoved, uint64_t filesKept, uint64_t bytesKept);

/// What the sender is told of it; 0: all is well.
uint32_t VerdictOf(const std::optional<Failure>& failure, bool differs, bool taken);

/// How many names became what when they were to be moved.
struct MoveCounts {
  size_t moved = 0;
  size_t taken = 0;    ///< Had a name that was taken, so that nothing was moved.
  size_t refused = 0;  ///< Could not be moved.
  bool synced = true;
  bool hadNoRoom = false;  ///< Why some were refused.
};
std::optional<Failure> JudgeMoved(const MoveCounts& counts, uint64_t files, const RoomOnDisk& room);

}  // namespace quorl::cli
