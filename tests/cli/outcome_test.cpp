// What the command delivers, keeps, discards and ends with, on plain data: rare ends beside the usual ones.
#include <gtest/gtest.h>

#include "cli/outcome/delivery.h"
#include "cli/outcome/send_tally.h"

namespace quorl::cli {
namespace {

using Action = Verdict::Action;
using Listed = Arrival::Listed;

/// Three files have been announced and stored, and the sender has ended it.
RoundEnd Whole() {
  RoundEnd end;
  end.announced = true;
  end.state = {.complete = 1, .files = 3, .blocksExpected = 9, .blocksStored = 9};
  return end;
}

/// Blocks are missing, and `status` ended it.
RoundEnd Missing(uint32_t status = 0) {
  RoundEnd end = Whole();
  end.status = status;
  end.state = {.files = 3, .blocksExpected = 9, .blocksStored = 6, .blocksMissing = 3};
  return end;
}

/// One file was refused by the disk.
RoundEnd OneRefused() {
  RoundEnd end = Missing();
  end.state.failedFiles = 1;
  end.state.status = QUORL_STATUS_FILE_UNWRITABLE;
  return end;
}

RoundEnd Stopped(RoundEnd end) {
  end.stopped = true;
  return end;
}

RoundEnd Unannounced(uint32_t status) {
  RoundEnd end;
  end.status = status;
  return end;
}

const Arrival PLAIN{.isThere = true, .files = 3};
const Arrival LISTED{.isThere = true, .manifest = Listed::Well, .files = 4};
const Arrival GONE{};

Arrival With(Arrival arrival, void (*change)(Arrival&)) {
  change(arrival);
  return arrival;
}

struct DeliveryCase {
  const char* what;
  RoundEnd end;
  Arrival arrival;
  Action action;
  Exit exit;
  size_t differing = 0;  ///< From the manifest; the others of three are right.
  MoveCounts moved = {.moved = 3};
  JudgeRules rules = {};
};

const Arrival FOR_OTHERS = With(LISTED, [](Arrival& one) { one.isForOthers = true; });
const Arrival CHANGED = With(PLAIN, [](Arrival& one) { one.manifest = Listed::Unusably; });
const Arrival MERGED = With(PLAIN, [](Arrival& one) { one.files = 2; });
const Arrival STRANGE = With(PLAIN, [](Arrival& one) { one.isPlain = false; });
const RoundEnd LOST = Unannounced(QUORL_STATUS_SENDER_LOST);
const RoundEnd BROKEN = Missing(QUORL_STATUS_SENDER_LOST);
const RoundEnd FULL = Missing(QUORL_STATUS_DISK_FULL);

constexpr JudgeRules KEY{true, false, false}, CAN_KEEP{false, true, false}, ALL{false, false, true};

const DeliveryCase DELIVERIES[] = {
    {"whole, without a manifest", Whole(), PLAIN, Action::Move, Exit::Complete},
    {"whole and verified", Whole(), LISTED, Action::Move, Exit::Complete, 0, {3}, KEY},
    {"something differs, the others are right", Whole(), LISTED, Action::Move, Exit::Partly, 1},
    {"something differs, and all is wanted", Whole(), LISTED, Action::Discard, Exit::NotVerified, 1, {3}, ALL},
    {"everything differs", Whole(), LISTED, Action::Discard, Exit::NotVerified, 3},
    {"broken, and can go on", BROKEN, PLAIN, Action::Keep, Exit::PeerLost, 0, {}, CAN_KEEP},
    {"broken before anything came", LOST, GONE, Action::Discard, Exit::PeerLost, 0, {}, CAN_KEEP},
    {"a file was refused, the others are right", OneRefused(), LISTED, Action::Move, Exit::Partly, 1},
    {"a file was refused, none is right", OneRefused(), LISTED, Action::Discard, Exit::NotVerified, 3},
    {"a file was refused, nobody vouches", OneRefused(), PLAIN, Action::Discard, Exit::LocalFiles},
    {"a file was refused, then stopped", Stopped(OneRefused()), LISTED, Action::Discard, Exit::LocalFiles, 1},
    {"stopped", Stopped(Missing()), LISTED, Action::Discard, Exit::PeerLost},
    {"stopped when all was here", Stopped(Whole()), LISTED, Action::Discard, Exit::PeerLost},
    {"ended before all was here", Missing(), LISTED, Action::Discard, Exit::PeerLost},
    {"the disk is full", FULL, PLAIN, Action::Discard, Exit::NoRoom},
    {"never announced", LOST, GONE, Action::Discard, Exit::PeerLost},
    {"for others", Whole(), FOR_OTHERS, Action::Ignore, Exit::Complete},
    {"for others, and incomplete here", Missing(), FOR_OTHERS, Action::Ignore, Exit::Complete},
    {"a key, and no manifest", Whole(), PLAIN, Action::Discard, Exit::NotVerified, 0, {3}, KEY},
    {"a manifest that was changed", Whole(), CHANGED, Action::Discard, Exit::NotVerified},
    {"two names became one", Whole(), MERGED, Action::Discard, Exit::NotVerified},
    {"something that is no file", Whole(), STRANGE, Action::Discard, Exit::NotVerified},
    {"staging was removed", Whole(), GONE, Action::Discard, Exit::LocalFiles},
    {"names are taken", Whole(), LISTED, Action::Move, Exit::LocalFiles, 0, {0, 2, 0, true}},
    {"some places are refused", Whole(), LISTED, Action::Move, Exit::Partly, 0, {2, 0, 1, true}},
    {"every place is refused", Whole(), LISTED, Action::Move, Exit::LocalFiles, 0, {0, 0, 3, true}},
    {"not safe from a power failure", Whole(), PLAIN, Action::Move, Exit::LocalFiles, 0, {3, 0, 0, false}},
};

TEST(Outcome, WhatAReceiverDoesWithWhatHasArrived) {
  for (const DeliveryCase& one : DELIVERIES) {
    SCOPED_TRACE(one.what);
    Verdict verdict = JudgeArrival(one.end, one.arrival, one.rules);
    if (verdict.action == Action::Verify)
      verdict = JudgeVerified(one.end, std::vector<Difference>(one.differing), 3 - one.differing, 3, one.rules);
    if (verdict.action == Action::Move)
      if (auto failure = JudgeMoved(one.moved, 3, {})) verdict.failure = failure;
    EXPECT_EQ(verdict.action, one.action);
    EXPECT_EQ(verdict.failure ? verdict.failure->code : Exit::Complete, one.exit);
    // People are told that nothing was kept exactly where something had come and nothing is.
    const bool toldThatRemoved =
        verdict.failure && !verdict.failure->next.empty() &&
        verdict.failure->next[0] == "Nothing was moved, and what had been received is removed.";
    EXPECT_EQ(toldThatRemoved, one.action == Action::Discard && one.arrival.isThere);
  }
}

QuorlReceiverState Row(uint32_t address, uint32_t state, uint32_t status = 0) {
  return {.address = address, .state = state, .status = status};
}

constexpr uint32_t A = 1;
constexpr uint32_t B = 2;
const QuorlReceiverState A_COMPLETE = Row(A, QUORL_RECEIVER_COMPLETE);
const QuorlReceiverState A_LISTENS = Row(A, QUORL_RECEIVER_WAITING);
const QuorlReceiverState B_COMPLETE = Row(B, QUORL_RECEIVER_COMPLETE);
const QuorlReceiverState B_FAILED = Row(B, QUORL_RECEIVER_FAILED, QUORL_STATUS_DISK_FULL);
const QuorlReceiverState B_SILENT = Row(B, QUORL_RECEIVER_MASTER);

struct Attempt {
  SendEnd end;
  std::vector<uint32_t> only = {};
};

struct SendCase {
  const char* what;
  int exit;
  std::vector<uint32_t> failed;
  std::vector<Attempt> attempts;
  bool leftOut = false;
  std::vector<std::string> absent = {};
};

/// Who failed has said why.
SendEnd Ended(std::vector<QuorlReceiverState> rows, uint32_t status = 0, int signal = 0, uint32_t shrunk = 0) {
  SendEnd end{.status = status, .signal = signal, .rows = std::move(rows)};
  end.state.shrunkFiles = shrunk;
  for (const QuorlReceiverState& row : end.rows)
    if (row.status != 0) end.reasons[row.address] = "full";
  return end;
}

SendEnd Changed(SendEnd end) {
  end.filesChanged = true;
  return end;
}

TEST(Outcome, WhatASenderEndsWithOverItsRepetitions) {
  const SendEnd one = Ended({A_COMPLETE, B_FAILED}), other = Ended({A_LISTENS, B_COMPLETE});
  const SendCase cases[] = {
      {"everybody", 0, {}, {{Ended({A_COMPLETE, B_COMPLETE})}}},
      {"one failed", 4, {B}, {{one}}},
      {"one never said that it lacks nothing", 4, {B}, {{Ended({A_COMPLETE, B_SILENT})}}},
      {"one failed, and was complete the second time", 0, {}, {{one}, {other, {B}}}},
      {"one failed twice", 4, {B}, {{one}, {Ended({A_LISTENS, B_FAILED}), {B}}}},
      {"one failed and went away", 4, {B}, {{one}, {Ended({A_LISTENS}), {B}}}},
      {"nobody", 5, {B}, {{Ended({B_FAILED})}}, true},
      {"it was meant for one alone", 0, {}, {{one, {A}}}},
      {"a name could not travel", 11, {}, {{Ended({A_COMPLETE})}}, true},
      {"a file changed the first time", 11, {}, {{Changed(one)}, {other, {B}}}},
      {"one was never there", 4, {}, {{Ended({A_COMPLETE}), {A, B}}}, false, {"10.0.0.2"}},
      {"a file became shorter", 4, {}, {{Ended({A_COMPLETE}, 0, 0, 1)}}},
      {"a file could not be read", 7, {}, {{Ended({A_COMPLETE}, QUORL_STATUS_FILE_UNREADABLE)}}},
      {"the network refused", 1, {}, {{Ended({A_COMPLETE}, QUORL_STATUS_SEND_FAILED)}}},
      {"the first receiver was dead", 4, {B}, {{Ended({A_COMPLETE, B_FAILED}, QUORL_STATUS_TIMED_OUT)}}},
      {"Ctrl-C in the repetition", 130, {}, {{one}, {Ended({A_LISTENS, B_COMPLETE}, 0, 2), {B}}}, true},
  };
  for (const SendCase& each : cases) {
    SCOPED_TRACE(each.what);
    SendTally tally;
    for (const Attempt& attempt : each.attempts) tally.Add(attempt.end, attempt.only);
    if (each.leftOut) tally.NoteLeftOut();
    tally.NoteAbsent(each.absent);
    const bool lastFailed = !tally.Rows().empty() && tally.Rows().back().status != 0;
    EXPECT_EQ(tally.ReasonOf(tally.Rows().back().address), lastFailed ? "full" : "");
    EXPECT_EQ(tally.Failed(), each.failed);
    EXPECT_EQ(tally.ExitCode(), each.exit);
  }
}

}  // namespace
}  // namespace quorl::cli
