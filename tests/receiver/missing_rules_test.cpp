// The rules by which a receiver finds out what it lacks, where no model checks them: the sequence test, the pace of the
// expansion, the bounds, and when it asks again.
#include <gtest/gtest.h>

#include "receiver/repair/classic_repair.h"
#include "receiver/repair/request_window.h"
#include "receiver/repair/robust_repair.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(SequenceTest, OnlySkippedBlocksMakeAGapAndItNamesThem) {
  // Within a file; from file to file; at the start, which is as if block 0 of file 1 had come.
  const std::tuple<LostBlock, uint32_t, LostBlock, std::vector<LostBlock>> cases[] = {
      {{2, 5}, 9, {2, 5}, {}},       {{2, 5}, 9, {2, 6}, {}},
      {{2, 5}, 9, {2, 1}, {}},       {{2, 5}, 9, {2, 8}, {{2, 6}, {2, 7}}},
      {{1, 3}, 3, {2, 0}, {}},       {{1, 3}, 3, {2, 1}, {{2, 0}}},
      {{5, 0}, 0, {2, 1}, {}},       {{1, 0}, 0, {2, 2}, {{2, 0}, {2, 1}}},
      {{1, 2}, 3, {2, 0}, {{1, 3}}}, {{2, 7}, 9, {5, 2}, {{2, 8}, {2, 9}, {3, 0}, {4, 0}, {5, 0}, {5, 1}}},
      {{0, 0}, 0, {1, 1}, {}},       {{0, 0}, 0, {1, 2}, {{1, 1}}},
  };
  for (const auto& [seen, lastBlock, next, expected] : cases) {
    SequencePosition position;
    if (seen.file != 0) position.MoveTo(seen.file, seen.block, lastBlock);
    const auto gap = position.MoveTo(next.file, next.block, 9);
    std::vector<LostBlock> skipped;
    GapExpansion expansion(gap.value_or(GapRecord{}), UINT64_MAX);
    while (const auto block = expansion.Next()) skipped.push_back(*block);
    EXPECT_EQ(skipped, expected) << seen.file << " to " << next.file;
    EXPECT_EQ(gap.has_value(), !expected.empty());
  }
}

/// A repair whose datagrams and times a test names.
template <typename Repair>
struct RepairTest : testing::Test {
  static BlockHead Head(uint32_t file, uint32_t block, uint32_t last) {
    return {file, block, last, 1, 10, NameField::From("\\f" + std::to_string(file))};
  }

  void Begin(uint32_t files, uint32_t blocks) {
    record.Begin(files, blocks);
    repair->Begin(0ms);
  }

  Admission Data(uint32_t file, uint32_t block, uint32_t last, Moment now = 0ms, const char* name = nullptr) {
    RepairSteps ignored;
    BlockHead head = Head(file, block, last);
    if (name) head.name = NameField::From(name);
    return repair->TakeData(head, true, now, ignored);
  }

  /// What is sent, as text, and the pauses before it.
  template <typename Call>
  std::string Said(Call call) {
    RepairSteps steps;
    call(steps);
    std::string said;
    for (const RepairStep& step : steps) {
      if (const auto* ack = std::get_if<AckStep>(&step); ack && ack->send)
        said += "ack " + std::to_string(ack->wanted.file) + " " + std::to_string(ack->wanted.block) + ";";
      if (const auto* answer = std::get_if<AnswerStep>(&step))
        said += "answer " + std::to_string(answer->missing) + ";";
      if (const auto* finish = std::get_if<FinishStep>(&step)) said += "finish " + std::to_string(finish->status) + ";";
      if (const auto* pause = std::get_if<PauseStep>(&step); pause && pause->pause > 0ms)
        said += "pause " + std::to_string(pause->pause / 1ms) + ";";
      if (std::holds_alternative<SettleStep>(step)) said += "settle;";
      if (std::holds_alternative<FinishedStep>(step)) said += "finished;";
    }
    return said;
  }
  std::string Master(uint32_t state, Moment now) {
    return Said([&](RepairSteps& steps) { repair->TakeMaster({state}, now, steps); });
  }
  std::string Resend(const BlockHead& head, bool hasRoom, Moment now) {
    return Said([&](RepairSteps& steps) { repair->TakeResend(head, hasRoom, now, steps); });
  }
  std::string Finish(Moment now) {
    return Said([&](RepairSteps& steps) { repair->TakeFinish(now, steps); });
  }

  Counters counters;
  BlockRecord record;
  std::unique_ptr<BlockRepair> repair =
      MakeBlockRepair(std::is_same_v<Repair, ClassicRepair> ? Profile::Classic : Profile::Robust, record, counters);
};

using ClassicRepairTest = RepairTest<ClassicRepair>;
using RobustRepairTest = RepairTest<RobustRepair>;

// The thread of the classic rules looks every 10 ms, and rests 2 ms after every 12 blocks of a gap.
TEST_F(ClassicRepairTest, GapsBecomeMissingBlocksInTheirPaceAndTheAnswerWaitsForThem) {
  Begin(1, 10000);
  Data(1, 0, 9999);
  Data(1, 1001, 9999, 1ms);
  EXPECT_EQ(Master(1, 9ms), "ack 2 0;") << "the gap waits in the list";
  EXPECT_EQ(Master(1, 10ms), "ack 1 1;");
  EXPECT_EQ(record.LostCount(), 12u);
  EXPECT_EQ(Master(1, 13ms), "ack 1 1;");
  EXPECT_EQ(record.LostCount(), 24u);
  Data(1, 1013, 9999, 20ms);  // 11 blocks: no rest
  // 83 rests from 10 ms on, and before the stream's end nothing but the tail is entered at once.
  EXPECT_EQ(Finish(100ms), "pause 76;answer " + std::to_string(1000 + 11 + 8986) + ";");
}

TEST_F(ClassicRepairTest, AnAnswerWaitsAMinuteAtMostAndTheRestComesLater) {
  Begin(1, 2000000);
  Data(1, 0, 1999999);
  Data(1, 1000000, 1999999);
  Data(1, 1999999, 1999999);
  EXPECT_EQ(Finish(10ms), "pause 60000;answer 360012;");
  EXPECT_EQ(Master(1, 90s), "ack 2 0;") << "the second gap still waits";
  EXPECT_EQ(Master(1, 400s), "ack 1 1;");
  EXPECT_EQ(record.LostCount(), 1999997u);
}

TEST_F(ClassicRepairTest, AnExpansionThatTheNextTransferCutsOffGoesOnInThat) {
  Begin(1, 2000000);
  Data(1, 0, 1999999);
  Data(1, 1999999, 1999999);
  EXPECT_EQ(Finish(10ms), "pause 60000;answer 360012;");
  Begin(1, 10);
  Data(1, 0, 9, 61s);
  Data(1, 4, 9, 62s);
  EXPECT_EQ(Finish(63s), "pause 10;answer 8;");
}

TEST_F(ClassicRepairTest, NoNumbersInADatagramMakeTheRecordGrowWithoutBound) {
  Begin(UINT32_MAX, UINT32_MAX);
  Data(1, 0, UINT32_MAX - 1);
  EXPECT_EQ(Data(1, UINT32_MAX - 2, UINT32_MAX - 1), Admission::BeyondTotal);
  Data(4000000000, 0, 0);
  Finish(0ms);
  EXPECT_LE(record.LostCount(), uint64_t{1} << 21);
  EXPECT_GT(counters[Count::RefusedMissing], 0u);
  Begin(1, 300);
  for (const uint32_t block : {200u, 3u}) {
    record.Lose({1, block});
    EXPECT_EQ(record.FirstLost(), (LostBlock{1, block}));
  }
  Begin(1, 10);
  for (uint32_t i = 0; i < 2 * (GapList::LIMIT + 5); ++i) Data(1, i % 2 ? 0 : 9, 9);
  EXPECT_EQ(counters[Count::RefusedGaps], 5u);
  EXPECT_EQ(counters[Count::GapsHighWater], GapList::LIMIT);
  // A file that has grown is taken, but not without end.
  EXPECT_EQ(Data(1, 20 + 65536 - 1, 65555), Admission::Admitted);
  EXPECT_EQ(Data(1, 20 + 65536, 65556), Admission::BeyondTotal);
  // Nor under one name after the other, as each may be another file on the disk.
  Begin(2, 10);
  Data(1, 999, 999);
  int names = 0;
  while (Data(1, 0, 999, 0ms, names % 2 ? "\\a" : "\\b") == Admission::Admitted) ++names;
  EXPECT_EQ(names, (20 + 65536) / 1000 - 1);
}

TEST_F(ClassicRepairTest, AGapAfterTheThreadsEndStaysAGapAlsoInTheNextTransfer) {
  Begin(1, 10);
  Data(1, 0, 9);
  EXPECT_EQ(Finish(1s), "pause 10;answer 9;");
  Data(1, 9, 9, 2s);
  EXPECT_EQ(Master(1, 3s), "ack 2 0;");
  Begin(1, 10);
  Data(1, 0, 9, 4s);
  Data(1, 4, 9, 4s);
  EXPECT_EQ(Finish(5s), "answer 5;");
  EXPECT_EQ(record.LostCount(), 5u) << "the tail alone";
}

TEST_F(ClassicRepairTest, ABlockThatFindsNoRoomIsStillMissingAndItsDatagramCountsOtherwise) {
  Begin(1, 3);
  Data(1, 0, 2);
  EXPECT_EQ(Resend(Head(1, 1, 2), false, 1s), "pause 10;answer 2;");
  Master(1, 2s);
  EXPECT_EQ(Resend(Head(1, 1, 2), false, 3s), "");
  EXPECT_EQ(Resend(Head(1, 1, 2), true, 4s), "ack 1 2;");
}

TEST_F(RobustRepairTest, EveryBlockThatHasNotComeCountsAndTheDiskHasTheLastWord) {
  Begin(3, 100);
  Data(1, 0, 9);
  Data(3, 1, 49);
  EXPECT_EQ(Finish(1s), "answer 98;") << "those of a file never seen as well";
  EXPECT_EQ(Master(1, 2s), "ack 1 1;ack 1 2;ack 1 3;ack 1 4;");
  for (const auto& [file, last] : {std::pair{1u, 9u}, {2u, 39u}, {3u, 49u}})
    for (uint32_t block = 0; block <= last; ++block) {
      Data(file, block, last);
      record.Store(record.Generation(), file, block, block == 0 && file == 2 ? 0 : 1);
    }
  const auto pass = [&](Moment now) { return Said([&](RepairSteps& steps) { repair->Pass(now, steps); }); };
  const auto settled = [&](Moment now) { return Said([&](RepairSteps& steps) { repair->TakeSettled(now, steps); }); };
  // Each time another block beyond the end: the sender sees the master get on, and has nothing to send.
  EXPECT_EQ(repair->Due(), 400ms);
  EXPECT_EQ(pass(400ms), "ack 3 50;");
  EXPECT_EQ(pass(800ms), "ack 3 51;");
  EXPECT_EQ(settled(4s), "ack 2 0;") << "what the disk does not have is asked for again";
  Data(2, 0, 39);
  record.Store(record.Generation(), 2, 0, 1);
  EXPECT_EQ(settled(5s), "ack 4 0;finish 0;finished;");
  EXPECT_EQ(pass(*repair->Due()), "ack 4 0;finish 0;");
  EXPECT_EQ(Master(0, 7s), "ack 4 0;finish 0;") << "its last word was not heard";
}

TEST_F(RobustRepairTest, ABlockThatCannotBeHadHoldsUpNoOther) {
  const uint32_t last = RequestWindow::FIRST;
  Begin(1, last + 1);
  Data(1, last, last);
  Finish(1s);
  EXPECT_EQ(Master(1, 1s), "ack 1 0;ack 1 1;ack 1 2;ack 1 3;") << "all that are missing";
  EXPECT_EQ(Resend(Head(1, 1, last), false, 1s), "") << "no room: as if it had not come";
  EXPECT_EQ(Resend(Head(1, 1, last), true, 1s), "");
  std::string asked;
  for (Moment now = 1s; now < 9s; now = std::max(now, *repair->Due())) {
    Resend(Head(1, 0, last + 1), true, now);
    asked += Said([&](RepairSteps& steps) { repair->Pass(now, steps); });
    if (asked.ends_with("ack 1 3;ack 1 0;")) Resend(Head(1, 2, last), true, now);
    if (now > 3s) Resend(Head(1, 3, last), true, now);
  }
  EXPECT_EQ(record.NotReceivedCount(), 1u) << asked;
}

TEST_F(RobustRepairTest, AFileThatFailedEndsTheReceiverOnceTheOthersAreThere) {
  // What the disk is asked for at the end of a transfer is asked for in the next one, too.
  Begin(1, 1);
  Data(1, 0, 0);
  EXPECT_EQ(Finish(0s), "settle;");
  BlockRanges beyond;
  ASSERT_TRUE(beyond.Take({{1, 0, 9, 9}}));
  Begin(2, 20);
  record.Hold(beyond);
  EXPECT_EQ(record.StoredCount(), 0u) << "more blocks than a file of this length has";
  for (uint32_t block = 0; block < 10; ++block) Data(1, block, 9);
  Data(2, 0, 9);
  record.Store(record.Generation(), 1, 0, 10);
  record.Fail(record.Generation(), 2, 1001);
  EXPECT_EQ(Finish(1s), "settle;");
  EXPECT_EQ(Said([&](RepairSteps& steps) { repair->TakeSettled(1s, steps); }), "answer 10;finish 1001;finished;");
  EXPECT_EQ(Master(1, 2s), "finish 1001;");
}

TEST(RequestWindowTest, ALateRequestFollowsTheRoundTripAndIsMadeSomeTimes) {
  RequestWindow window;
  window.Made(0ms, {1, 0});
  window.Answered(100ms, {1, 1});
  EXPECT_EQ(window.Due(), RequestWindow::INITIAL) << "not what was asked for";
  window.Answered(40ms, {1, 0});
  EXPECT_EQ(window.Due(), std::nullopt);
  window.Made(1000ms, {1, 1});
  EXPECT_EQ(window.Due(), 1000ms + 40ms + 4 * 20ms);
  EXPECT_EQ(window.RepeatLate(1119ms), std::nullopt);
  EXPECT_EQ(window.RepeatLate(1120ms), (LostBlock{1, 1}));
  EXPECT_EQ(window.Due(), 1120ms + 240ms);
  window.Answered(1121ms, {1, 1});  // to which of the two it cannot be told
  window.Made(3000ms, {1, 2});
  EXPECT_EQ(window.Due(), 3000ms + 240ms);
  for (int i = 1; i < 2 * RequestWindow::TIMES; ++i) EXPECT_EQ(window.RepeatLate(3000ms + i * 1s), (LostBlock{1, 2}));
  EXPECT_EQ(window.Due(), 3000ms + (2 * RequestWindow::TIMES - 1) * 1s + RequestWindow::LONGEST);
  window.Made(20s, {1, 3});
  window.Answered(21s, {1, 3});
  EXPECT_EQ(window.RepeatLate(60s), std::nullopt) << "others come, and this one does not";
  EXPECT_FALSE(window.Holds({1, 2}));
}

TEST(RequestWindowTest, GrowsWithTheAnswersAndShrinksWhenThereAreNone) {
  RequestWindow window;
  uint32_t made = 0;
  const auto fill = [&](Moment now) {
    const uint32_t before = made;
    while (window.HasRoom()) window.Made(now, {1, made++});
    return made - before;
  };
  EXPECT_EQ(fill(0ms), RequestWindow::FIRST);
  for (uint32_t block = 0; block < 100; ++block) {
    window.Answered(1ms, {1, block});
    fill(1ms);
  }
  EXPECT_EQ(made, 100 + RequestWindow::MOST);
  // One of them is lost: later ones are answered, and it is made again at once.
  for (const uint32_t block : {101u, 102u}) window.Answered(2ms, {1, block});
  EXPECT_EQ(window.RepeatLate(2ms), std::nullopt);
  window.Answered(2ms, {1, 103});
  EXPECT_EQ(window.Due(), 1ms);
  EXPECT_EQ(window.RepeatLate(2ms), (LostBlock{1, 100}));
  EXPECT_EQ(fill(2ms), 3u) << "no reason for fewer";
  while (window.RepeatLate(1s)) {
  }
  window.Clear();
  EXPECT_EQ(fill(1s), RequestWindow::MOST / 2) << "nothing has come for long";
}

}  // namespace
}  // namespace quorl
