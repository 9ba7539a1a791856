// Power, time, and runs that repeat.
#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/room.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct MachineTest : testing::Test {
  World world{1};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  const Machine& seam = machine.Seam();
};

TEST_F(MachineTest, WithoutPowerEveryThreadIsUnwoundAtItsWaitAndNothingSucceeds) {
  const auto event = seam.threads.MakeEvent();
  const std::shared_ptr<DatagramSocket> socket = seam.network.OpenDatagramSocket();
  ASSERT_TRUE(socket->Bind({0, 5000}));
  int failedAtEnd = 0;
  bool wentOn = false;
  struct TearDown {
    const Machine& seam;
    int& failed;
    ~TearDown() { failed += !seam.threads.MakeEvent() && !seam.network.OpenDatagramSocket() ? 1 : 0; }
  };
  const auto waits = [&](std::function<void()> wait) {
    machine.Spawn("waits", [&, wait] {
      const TearDown tearDown{seam, failedAtEnd};
      wait();
      wentOn = true;
    });
  };
  uint8_t byte = 0;
  waits([&] { seam.clock.Sleep(1h); });
  waits([&] { event->Wait(FOREVER); });
  waits([&] { socket->Receive({&byte, 1}, FOREVER, event.get()); });
  waits([&] {
    while (!event->Wait(10ms)) continue;
  });
  world.RunFor(1s);
  EXPECT_EQ(machine.RunningThreads(), 4u);
  machine.PowerOff();
  world.RunFor(0ms);
  EXPECT_EQ(machine.RunningThreads() + machine.OpenSockets(), 0u);
  EXPECT_EQ(failedAtEnd, 4);
  EXPECT_FALSE(wentOn);
}

TEST_F(MachineTest, ADriftingClockMeasuresWaitsByItself) {
  machine.SetClockDrift(250'000);
  world.RunFor(4s);
  machine.Call([&] { seam.clock.Sleep(10s); });
  EXPECT_EQ(seam.clock.Now(), 15s);
  EXPECT_EQ(world.Now(), 12s);
  machine.SetClockDrift(-500'000);
  machine.Call([&] { EXPECT_FALSE(seam.threads.MakeEvent()->Wait(1s)); });
  EXPECT_EQ(seam.clock.Now(), 16s) << "no jump, but another pace";
  EXPECT_EQ(world.Now(), 14s);
}

TEST(Determinism, TheSameSeedGivesTheSameTransferToTheLastDatagram) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    const auto run = [profile](uint64_t seed) {
      Room room({2, seed, profile, profile});
      room.Net().SetLink({.jitter = 2ms, .reorder = 0.1, .loss = 0.05});
      room.File("a.bin", 100'000);
      EXPECT_TRUE(room.StartReceivers());
      room.Send();
      room.RunUntilQuiet(120s);
      return room.World().EventLog();
    };
    const std::string log = run(7);
    EXPECT_NE(log.find(" lost "), std::string::npos);
    // Another layout of the heap must not show.
    std::vector<std::unique_ptr<World>> clutter;
    for (int count = 0; count < 20; ++count) clutter.push_back(std::make_unique<World>(1));
    EXPECT_EQ(run(7), log);
    EXPECT_NE(run(8), log);
  }
}

}  // namespace
}  // namespace quorl::sim
