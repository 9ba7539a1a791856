// What becomes of a machine's threads, sockets and windows when its power goes, and of its windows before.
#include <gtest/gtest.h>

#include "protocol/endpoints.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

struct Counter {
  explicit Counter(int& counted) : count(counted) { ++count; }
  ~Counter() { --count; }
  int& count;
};

struct PowerTest : testing::Test {
  World world{1};
  SimMachine& machine = world.AddMachine("pc1", Ipv4(10, 0, 0, 1));
  const Machine& seam = machine.Seam();
};

TEST_F(PowerTest, EveryThreadIsUnwoundAtItsWait) {
  int alive = 0;
  bool wentOn = false;
  const auto event = seam.threads.MakeEvent();
  const auto socket = seam.network.OpenDatagramSocket();
  ASSERT_TRUE(socket->Bind({0, 5000}));
  const auto waits = [&](std::function<void()> wait) {
    machine.Spawn("waits", [&, wait] {
      const Counter counter(alive);
      wait();
      wentOn = true;
    });
  };
  waits([&] { seam.clock.Sleep(1h); });
  waits([&] { event->Wait(FOREVER); });
  waits([&] {
    while (!event->Wait(10ms)) {
    }
  });
  waits([&] {
    uint8_t byte;
    socket->Receive({&byte, 1}, FOREVER, event.get());
  });
  waits([&] {
    seam.threads.Start("inner", Priority::Normal, [&] { seam.clock.Sleep(1h); })->WaitForEnd(2h);
    wentOn = false;
    seam.clock.Sleep(1h);
  });
  world.RunFor(1s);
  EXPECT_EQ(alive, 5);
  machine.PowerOff();
  world.RunFor(0ms);
  EXPECT_EQ(alive, 0);
  EXPECT_FALSE(wentOn);
  EXPECT_EQ(machine.RunningThreads(), 0u);
  EXPECT_EQ(machine.OpenSockets(), 0u);
  EXPECT_EQ(world.Now(), 1s);
}

TEST_F(PowerTest, CodeThatRunsWithoutPowerFailsHarmlessly) {
  struct TearDown {
    const Machine& seam;
    std::shared_ptr<DatagramSocket> socket;
    bool& over;
    ~TearDown() {
      const uint8_t byte = 1;
      EXPECT_FALSE(socket->Send({&byte, 1}, {Ipv4(10, 0, 0, 1), 5000}));
      EXPECT_EQ(seam.threads.MakeEvent(), nullptr);
      EXPECT_EQ(seam.network.OpenDatagramSocket(), nullptr);
      EXPECT_EQ(seam.files.OpenInput("C:\\a"), nullptr);
      seam.clock.Sleep(1h);
      over = true;
    }
  };
  machine.Disk().Write("C:\\a", "text");
  bool over = false;
  bool destructorOver = false;
  machine.Spawn("unwound", [&] {
    const TearDown tearDown{seam, seam.network.OpenDatagramSocket(), over};
    seam.clock.Sleep(1h);
  });
  machine.Spawn("in a destructor", [&] {
    const auto done = seam.threads.MakeEvent();
    struct Waits {
      std::shared_ptr<Event> done;
      bool& over;
      ~Waits() {
        for (int wait = 0; wait < 3; ++wait) EXPECT_FALSE(done->Wait(5s));
        over = true;
      }
    };
    const Waits waits{done, destructorOver};
  });
  world.RunFor(1s);
  machine.PowerOff();
  world.RunFor(0ms);
  EXPECT_TRUE(over);
  EXPECT_TRUE(destructorOver);
  EXPECT_EQ(machine.RunningThreads(), 0u);
  EXPECT_EQ(machine.Disk().Tree("C:").size(), 1u) << "the disk keeps what was written";
  machine.Spawn("too late", [] { FAIL(); });
  world.RunFor(1s);
}

TEST_F(PowerTest, AWorldThatEndsUnwindsEverything) {
  int alive = 0;
  {
    World other(2);
    for (uint8_t index = 1; index <= 3; ++index) {
      SimMachine& one = other.AddMachine("pc", Ipv4(10, 0, 0, index));
      one.Spawn("sleeps", [&] {
        const Counter counter(alive);
        one.Seam().clock.Sleep(1h);
      });
      one.Spawn("never ran", [counter = std::make_shared<Counter>(alive)] { FAIL() << counter->count; });
      other.RunUntil([] { return true; }, 0ms);
      EXPECT_GT(alive, 0);
    }
  }
  EXPECT_EQ(alive, 0);
}

TEST_F(PowerTest, WindowsRecordWhatTheyGet) {
  const QuorlWindow plain = machine.MakeWindow();
  std::vector<std::string> handled;
  const QuorlWindow slow = machine.MakeWindow([&](uint32_t message, uintptr_t wParam, intptr_t lParam) {
    seam.clock.Sleep(10ms);
    handled.push_back(std::to_string(message) + (wParam == 7 ? reinterpret_cast<const char*>(lParam) : ""));
  });
  machine.Call([&] {
    seam.windows.Post(plain, {WM_TASK_INFO, 1, 2, {}});
    seam.windows.Post(slow, {WM_FILE_NAME, 7, 0, " name"});
    EXPECT_EQ(seam.clock.Now(), 0ms);
    seam.windows.Send(slow, {WM_TRANS_STATUS, 0, 0, {}});
    EXPECT_EQ(seam.clock.Now(), 20ms);
    seam.windows.Send(plain, {WM_TRANS_STATUS, 0, 0, "C:\\a"});
    seam.windows.Post(nullptr, {WM_TRANS_STATUS, 9, 0, {}});
  });
  const std::vector<RecordedMessage> expected = {{0ms, WM_TASK_INFO, 1, 2, "", false},
                                                 {0ms, WM_FILE_NAME, 7, -1, " name", false},
                                                 {0ms, WM_TRANS_STATUS, 0, 0, "", true},
                                                 {20ms, WM_TRANS_STATUS, 0, -1, "C:\\a", true}};
  EXPECT_EQ(machine.Messages(), expected);
  EXPECT_EQ(handled, (std::vector<std::string>{"1042 name", "1040"}));

  machine.DestroyWindow(slow);
  EXPECT_FALSE(seam.windows.IsWindow(slow));
  EXPECT_TRUE(seam.windows.IsWindow(plain));
  seam.windows.Post(slow, {WM_TASK_INFO, 1, 2, {}});
  machine.PowerOff();
  seam.windows.Post(plain, {WM_TASK_INFO, 1, 2, {}});
  EXPECT_EQ(machine.Messages().size(), expected.size());
}

}  // namespace
}  // namespace quorl::sim
