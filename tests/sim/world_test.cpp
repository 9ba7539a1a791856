// Threads, events and time of a simulated world.
#include "sim/world.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "protocol/endpoints.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct WorldTest : testing::Test {
  World world{1};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  const Machine& seam = machine.Seam();
};

TEST_F(WorldTest, TimePassesOnlyInWaitsAndThreadsTakeTurnsInOrderOfTheirDeadlines) {
  std::vector<std::pair<std::string, Moment>> steps;
  const auto sleeper = [&](std::string name, Duration pause) {
    machine.Spawn(name, [&, name, pause] {
      for (int step = 0; step < 3; ++step) {
        seam.clock.Sleep(pause);
        steps.emplace_back(name, seam.clock.Now());
      }
    });
  };
  sleeper("a", 20ms);
  sleeper("b", 30ms);
  world.RunFor(1h);
  // Both are due at 60 ms; b went to sleep earlier.
  const std::vector<std::pair<std::string, Moment>> expected = {{"a", 20ms}, {"b", 30ms}, {"a", 40ms},
                                                                {"b", 60ms}, {"a", 60ms}, {"b", 90ms}};
  EXPECT_EQ(steps, expected);
  EXPECT_EQ(world.Now(), 1h);
}

TEST_F(WorldTest, AnEventReleasesEverybodyWhoWaitsAndStaysSet) {
  const auto event = seam.threads.MakeEvent();
  int released = 0;
  bool tooEarly = true;
  for (int waiter = 0; waiter < 3; ++waiter) machine.Spawn("waiter", [&] { released += event->Wait(FOREVER); });
  machine.Spawn("impatient", [&] { tooEarly = event->Wait(5ms); });
  machine.Spawn("setter", [&] {
    seam.clock.Sleep(10ms);
    event->Set();
  });
  EXPECT_TRUE(world.RunUntil([&] { return released == 3; }, 1h));
  EXPECT_EQ(world.Now(), 10ms);
  EXPECT_FALSE(tooEarly);
  machine.Call([&] { EXPECT_TRUE(event->Wait(0ms)); });
  event->Reset();
  machine.Call([&] { EXPECT_FALSE(event->Wait(3ms)); });
  EXPECT_EQ(world.Now(), 13ms);
}

TEST_F(WorldTest, AThreadKnowsItselfAndItsEndCanBeAwaited) {
  auto held = std::make_shared<int>(0);
  std::shared_ptr<Thread> thread;
  machine.Call([&] {
    thread = seam.threads.Start("worker", Priority::AboveNormal, [&, held] {
      EXPECT_TRUE(thread->IsCurrent());
      EXPECT_FALSE(thread->WaitForEnd(1s)) << "waiting for oneself";
      seam.clock.Sleep(50ms);
    });
    EXPECT_FALSE(thread->IsCurrent());
    EXPECT_FALSE(thread->WaitForEnd(20ms));
    EXPECT_TRUE(thread->WaitForEnd(FOREVER));
    EXPECT_EQ(seam.clock.Now(), 50ms);
  });
  EXPECT_EQ(held.use_count(), 1) << "what the body holds is released when it has returned";
  EXPECT_NE(world.EventLog().find("0 pc1 thread worker starts above normal\n"), std::string::npos);
  EXPECT_NE(world.EventLog().find("50000000 pc1 thread worker ends\n"), std::string::npos);
}

TEST_F(WorldTest, TheTestItselfMayWaitAndTheWorldRunsMeanwhile) {
  const auto event = seam.threads.MakeEvent();
  machine.Spawn("setter", [&] {
    seam.clock.Sleep(7ms);
    event->Set();
  });
  EXPECT_TRUE(event->Wait(1s));
  EXPECT_EQ(world.Now(), 7ms);
  seam.clock.Sleep(3ms);
  EXPECT_EQ(world.Now(), 10ms);
}

TEST_F(WorldTest, RunUntilStopsAtTheLimitOrWhenNothingCanEverHappen) {
  const auto never = seam.threads.MakeEvent();
  machine.Spawn("stuck", [&] { never->Wait(FOREVER); });
  EXPECT_FALSE(world.RunUntil([] { return false; }, FOREVER));
  EXPECT_EQ(world.Now(), 0ms);
  machine.Spawn("ticking", [&] {
    while (!never->Wait(10ms)) {
    }
  });
  EXPECT_FALSE(world.RunUntil([] { return false; }, 95ms));
  EXPECT_EQ(world.Now(), 95ms);
  never->Set();
  world.RunFor(0ms);
  EXPECT_EQ(machine.RunningThreads(), 0u);
  never->Reset();
  EXPECT_THROW(machine.Call([&] { never->Wait(FOREVER); }), std::logic_error);
}

TEST_F(WorldTest, ExceptionsOfThreadsThatTakeTurnsDoNotMix) {
  std::vector<std::string> caught;
  const auto thrower = [&](const std::string& text) {
    machine.Spawn(text, [&, text] {
      try {
        throw std::runtime_error(text);
      } catch (const std::exception&) {
        seam.clock.Sleep(10ms);
        try {
          throw;
        } catch (const std::exception& again) {
          caught.emplace_back(again.what());
        }
      }
    });
  };
  thrower("first");
  seam.clock.Sleep(5ms);
  thrower("second");
  world.RunFor(1s);
  EXPECT_EQ(caught, (std::vector<std::string>{"first", "second"}));
}

TEST_F(WorldTest, ManyThreadsComeAndGo) {
  int ended = 0;
  machine.Call([&] {
    for (int round = 0; round < 20; ++round) {
      std::vector<std::shared_ptr<Thread>> threads;
      for (int index = 0; index < 50; ++index) {
        threads.push_back(seam.threads.Start("one of many", Priority::Normal, [&, index] {
          seam.clock.Sleep(std::chrono::milliseconds(index % 7));
          ++ended;
        }));
      }
      for (const auto& thread : threads) EXPECT_TRUE(thread->WaitForEnd(1s));
    }
  });
  EXPECT_EQ(ended, 1000);
}

TEST_F(WorldTest, CallsFailWhereTheTestSaysSo) {
  machine.FailCall(Seam::Threads, 2);
  EXPECT_NE(seam.threads.MakeEvent(), nullptr);
  EXPECT_EQ(seam.threads.Start("never", Priority::Normal, [] { FAIL(); }), nullptr);
  EXPECT_NE(seam.threads.MakeEvent(), nullptr);
  EXPECT_EQ(machine.Calls(Seam::Threads), 3u);

  machine.FailEvery([](std::string_view call) { return call == "network.bind"; });
  const auto socket = seam.network.OpenDatagramSocket();
  EXPECT_FALSE(socket->Bind({0, 1000}));
  EXPECT_TRUE(socket->SetReuseAddress());
  machine.FailEvery(nullptr);
  EXPECT_TRUE(socket->Bind({0, 1000}));
  world.RunFor(1s);
}

}  // namespace
}  // namespace quorl::sim
