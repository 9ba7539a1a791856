// Power and time.
#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/world.h"

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

}  // namespace
}  // namespace quorl::sim
