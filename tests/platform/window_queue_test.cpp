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

  void Post(uint32_t number, uintptr_t wParam, std::optional<std::string> text = {}) {
    queue.Post(window, {number, wParam, 0, std::move(text)});
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
    EXPECT_EQ(host.inside.fetch_add(1), host.nested.load()) << "two messages at a time";
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
  std::atomic<int> nested{0};
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

TEST(WindowQueue, HandsMessagesOverInOrderWithTextsOfTheirOwn) {
  Host host;
  for (uintptr_t i = 0; i < 500; ++i) {
    std::string text = "name " + std::to_string(i);
    host.Post(NAME, i, text);
    text.assign(text.size(), 'x');
  }
  host.queue.Send(host.window, {STATUS, 500, 0, "last"});
  const auto seen = host.Taken();
  ASSERT_EQ(seen.size(), 501u);
  for (uintptr_t i = 0; i < 500; ++i) {
    EXPECT_EQ(seen[i].wParam, i);
    EXPECT_EQ(seen[i].text, "name " + std::to_string(i));
  }
  EXPECT_EQ(seen.back().text, "last");
}

TEST(WindowQueue, SendReturnsOnlyWhenTheProcedureHas) {
  Gate gate;
  Host host(gate.Reaction());
  std::atomic<bool> returned{false};
  const auto sender = InThread([&] {
    host.queue.Send(host.window, {BLOCK, 0, 0, {}});
    returned = true;
  });
  ASSERT_TRUE(gate.entered->Wait(10s));
  EXPECT_FALSE(sender->WaitForEnd(20ms));
  EXPECT_FALSE(returned);
  gate.open->Set();
  EXPECT_TRUE(sender->WaitForEnd(10s));
}

TEST(WindowQueue, SendFromTheProcedureIsHandledAtOnce) {
  Host* self = nullptr;
  Host host([&](uint32_t number) {
    if (number != STATUS) return;
    ++self->nested;
    self->queue.Send(self->window, {NAME, 2, 0, {}});
    --self->nested;
    EXPECT_EQ(self->Taken().size(), 2u);
  });
  self = &host;
  host.queue.Send(host.window, {STATUS, 1, 0, {}});
  EXPECT_EQ(host.Taken().size(), 2u);
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

TEST(WindowQueue, TheProcedureMayDestroyItsOwnWindow) {
  Host* self = nullptr;
  Host host([&](uint32_t) {
    self->queue.Destroy(self->window);
    EXPECT_FALSE(self->queue.IsWindow(self->window));
  });
  self = &host;
  host.queue.Send(host.window, {STATUS, 0, 0, {}});
  host.Post(STATUS, 1);
  host.queue.Destroy(host.window);  // Waits until the procedure has returned.
  EXPECT_EQ(host.inside, 0);
  EXPECT_EQ(host.Taken().size(), 1u);
}

TEST(WindowQueue, HandlesOfNoWindowAreIgnoredAndNeverComeBack) {
  auto gone = std::make_unique<Host>();
  WindowQueue& queue = gone->queue;
  const QuorlWindow old = gone->window;
  gone.reset();
  Host host;
  EXPECT_NE(host.window, old);
  for (const QuorlWindow window : {old, QuorlWindow{nullptr}, static_cast<QuorlWindow>(&host)}) {
    EXPECT_FALSE(queue.IsWindow(window));
    queue.Post(window, {STATUS, 0, 0, {}});
    queue.Send(window, {STATUS, 0, 0, {}});
    queue.Destroy(window);
  }
  EXPECT_TRUE(host.Taken().empty());
  EXPECT_TRUE(queue.IsWindow(host.window));
  EXPECT_EQ(queue.Create(nullptr, nullptr), nullptr);
}

TEST(WindowQueue, AFullQueueLosesNamesAndNeverAStatus) {
  constexpr size_t BOUND = 10'000;
  Gate gate;
  Host host(gate.Reaction());
  host.Post(BLOCK, 0);
  ASSERT_TRUE(gate.entered->Wait(10s));
  for (uintptr_t i = 0; i < BOUND + 100; ++i) host.Post(NAME, i, "n");
  for (uintptr_t i = 0; i < BOUND + 50; ++i) host.Post(STATUS, i);
  host.Post(NAME, 0, "too late");
  gate.open->Set();
  host.queue.Send(host.window, {STATUS, BOUND + 50, 0, {}});

  uintptr_t nextStatus = 0;
  size_t names = 0;
  for (const Seen& seen : host.Taken()) {
    names += seen.number == NAME;
    if (seen.number != STATUS) continue;
    EXPECT_EQ(seen.wParam, nextStatus);
    ++nextStatus;
  }
  EXPECT_EQ(nextStatus, BOUND + 51);
  EXPECT_EQ(names, 0u);
}

TEST(WindowQueue, TheOldestNamesMakeRoomAndTheNewestAreRefused) {
  constexpr size_t BOUND = 10'000;
  Gate gate;
  Host host(gate.Reaction());
  host.Post(BLOCK, 0);
  ASSERT_TRUE(gate.entered->Wait(10s));
  for (uintptr_t i = 0; i < BOUND + 5; ++i) host.Post(NAME, i, "n");
  for (uintptr_t i = 0; i < 3; ++i) host.Post(STATUS, i);
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
        for (uintptr_t n = 0; n < 50; ++n)
          i == 0 ? host.queue.Send(host.window, {STATUS, n, 0, {}}) : host.Post(NAME, n, "text");
      }));
    threads.push_back(InThread([&host] { host.queue.Destroy(host.window); }));
    for (const auto& thread : threads) ASSERT_TRUE(thread->WaitForEnd(10s));
    EXPECT_EQ(host.inside, 0);
  }
}

}  // namespace
}  // namespace quorl
