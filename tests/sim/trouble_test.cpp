// Machines that stand still, come back, or have a clock of their own.
#include <gtest/gtest.h>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/room.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct TroubleTest : testing::Test {
  World world{1};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  const Machine& seam = machine.Seam();
};

TEST_F(TroubleTest, AFrozenMachineDoesNothingAndCatchesUpWhenItThaws) {
  std::vector<Moment> ticks;
  machine.Spawn("ticks", [&] {
    for (int i = 0; i < 3; ++i) {
      seam.clock.Sleep(10ms);
      ticks.push_back(seam.clock.Now());
    }
  });
  world.RunFor(15ms);
  machine.Freeze();
  world.RunFor(1s);
  EXPECT_EQ(ticks, std::vector<Moment>{10ms});
  machine.Thaw();
  world.RunFor(1s);
  EXPECT_EQ(ticks, (std::vector<Moment>{10ms, 1015ms, 1025ms}));
}

TEST_F(TroubleTest, AFrozenMachineCanLoseItsPower) {
  machine.Spawn("sleeps", [&] { seam.clock.Sleep(10ms); });
  machine.Freeze();
  world.RunFor(1s);
  machine.PowerOff();
  world.RunFor(0s);
  EXPECT_EQ(machine.RunningThreads(), 0u);
}

TEST_F(TroubleTest, ADriftingClockMeasuresWaitsByItself) {
  machine.SetClockDrift(250'000);
  world.RunFor(4s);
  EXPECT_EQ(seam.clock.Now(), 5s);
  machine.Call([&] { seam.clock.Sleep(10s); });
  EXPECT_EQ(seam.clock.Now(), 15s);
  EXPECT_EQ(world.Now(), 12s);
  machine.SetClockDrift(-500'000);
  machine.Call([&] { EXPECT_FALSE(seam.threads.MakeEvent()->Wait(1s)); });
  EXPECT_EQ(seam.clock.Now(), 16s) << "no jump, but another pace";
  EXPECT_EQ(world.Now(), 14s);
}

TEST(RestartTest, AReceiverComesBackWithItsDiskAndWithoutItsState) {
  Room room({.receivers = 1, .senderProfile = Profile::Robust, .receiverProfile = Profile::Robust});
  room.File("a", 50 * BLOCK_SIZE);
  ASSERT_TRUE(room.StartReceivers());
  ASSERT_TRUE(room.Send());
  room.World().RunFor(100ms);
  room.Receiver(0).PowerOff();
  ASSERT_TRUE(room.RestartReceiver(0));
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Idle);
  EXPECT_TRUE(room.Receiver(0).Disk().Length("C:\\in\\a"));
  EXPECT_FALSE(room.HoldsAllFiles(0));
  EXPECT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_FALSE(room.WasToldComplete(0));
  EXPECT_EQ(room.FailedReceivers().size(), 1u) << "it has not heard of this transfer";
}

}  // namespace
}  // namespace quorl::sim
