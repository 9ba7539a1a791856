// What younger peers say to each other beside the transfer, and what comes of it: letters and words, what is held and
// not streamed, and who comes too late.
#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t ABLE = 3;

struct MailRoom : testing::Test {
  MailRoom() {
    room.File("a", 9 * BLOCK_SIZE);
    room.File("b", 19 * BLOCK_SIZE);
  }

  static RoomOptions Able() {
    RoomOptions options = Robust(2);
    options.capabilities = ABLE;
    return options;
  }
  void Write(size_t index, const std::string& text) {
    room.Receiver(index).Call([&] { EXPECT_TRUE(room.Client(index).SendLetter(BytesOf(text))); });
  }
  static std::vector<uint8_t> BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

  /// All letters that have come, "10.0.0.2 text" without the address's first parts.
  std::vector<std::string> Letters() {
    std::vector<std::string> texts;
    while (const auto letter = room.Server().TakeLetter()) texts.emplace_back(letter->text.begin(), letter->text.end());
    return texts;
  }
  std::vector<std::string> Words(size_t index) {
    std::vector<std::string> texts;
    while (const auto word = room.Client(index).TakeWord()) texts.emplace_back(word->text.begin(), word->text.end());
    return texts;
  }

  Room room{Able()};
};

TEST_F(MailRoom, LettersComeOnceAndInOrderWhateverIsLostAndWordsComeOnce) {
  uint32_t count = 0;
  Stranger stranger(room);
  const auto forged = BytesOf("forged");
  room.Net().SetFilter([&](const Transit& transit) {
    const bool isMail = Is(transit, CMD_LETTER) || Is(transit, CMD_HEARD);
    return !isMail || (++count * 2654435761u >> 16) % 3 != 0;
  });
  Begin(room, 10ms);
  EXPECT_EQ(room.Client(0).GetState().senderCapabilities, ABLE);
  EXPECT_EQ(room.Server().GetState().receivers[1].capabilities, ABLE);
  std::vector<std::string> sent;
  for (int i = 0; i < 20; ++i) Write(0, sent.emplace_back(std::to_string(i)));
  room.Sender().Call([&] { EXPECT_TRUE(room.Server().SendWord(BytesOf("all"))); });
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(Words(0), std::vector<std::string>{"all"});
  EXPECT_EQ(Words(1), std::vector<std::string>{"all"});
  stranger.SayToSender(room.Receiver(0).Address(), BuildText(Letter{.session = 7, .number = 1, .text = forged}));
  room.World().RunFor(8s);
  EXPECT_EQ(Letters(), sent) << "also those that come when the transfer is over";
  EXPECT_EQ(Ends(room), "whole told, whole told");
  // Anew, as for the next transfer: it is the same one who writes.
  room.Receiver(0).Call([&] {
    room.Client(0).InitClient(nullptr, 0, 0, room.Receiver(0).Address());
    room.Client(0).StartReceive();
  });
  Write(0, "later");
  room.World().RunFor(3s);
  EXPECT_EQ(Letters(), std::vector<std::string>{"later"});
  // Nobody says that it was heard: it is given up, and what comes later is another one.
  room.Net().SetFilter([](const Transit& transit) { return !Is(transit, CMD_HEARD); });
  Write(0, "unheard");
  room.World().RunFor(11s);
  EXPECT_EQ(room.Client(0).LettersOnTheirWay(), 0u);
  room.Net().SetFilter(nullptr);
  Write(0, "after");
  room.World().RunFor(1s);
  EXPECT_EQ(Letters(), (std::vector<std::string>{"unheard", "after"}));
  // The next room begins to count anew, and what was for the last one is for nobody.
  room.Sender().Call([&] { room.Server().DeInitServer(); });
  Write(0, "too late");
  room.World().RunFor(1s);
  room.Net().SetFilter([&](const Transit& transit) {
    if (!Is(transit, CMD_OFFER)) return true;
    const uint32_t session = ReadFields<Offer>(transit.datagram).session;
    stranger.SayToRoom(Stranger::ADDRESS, BuildText(Word{.session = session, .number = 1, .text = forged}));
    return true;
  });
  ASSERT_TRUE(room.Send());
  room.Sender().Call([&] { EXPECT_TRUE(room.Server().SendWord(BytesOf("again"))); });
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(Words(0), std::vector<std::string>{"again"});
  Write(0, "in time");
  room.World().RunFor(1s);
  EXPECT_EQ(Letters(), std::vector<std::string>{"in time"});
}

TEST_F(MailRoom, WhoHasNamedNothingIsSpokenToAsEver) {
  room.Client(1).SetCapabilities(0);
  Play(room);
  EXPECT_EQ(Ends(room), "whole told, whole told");
  EXPECT_EQ(room.Server().GetState().receivers[1].capabilities, 0u);
  for (const SentDatagram& sent : room.Net().Sent()) {
    if (sent.from == &room.Receiver(1)) {
      EXPECT_LT(sent.bytes.at(2), CMD_OFFER) << Describe(sent.bytes);
    }
  }
}

TEST_F(MailRoom, ACollectionEndsWhenAllThatAreExpectedHaveAnsweredAndSaidWhatTheyCan) {
  ASSERT_TRUE(room.StartReceivers());
  const auto collect = [this](const ExpectedReceivers& expected) {
    const Moment before = room.World().Now();
    room.Server().SetExpectedReceivers(expected);
    room.Sender().Call([this] { room.Server().InitServer(nullptr, 0, 0, room.Sender().Address()); });
    return room.World().Now() - before;
  };
  EXPECT_LT(collect({.count = 2}), 160ms) << "100 ms are for hearing whether somebody else sends";
  EXPECT_EQ(room.Server().GetState().receivers.at(1).capabilities, ABLE);
  EXPECT_EQ(collect({}), 900ms) << "whoever may come is waited for";
  EXPECT_EQ(collect({.addresses = {room.Receiver(0).Address(), Stranger::ADDRESS}}), 900ms);

  // What is lost is asked for again: nobody is left out for it.
  std::map<std::pair<const SimMachine*, uint8_t>, int> answers;
  room.Net().SetFilter([&](const Transit& transit) {
    const bool isAnswer = Is(transit, CMD_CLIENT) || Is(transit, CMD_ACCEPT);
    return !isAnswer || transit.from == &room.Receiver(0) || ++answers[{transit.from, transit.datagram[2]}] > 2;
  });
  const Duration late = collect({.addresses = {room.Receiver(0).Address(), room.Receiver(1).Address()}});
  EXPECT_GT(late, 300ms);
  EXPECT_LT(late, 400ms);
  EXPECT_EQ(room.Server().GetState().receivers.at(1).capabilities, ABLE);

  room.Server().SetProfile(Profile::Classic);
  EXPECT_EQ(collect({.count = 2}), 900ms);
}

TEST_F(MailRoom, WhoIsHeardInTheEndNeedNotSayItAgainAndLeavesAtOnce) {
  const auto leave = [this](bool answersAreLost) {
    room.Net().SetFilter([=](const Transit& transit) { return !(answersAreLost && Is(transit, CMD_ANSWER)); });
    EXPECT_TRUE(room.StartReceivers());
    EXPECT_TRUE(room.Send());
    room.World().RunUntil([this] { return room.IsReceiverThrough(0); }, 20s);
    Write(0, "everything is in its place");
    room.World().RunFor(10ms);
    const Moment before = room.World().Now();
    room.Receiver(0).Call([this] { room.Client(0).DeInitClient(); });
    return room.World().Now() - before;
  };
  EXPECT_LT(leave(false), 30ms);
  EXPECT_GT(leave(true), 200ms) << "a sender that has heard the letter alone does not know";
}

TEST_F(MailRoom, WhatEverybodyHoldsIsNotStreamedAndWhoHoldsItIsComplete) {
  const BlockRange whole{1, 0, 10, 9 * BLOCK_SIZE}, half{2, 0, 10, 19 * BLOCK_SIZE};
  BlockRanges skipped, held;
  ASSERT_TRUE(skipped.Take({whole}));
  ASSERT_TRUE(held.Take({whole, half}));
  room.Server().SetSkippedBlocks(skipped);
  size_t heard = 0;
  room.Server().SetBlockListener([&](uint32_t, uint32_t, std::span<const uint8_t>) { ++heard; });
  room.Receiver(0).Disk().WriteSynthetic("C:\\in\\b", 10 * BLOCK_SIZE, 1);
  ASSERT_TRUE(room.StartReceivers());
  uint64_t written = 0;
  room.Client(0).SetStoreListener(
      [&](uint32_t file, const std::string& name, uint32_t first, std::span<const uint8_t> bytes) {
        EXPECT_TRUE(file == 2 && name == "\\b" && first == 10);
        written += bytes.size();
      });
  bool told = false;
  room.Net().SetFilter([&](const Transit& transit) {
    // Named when the sender has asked, as it is for this sender's next transfer alone.
    if (Is(transit, CMD_TASK) && !told) {
      told = true;
      room.Client(0).SetHeldBlocks(held);
    }
    return true;
  });
  ASSERT_TRUE(room.Send());
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_TRUE(room.Client(0).GetState().complete);
  EXPECT_TRUE(room.Client(1).GetState().complete) << "who holds nothing is served by the repair";
  EXPECT_EQ(heard, 20u);
  EXPECT_EQ(written, 9 * BLOCK_SIZE) << "what has been stored before is not written";
  EXPECT_EQ(CountSent(room, CMD_DATA), 20u);
  EXPECT_EQ(room.Client(1).StoredBlocks().size(), 2u);
  EXPECT_EQ(room.Client(0).GetState().blocksLost, 0u) << "what is left out is no loss to who holds it";
  // Both were named for one transfer, and what is held is so of one sender's room.
  ASSERT_TRUE(room.StartReceivers());
  room.Client(0).SetHeldBlocks(held);
  room.ReplaceFiles();
  ASSERT_TRUE(room.Send());
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(CountSent(room, CMD_DATA), 20u + 30u);
  EXPECT_EQ(heard, 20u);
  EXPECT_EQ(written, 9 * BLOCK_SIZE) << "nor is another transfer told of";
  EXPECT_EQ(Ends(room), "whole told, whole told");
  // Named for a session that began anew before it took part in anything: it is gone with that.
  room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
  room.Client(0).SetHeldBlocks(held);
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(room.StartReceivers());
  room.ReplaceFiles();
  room.SendAgain();
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

TEST_F(MailRoom, WhoMissesTheCollectionJoinsAtTheAnnouncement) {
  room.Net().SetFilter([&](const Transit& transit) {
    const bool toSecond = transit.to == &room.Receiver(1);
    const bool isLost = Is(transit, CMD_DATA) && HeadOf(transit).block == 3;
    return !toSecond || !(Is(transit, CMD_COLLECT) || Is(transit, CMD_OFFER) || isLost);
  });
  Play(room);
  EXPECT_EQ(room.Client(1).GetState().blocksLost, 2u) << "one of either file";
  EXPECT_EQ(room.Client(1).GetState().blocksCame, 28u);
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

TEST_F(MailRoom, WhoIsStartedAgainInTheMiddleIsToldAndTheSenderKnows) {
  room.File("large", 3000 * BLOCK_SIZE);
  Begin(room, 2s);
  room.Receiver(1).PowerOff();
  room.World().RunFor(10ms);
  ASSERT_TRUE(room.RestartReceiver(1));
  room.World().RunFor(1s);
  const auto underWay = room.Client(1).GetState().underWay;
  ASSERT_TRUE(underWay.has_value());
  EXPECT_GT(underWay->sentBlocks, 0u);
  EXPECT_EQ(room.FailedReceivers(), (std::map<size_t, uint32_t>{{1, 1223}})) << "at once, and not when it has no turn";
  room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
  room.World().RunFor(100ms);
  EXPECT_EQ(room.FailedReceivers().at(0), 1223u) << "who leaves says so";
}

}  // namespace
}  // namespace quorl::sim
