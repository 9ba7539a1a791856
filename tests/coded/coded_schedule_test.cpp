// What a sender of symbols sends next, against receivers that only count.
#include "coded/sender/coded_schedule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <set>

#include "coded/code/erasure_code.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t CATALOGUE = 1;
constexpr size_t SYMBOLS = MOST_SOURCE_SYMBOLS;
constexpr Duration PER_SYMBOL = 30us;  // About 400 Mbit/s.

/// A sender and its receivers; each receiver loses on its own, and its answers take a while.
class Rooms {
 public:
  Rooms(size_t receivers, uint32_t groups, double loss) : schedule(CATALOGUE, groups), groups(groups), loss(loss) {
    for (uint32_t i = 0; i < receivers; ++i) Join();
  }

  void Join() {
    schedule.Join(static_cast<uint32_t>(has.size()), now);
    has.resize(has.size() + 1);
  }

  /// False when it does not end.
  bool Run(uint32_t upTo = UINT32_MAX) {
    while (sent < 10'000'000) {
      Hear();
      const CodedSchedule::Step step = schedule.Next(now);
      if (std::holds_alternative<CodedSchedule::EndStep>(step)) return true;
      if (const auto* open = std::get_if<CodedSchedule::OpenStep>(&step))
        for (uint32_t group = open->first; group < open->end; ++group) schedule.Opened(group, SYMBOLS);
      if (const auto* poll = std::get_if<CodedSchedule::PollStep>(&step)) Answer(*poll);
      if (const auto* wait = std::get_if<CodedSchedule::WaitStep>(&step)) now = wait->until;
      if (const auto* send = std::get_if<CodedSchedule::SendStep>(&step)) Send(*send);
      if (sent >= upTo) return true;
    }
    return false;
  }

  /// Groups that a receiver lacks, of those that the sender has come to.
  size_t Lacking(size_t receiver) {
    size_t count = 0;
    for (uint32_t group = 0; group < groups; ++group) count += has[receiver][group].size() < SYMBOLS ? 1 : 0;
    return count;
  }

  CodedSchedule schedule;
  Moment now = 1s;
  size_t sent = 0;
  std::set<uint32_t> deaf;   // who answers nothing
  std::set<uint32_t> lying;  // who lacks everything, whatever comes

 private:
  struct Said {
    Moment at;
    uint32_t receiver;
    Lacks lacks;
  };

  bool IsLost() { return std::uniform_real_distribution<>()(random) < loss; }

  void Send(const CodedSchedule::SendStep& step) {
    ++sent;
    now += PER_SYMBOL;
    for (auto& receiver : has)
      if (!IsLost() && receiver[step.group].size() < SYMBOLS) receiver[step.group].insert(step.index);
  }

  void Answer(const CodedSchedule::PollStep& poll) {
    for (uint32_t receiver = 0; receiver < has.size(); ++receiver) {
      if (poll.only.value_or(receiver) != receiver || deaf.contains(receiver) || IsLost() || IsLost()) continue;
      Lacks lacks{{.round = poll.round, .endGroup = poll.endGroup}, {}};
      const auto tell = [&](uint32_t group) {
        const size_t count = lying.contains(receiver) ? 0 : has[receiver][group].size();
        if (count < SYMBOLS) lacks.groups.push_back({group, static_cast<uint8_t>(SYMBOLS - count)});
      };
      for (uint32_t group = 0; group < std::min(CATALOGUE, poll.endGroup); ++group) tell(group);
      for (uint32_t group = std::max(poll.firstGroup, CATALOGUE); group < poll.endGroup; ++group) tell(group);
      const auto spread = poll.spread == 0 ? 0ms : std::chrono::milliseconds(random() % poll.spread);
      said.push_back({now + 2ms + spread, receiver, std::move(lacks)});
    }
    std::stable_sort(said.begin(), said.end(), [](const Said& a, const Said& b) { return a.at < b.at; });
  }

  void Hear() {
    for (; !said.empty() && said.front().at <= now; said.pop_front())
      schedule.TakeLacks(said.front().receiver, said.front().lacks, now);
  }

  const uint32_t groups;
  const double loss;
  std::mt19937 random{1};
  std::vector<std::map<uint32_t, std::set<uint8_t>>> has;
  std::deque<Said> said;
};

TEST(CodedSchedule, ALargeRoomCostsWhatItsWorstReceiverLoses) {
  struct Case {
    size_t receivers;
    double loss;
    double most;     // of the symbols that one receiver with that loss needs,
    double longest;  // and of the time that these take
  };
  for (const Case& each : {Case{1, 0, 1, 1.2}, Case{8, 0, 1, 1.2}, Case{8, 0.2, 1.25, 2}, Case{200, 0.05, 1.2, 4.5}}) {
    constexpr uint32_t GROUPS = 50;
    Rooms rooms(each.receivers, GROUPS, each.loss);
    ASSERT_TRUE(rooms.Run());
    for (size_t i = 0; i < each.receivers; ++i) ASSERT_EQ(rooms.Lacking(i), 0u) << i << " of " << each.receivers;
    const double needed = GROUPS * SYMBOLS / (1 - each.loss);
    EXPECT_LE(static_cast<double>(rooms.sent), each.most * needed)
        << each.receivers << " receivers, loss " << each.loss;
    EXPECT_LE((rooms.now - 1s) / PER_SYMBOL, each.longest * needed)
        << each.receivers << " receivers, loss " << each.loss;
  }
}

TEST(CodedSchedule, NobodyHoldsTheRoomUpForEver) {
  Rooms rooms(3, 200, 0.01);
  rooms.deaf.insert(1);
  rooms.lying.insert(2);
  ASSERT_TRUE(rooms.Run());
  EXPECT_EQ(rooms.Lacking(0), 0u);
  EXPECT_LT(rooms.now, 120s);
}

TEST(CodedSchedule, WhoComesLateGetsWhatItMissedInASecondPass) {
  constexpr uint32_t GROUPS = 500;
  Rooms rooms(2, GROUPS, 0.01);
  ASSERT_TRUE(rooms.Run(GROUPS / 4 * SYMBOLS));
  rooms.Join();
  ASSERT_TRUE(rooms.Run());
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(rooms.Lacking(i), 0u) << i;
  EXPECT_LT(rooms.sent, GROUPS * SYMBOLS * 3 / 2);
}

}  // namespace
}  // namespace quorl
