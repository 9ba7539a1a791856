#include "platform/window_queue.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/real_machine.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t STATUS = WM_TRANS_STATUS;
constexpr uint32_t NAME = WM_FILE_NAME;
constexpr uint32_t BLOCK = 7;  // The procedure stays in this message until the test lets it go.

/// Number and wParam.
using Seen = std::pair<uint32_t, uintptr_t>;

/// A window whose procedure records.
class Host {
 public:
  Host() { window = queue.Create(&Host::Proc, this); }
  ~Host() { queue.Destroy(window); }

  bool Post(uint32_t number, uintptr_t wParam) { return queue.Post(window, {number, wParam, 0, "text"}); }
  void Send(uint32_t number, uintptr_t wParam) { queue.Send(window, {number, wParam, 0, {}}); }

  WindowQueue& queue = static_cast<WindowQueue&>(RealMachine().windows);
  QuorlWindow window = nullptr;
  const std::shared_ptr<Event> entered = RealMachine().threads.MakeEvent();
  const std::shared_ptr<Event> open = RealMachine().threads.MakeEvent();
  std::vector<Seen> seen;  ///< To be read when a message that was sent is done, or the window gone.

 private:
  static void Proc(void* context, uint32_t message, uintptr_t wParam, intptr_t) {
    Host& host = *static_cast<Host*>(context);
    host.seen.emplace_back(message, wParam);
    if (message != BLOCK) return;
    host.entered->Set();
    host.open->Wait(FOREVER);
  }
};

std::shared_ptr<Thread> InThread(std::function<void()> body) {
  return RealMachine().threads.Start("test", Priority::Normal, std::move(body));
}

TEST(WindowQueue, DestroyingWaitsForTheProcedureAndDropsTheRest) {
  Host host;
  const auto handled = InThread([&] { host.Send(BLOCK, 0); });
  ASSERT_TRUE(host.entered->Wait(10s));
  host.Post(STATUS, 0);
  const auto queued = InThread([&] { host.Send(STATUS, 1); });
  EXPECT_FALSE(queued->WaitForEnd(20ms));
  const auto destroyer = InThread([&] { host.queue.Destroy(host.window); });
  // The senders are let go while the procedure still runs.
  EXPECT_TRUE(handled->WaitForEnd(10s));
  EXPECT_TRUE(queued->WaitForEnd(10s));
  EXPECT_FALSE(destroyer->WaitForEnd(20ms));
  EXPECT_FALSE(host.queue.IsWindow(host.window));
  host.open->Set();
  EXPECT_TRUE(destroyer->WaitForEnd(10s));
  EXPECT_EQ(host.seen, (std::vector<Seen>{{BLOCK, 0}}));
}

TEST(WindowQueue, TheOldestNamesMakeRoomAndTheNewestAreRefused) {
  constexpr size_t BOUND = 10'000;
  Host host;
  host.Post(BLOCK, 0);
  ASSERT_TRUE(host.entered->Wait(10s));
  for (uintptr_t i = 0; i < BOUND + 5; ++i) EXPECT_EQ(host.Post(NAME, i), i < BOUND);
  for (uintptr_t i = 0; i < 3; ++i) EXPECT_FALSE(host.Post(STATUS, i)) << "a name is lost for it";
  host.open->Set();
  host.Send(STATUS, 3);
  ASSERT_EQ(host.seen.size(), 1 + BOUND + 1);
  EXPECT_EQ(host.seen[1], Seen(NAME, 3)) << "names 0 to 2 made room for three statuses";
  EXPECT_EQ(host.seen[BOUND - 3], Seen(NAME, BOUND - 1)) << "the last that was queued before it was full";
  EXPECT_EQ(host.seen[BOUND - 2], Seen(STATUS, 0));
  // The names are gone: statuses alone fill the queue, and none of them is lost.
  host.open->Reset();
  host.entered->Reset();
  host.Post(BLOCK, 0);
  ASSERT_TRUE(host.entered->Wait(10s));
  host.seen.clear();
  for (uintptr_t i = 0; i < BOUND + 5; ++i) host.Post(STATUS, i);
  host.open->Set();
  host.Send(STATUS, BOUND + 5);
  EXPECT_EQ(host.seen.size(), BOUND + 6);
}

}  // namespace
}  // namespace quorl
