// Transfers in symbols, told in rooms.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t RATE = 400'000;

RoomOptions Symbols(size_t receivers) {
  RoomOptions options = Robust(receivers);
  options.symbols = true;
  return options;
}

std::string AllWhole(size_t receivers) {
  std::string line = "whole told";
  for (size_t i = 1; i < receivers; ++i) line += ", whole told";
  return line;
}

/// A large file, many small ones, an empty one and more empty directories than one datagram names.
void Fill(Room& room) {
  room.File("large", 12'345'678);
  for (int i = 0; i < 300; ++i) room.File("small\\" + std::to_string(i), static_cast<uint64_t>(37 * i));
  room.File("empty", 0);
  for (int i = 0; i < 60; ++i) room.EmptyDirectory("nothing" + std::to_string(i));
}

TEST(Symbols, CarryEverythingAndTheirRepairServesEverybodyAtOnce) {
  for (const double loss : {0.0, 0.05, 0.2}) {
    Room room(Symbols(8));
    Fill(room);
    room.Server().SetSendRate(RATE);
    room.Net().SetLoss(loss);
    Play(room);
    EXPECT_EQ(Ends(room), AllWhole(8)) << loss;
    EXPECT_EQ(CountSent(room, CMD_DATA) + CountSent(room, CMD_RESEND), 0u) << loss;
    const SendState state = room.Server().GetState();
    EXPECT_EQ(state.blocksSent, state.totalBlocks);
    EXPECT_TRUE(loss > 0 || state.blocksResent == 0);
  }
}

TEST(Symbols, OfWhatEverybodyHoldsDoNotGoOut) {
  RoomOptions options = Symbols(2);
  options.capabilities = 1;
  Room room(options);
  room.File("a", 999 * BLOCK_SIZE);
  room.File("b", 99 * BLOCK_SIZE);
  BlockRanges held;
  ASSERT_TRUE(held.Take({{1, 0, 1000, 999 * BLOCK_SIZE}}));
  room.Server().SetSkippedBlocks(held);
  room.Server().SetSendRate(RATE);
  size_t heard = 0;
  room.Server().SetBlockListener([&](uint32_t, uint32_t, std::span<const uint8_t>) { ++heard; });
  ASSERT_TRUE(room.StartReceivers());
  room.Net().SetFilter([&, told = false](const Transit& transit) mutable {
    if (!Is(transit, CMD_TASK) || std::exchange(told, true)) return true;
    for (size_t i = 0; i < 2; ++i) room.Client(i).SetHeldBlocks(held);
    return true;
  });
  ASSERT_TRUE(room.Send());
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  for (size_t i = 0; i < 2; ++i) EXPECT_TRUE(room.Client(i).GetState().complete) << i;
  EXPECT_EQ(heard, 100u);
  // One group holds the end of the one and the begin of the other.
  EXPECT_LT(CountSent(room, CMD_SYMBOL), (100 + 43) * 3u);
  EXPECT_EQ(CountSent(room, CMD_RESEND), 0u);
}

TEST(Symbols, AreNotUsedWhereOneReceiverDoesNotKnowThemOrTheirDatagramsDoNotArrive) {
  for (const bool knows : {false, true}) {
    Room room(Symbols(2));
    room.File("a", 100'000);
    room.Client(1).SetSymbols(knows);
    room.Net().SetFilter([&](const Transit& transit) {
      return !knows || transit.to != &room.Receiver(1) || !Is(transit, CMD_OFFER) || transit.datagram.size() < 1400;
    });
    Play(room);
    EXPECT_EQ(CountSent(room, CMD_SYMBOL), 0u);
    EXPECT_EQ(Ends(room), AllWhole(2));
  }
}

/// A poll that leaves right behind symbols finds a queue that is full whenever they do, and nobody answers any more.
TEST(Symbols, APollFindsRoomInAQueueThatIsAlwaysFull) {
  Room room(Symbols(2));
  room.World().SetLogging(false);
  room.File("large", 40'000'000);
  room.Net().SetUplink(room.Sender(), {.own = {125'000'000}, .bottleneck = {3'750'000, 64 * 1024}});
  size_t resent = 0;
  room.Net().SetTap([&](const SentDatagram& sent) { resent += sent.bytes.at(2) == CMD_RESEND ? 1 : 0; });
  room.Server().SetSendRate(33'200);
  Play(room);
  EXPECT_EQ(Ends(room), AllWhole(2));
  EXPECT_EQ(resent, 0u);
}

TEST(Symbols, WhoComesLateGetsWhatIsToComeAndTheRestBehindIt) {
  Room room(Symbols(3));
  room.File("large", 30'000'000);
  room.Server().SetSendRate(RATE);
  ASSERT_TRUE(room.StartReceiver(0));
  ASSERT_TRUE(room.StartReceiver(1));
  ASSERT_TRUE(room.Send());
  room.World().RunFor(200ms);
  ASSERT_TRUE(room.StartReceiver(2));
  EXPECT_TRUE(room.RunUntilQuiet(120s));
  EXPECT_EQ(Ends(room), AllWhole(3));
}

}  // namespace
}  // namespace quorl::sim
