#include "platform/window_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/real_machine.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

struct Seen {
  uint32_t number;
  uintptr_t wParam;
  std::string text;
};

/// A window whose procedure records, and does what the test asks of it.
class Host {
 public:
  using Reaction = std::function<void(uint32_t number)>;

  explicit Host(Reaction reaction = {}) : reaction(std::move(reaction)) { window = queue.Create(&Host::Proc, this); }
  ~Host() { queue.Destroy(window); }

  bool Post(uint32_t number, uintptr_t wParam, std::optional<std::string> text = {}) {
    return queue.Post(window, {number, wParam, 0, std::move(text)});
  }
  std::vector<Seen> Taken() {
    const std::lock_guard lock(mutex);
    return seen;
  }

  WindowQueue& queue = static_cast<WindowQueue&>(RealMachine().windows);
  QuorlWindow window = nullptr;

 private:
  static void Proc(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
    Host& host = *static_cast<Host*>(context);
    EXPECT_EQ(host.inside.fetch_add(1), 0) << "two messages at a time";
    {
      const std::lock_guard lock(host.mutex);
      host.seen.push_back({message, wParam, lParam > 1 ? reinterpret_cast<const char*>(lParam) : ""});
    }
    if (host.reaction) host.reaction(message);
    --host.inside;
  }

  const Reaction reaction;
  std::mutex mutex;
  std::vector<Seen> seen;

 public:
  std::atomic<int> inside{0};
};

constexpr uint32_t STATUS = WM_TRANS_STATUS;
constexpr uint32_t NAME = WM_FILE_NAME;
constexpr uint32_t BLOCK = 7;  // The procedure stays in this message until the test lets it go.

/// A gate in the procedure: the test knows that it is inside, and lets it out.
struct Gate {
  std::shared_ptr<Event> entered = RealMachine().threads.MakeEvent();
  std::shared_ptr<Event> open = RealMachine().threads.MakeEvent();

  Host::Reaction Reaction() {
    return [this](uint32_t number) {
      if (number != BLOCK) return;
      entered->Set();
      open->Wait(FOREVER);
    };
  }
};

std::shared_ptr<Thread> InThread(std::function<void()> body) {
  return RealMachine().threads.Start("test", Priority::Normal, std::move(body));
}

TEST(WindowQueue, DestroyingWaitsForTheProcedureAndDropsTheRest) {
  Gate gate;
  Host host(gate.Reaction());
  const auto handled = InThread([&] { host.queue.Send(host.window, {BLOCK, 0, 0, {}}); });
  ASSERT_TRUE(gate.entered->Wait(10s));
  host.Post(STATUS, 0);
  const auto queued = InThread([&] { host.queue.Send(host.window, {STATUS, 1, 0, {}}); });
  const auto destroyer = InThread([&] { host.queue.Destroy(host.window); });
  // The senders are let go while the procedure still runs.
  EXPECT_TRUE(handled->WaitForEnd(10s));
  EXPECT_TRUE(queued->WaitForEnd(10s));
  EXPECT_FALSE(destroyer->WaitForEnd(20ms));
  EXPECT_FALSE(host.queue.IsWindow(host.window));
  gate.open->Set();
  EXPECT_TRUE(destroyer->WaitForEnd(10s));
  EXPECT_EQ(host.Taken().size(), 1u);
  EXPECT_EQ(host.inside, 0);
}

TEST(WindowQueue, TheOldestNamesMakeRoomAndTheNewestAreRefused) {
  constexpr size_t BOUND = 10'000;
  Gate gate;
  Host host(gate.Reaction());
  host.Post(BLOCK, 0);
  ASSERT_TRUE(gate.entered->Wait(10s));
  for (uintptr_t i = 0; i < BOUND + 5; ++i) EXPECT_EQ(host.Post(NAME, i, "n"), i < BOUND);
  for (uintptr_t i = 0; i < 3; ++i) EXPECT_FALSE(host.Post(STATUS, i)) << "a name is lost for it";
  gate.open->Set();
  host.queue.Send(host.window, {STATUS, 3, 0, {}});
  const auto seen = host.Taken();
  ASSERT_EQ(seen.size(), 1 + BOUND + 1);
  EXPECT_EQ(seen[1].wParam, 3u);                 // Names 0 to 2 made room for three statuses.
  EXPECT_EQ(seen[BOUND - 3].wParam, BOUND - 1);  // The last that was queued before it was full.
  EXPECT_EQ(seen[BOUND - 2].number, STATUS);
}

TEST(WindowQueue, ManyThreadsAndADestroyAtAnyMoment) {
  for (int round = 0; round < 50; ++round) {
    Host host;
    std::vector<std::shared_ptr<Thread>> threads;
    for (int i = 0; i < 3; ++i)
      threads.push_back(InThread([&host, i] {
        for (uintptr_t n = 0; n < 50; ++n) {
          host.Post(NAME, n, "text");
          if (i == 0) host.queue.Send(host.window, {STATUS, n, 0, {}});
        }
      }));
    threads.push_back(InThread([&host] { host.queue.Destroy(host.window); }));
    for (const auto& thread : threads) ASSERT_TRUE(thread->WaitForEnd(10s));
    EXPECT_EQ(host.inside, 0);
  }
}

}  // namespace
}  // namespace quorl
