#include "cli/outcome/delivery.h"

#include <fmt/format.h>

#include "cli/show/units.h"

namespace quorl::cli {
namespace {

using Action = Verdict::Action;

/// Over for everyone, and some files could not be stored on this machine. The manifest tells which of the others are
/// whole.
bool IsPartly(const RoundEnd& end) {
  return end.announced && !end.stopped && end.state.failedFiles > 0;
}

/// Which kind of room has run out. Files have names beside their contents, of which many disks hold a fixed number.
std::string NoRoom(const RoomOnDisk& room) {
  if (room.filesFree && *room.filesFree < room.filesNeeded && room.bytesNeeded <= room.bytesFree) {
    return fmt::format("no room for the names of {} at most: the file system has {} left",
                       Count(room.filesNeeded, "file"),
                       *room.filesFree == 0 ? "no inodes" : Count(*room.filesFree, "inode"));
  }
  return fmt::format("no room on the disk: {} needed at most, {} free", FormatBytes(room.bytesNeeded),
                     FormatBytes(room.bytesFree));
}

Failure Incomplete(const RoundEnd& end) {
  QuorlReceiveState state = end.state;
  if (state.status == 0) state.status = end.status;
  const Exit code = ReceiverExit(state);
  const bool isFull = state.status == QUORL_STATUS_DISK_FULL;
  const std::string why = end.stopped         ? "the sender stopped it"
                          : isFull            ? fmt::format("{} (status {})", NoRoom(end.room), state.status)
                          : state.status != 0 ? fmt::format("{} (status {})", StatusInWords(state.status), state.status)
                                              : "the sender ended it before everything was here";
  Failure failure{code == Exit::Complete ? Exit::PeerLost : code, "nothing was received", why, {}};
  if (end.announced) {
    failure.what = fmt::format("the transfer is not complete, {} of {} stored", state.blocksStored,
                               Count(state.blocksExpected, "block"));
    failure.next.emplace_back("Nothing was moved, and what had been received is removed.");
  }
  failure.next.emplace_back(isFull ? "Make room there, or choose another directory with --to, then send again."
                                   : "Start \"quorl receive\" again, then send again.");
  return failure;
}

/// What it is that is kept, is told by AfterKeeping.
Verdict Kept(Failure failure) {
  failure.next.clear();
  return {Action::Keep, std::move(failure), {}};
}

Verdict NotVerified(std::vector<Difference> differences) {
  Failure failure{Exit::NotVerified,
                  "what arrived is not what was sent",
                  Count(differences.size(), "difference"),
                  {"Nothing was moved, and what had been received is removed."}};
  return {Action::Discard, std::move(failure), std::move(differences)};
}

}  // namespace

bool RoundEnd::IsComplete() const {
  return kind == Kind::Over && !stopped && status == 0 && ReceiverExit(state) == Exit::Complete;
}

Exit ReceiverExit(const QuorlReceiveState& state) {
  switch (state.status) {
    case 0: break;
    case QUORL_STATUS_DISK_FULL:
    case QUORL_STATUS_NOT_FIXED_DISK: return Exit::NoRoom;
    case QUORL_STATUS_FILE_UNWRITABLE:
    case QUORL_STATUS_PATH_TOO_LONG: return Exit::LocalFiles;
    case QUORL_STATUS_SENDER_LOST:
    case QUORL_STATUS_TIMED_OUT: return Exit::PeerLost;
    default: return Exit::Other;
  }
  if (state.complete != 0 && state.blocksMissing == 0 && state.failedFiles == 0) return Exit::Complete;
  return state.failedFiles != 0 ? Exit::Partly : Exit::PeerLost;
}

Verdict JudgeArrival(const RoundEnd& end, const Arrival& arrival, const JudgeRules& rules) {
  const bool isListed = arrival.manifest == Arrival::Listed::Well;
  if (end.isForOthers || (isListed && arrival.isForOthers)) return {Action::Ignore, {}, {}};
  if (!end.IsComplete() && !(isListed && IsPartly(end)))
    return rules.canKeep && arrival.isThere ? Kept(Incomplete(end)) : Verdict{Action::Discard, Incomplete(end), {}};
  if (!arrival.isThere)
    return {
        Action::Discard, Failure{Exit::LocalFiles, "what was received has vanished", "somebody removed it", {}}, {}};
  if (isListed) return {Action::Verify, {}, {}};
  const std::string manifest(MANIFEST_NAME);
  if (arrival.manifest == Arrival::Listed::Unusably) return NotVerified({{manifest, arrival.whyUnusable}});
  if (rules.hasKey) return NotVerified({{manifest, "is missing, and with --key-file nothing is taken without it"}});
  // Without a manifest there is still this: names that became one on this machine hold a mixture.
  if (arrival.files == end.state.files && arrival.isPlain) return {Action::Move, {}, {}};
  return NotVerified({{".", fmt::format("{} were announced, {} arrived under a name of their own",
                                        Count(end.state.files, "file"), arrival.files)}});
}

Verdict JudgeVerified(const RoundEnd& end, std::vector<Difference> differences, uint64_t right, uint64_t files,
                      const JudgeRules& rules) {
  if (differences.empty()) return {Action::Move, {}, {}};
  if (right == 0 || (rules.allOrNothing && !IsPartly(end))) return NotVerified(std::move(differences));
  if (!IsPartly(end)) {
    Failure failure{Exit::Partly,
                    fmt::format("{} of {} not what was sent", differences.size(),
                                files == 1 ? "1 file is" : Count(files, "file") + " are"),
                    "",
                    {"The others are verified and in their places."}};
    return {Action::Move, std::move(failure), std::move(differences)};
  }
  Failure failure{Exit::Partly,
                  fmt::format("{} of {} could not be stored here", differences.size(), Count(files, "file")),
                  end.state.status == QUORL_STATUS_DISK_FULL ? NoRoom(end.room) : "",
                  {"The others are verified and in their places."}};
  return {Action::Move, std::move(failure), std::move(differences)};
}

Failure AfterKeeping(Failure failure, uint64_t filesMoved, uint64_t filesKept, uint64_t bytesKept) {
  failure.next.clear();
  if (filesMoved > 0)
    failure.next.push_back(
        fmt::format("{} {} whole, verified and in place.", Count(filesMoved, "file"), filesMoved == 1 ? "is" : "are"));
  failure.next.push_back(
      filesKept > 0 ? fmt::format("{} of {} {} kept; the next sending of the same goes on from there.",
                                  FormatBytes(bytesKept), Count(filesKept, "file"), filesKept == 1 ? "is" : "are")
                    : "Nothing else is kept.");
  failure.next.emplace_back("Start \"quorl receive\" again, then send again.");
  return failure;
}

uint32_t VerdictOf(const std::optional<Failure>& failure, bool differs, bool taken) {
  if (!failure) return 0;
  if (differs || failure->code == Exit::NotVerified) return NOT_AS_SENT;
  if (taken) return NAMES_TAKEN;
  return failure->code == Exit::NoRoom ? uint32_t{QUORL_STATUS_DISK_FULL} : uint32_t{QUORL_STATUS_FILE_UNWRITABLE};
}

std::optional<Failure> JudgeMoved(const MoveCounts& counts, uint64_t files, const RoomOnDisk& room) {
  if (counts.taken > 0) {
    return Failure{Exit::LocalFiles,
                   fmt::format("{} of {} exist already", counts.taken, Count(files, "file")),
                   "nothing was moved, as --existing fail wants it",
                   {"Another --existing, or another directory with --to."}};
  }
  if (counts.refused > 0) {
    const Exit none = counts.hadNoRoom ? Exit::NoRoom : Exit::LocalFiles;
    return Failure{counts.moved == 0 ? none : Exit::Partly,
                   fmt::format("{} could not be moved to their places", Count(counts.refused, "name")),
                   counts.hadNoRoom ? NoRoom(room) : "",
                   {"They are not kept. Make room for their names, then send again."}};
  }
  if (!counts.synced) {
    return Failure{Exit::LocalFiles,
                   "the directory could not be brought to the disk",
                   "",
                   {"Everything is in its place, but a power failure may undo it."}};
  }
  return std::nullopt;
}

}  // namespace quorl::cli
