// The vocabulary of scenarios, by stories of the real sender and receivers.
#include "sim/room.h"

#include <gtest/gtest.h>

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct RoomTest : testing::TestWithParam<Profile> {
  static RoomOptions Options(size_t receivers, uint64_t seed) { return {receivers, seed, GetParam(), GetParam()}; }
};

INSTANTIATE_TEST_SUITE_P(Profiles, RoomTest, testing::Values(Profile::Classic, Profile::Robust),
                         [](const auto& profile) { return profile.param == Profile::Classic ? "Classic" : "Robust"; });

TEST_P(RoomTest, ATreeArrivesAtEveryReceiver) {
  Room room(Options(3, 1));
  room.File("a.txt", 10);
  room.File("empty.bin", 0);
  room.File("photos\\2004\\exact.jpg", 4254);
  room.File("photos\\long.jpg", 100'000);
  room.EmptyDirectory("nothing here");
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  for (size_t index = 0; index < room.Receivers(); ++index) {
    EXPECT_TRUE(room.TreesIdentical(index));
    EXPECT_TRUE(room.WasToldComplete(index));
    EXPECT_EQ(Room::Statuses(room.Receiver(index)), std::vector<uint32_t>{QUORL_STATUS_DONE});
  }
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{QUORL_STATUS_DONE});
  EXPECT_TRUE(room.FailedReceivers().empty());
}

TEST_P(RoomTest, TheSameSeedGivesTheSameTransferToTheLastDatagram) {
  const auto run = [](uint64_t seed) {
    Room room(Options(2, seed));
    room.Net().SetLoss(0.05);
    room.File("a.bin", 100'000);
    EXPECT_TRUE(room.StartReceivers());
    room.Send();
    room.RunUntilQuiet(120s);
    return room.World().EventLog();
  };
  const std::string log = run(7);
  EXPECT_NE(log.find(" lost "), std::string::npos);
  EXPECT_EQ(run(7), log);
  EXPECT_NE(run(8), log);
}

}  // namespace
}  // namespace quorl::sim
