// Threads and descriptors of this system, and the queue behind the windows of hosts.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>
#include <csignal>

#include "platform/real_machine.h"
#include "platform/window_queue.h"
#include "tests/platform/host_window.h"
#include "tests/platform/temp_directory.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(PosixThreads, SignalsStayWithTheHostAndShortenNoSleep) {
  static volatile std::sig_atomic_t caught = 0;
  std::signal(SIGALRM, [](int) { caught = 1; });
  EXPECT_TRUE(RealMachine().threads.Start("body", Priority::Normal, [] {})->WaitForEnd(10s));
  const itimerval soon{{0, 0}, {0, 10'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
  const Moment before = RealMachine().clock.Now();
  RealMachine().clock.Sleep(60ms);
  EXPECT_GE(RealMachine().clock.Now() - before, 60ms);
  EXPECT_EQ(caught, 1);
  std::signal(SIGALRM, SIG_DFL);
}

/// The nice value of a thread of that priority that is started here.
int NiceOf(Priority priority) {
  int nice = 0;
  const auto thread = RealMachine().threads.Start(
      "nice", priority, [&] { nice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); });
  EXPECT_TRUE(thread->WaitForEnd(10s));
  return nice;
}

TEST(PosixThreads, ANormalOneThatARaisedOneStartsIsNotRaised) {
  const int here = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
  const int raised = NiceOf(Priority::AboveNormal);
  EXPECT_LE(raised, here);
  const auto thread = RealMachine().threads.Start("raised", Priority::AboveNormal, [&] {
    EXPECT_EQ(NiceOf(Priority::Normal), here);
    EXPECT_EQ(NiceOf(Priority::AboveNormal), raised) << "one step is all";
  });
  EXPECT_TRUE(thread->WaitForEnd(10s));
}

/// How many of the things that need a descriptor could be made.
int MakeOneOfEach(const std::string& base) {
  const Machine& machine = RealMachine();
  const bool event = machine.threads.MakeEvent() != nullptr;
  const auto thread = machine.threads.Start("one", Priority::Normal, [] {});
  const bool socket = machine.network.OpenDatagramSocket() != nullptr;
  const QuorlWindow window = CreateHostWindow([](void*, uint32_t, uintptr_t, intptr_t) {}, nullptr);
  const bool output =
      machine.files.OpenOutput(base, RelativePath::FromText("file").value(), WhenMissing::Create).file != nullptr;
  DestroyHostWindow(window);
  EXPECT_TRUE(!thread || thread->WaitForEnd(10s));
  return event + (thread != nullptr) + socket + (window != nullptr) + output;
}

TEST(PosixThreads, WithoutDescriptorsNothingIsMadeAndNothingBreaks) {
  const TempDirectory temp;
  const std::string base = DrivePathOf(temp.Path()).value();
  EXPECT_EQ(MakeOneOfEach(base), 5);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int made = MakeOneOfEach(base);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(MakeOneOfEach(base), 5);
}

constexpr uint32_t STATUS = WM_TRANS_STATUS;
constexpr uint32_t NAME = WM_FILE_NAME;

TEST(WindowQueue, WhoWaitsForAWindowThatIsDestroyedIsLetGoWhileItsProcedureRuns) {
  RecordingWindow host;
  const auto handled = InThread([&] { host.Send(RecordingWindow::STAY); });
  ASSERT_TRUE(host.entered->Wait(10s));
  const auto queued = InThread([&] { host.Send(1); });
  EXPECT_FALSE(queued->WaitForEnd(20ms));
  const auto destroyer = InThread([&] { DestroyHostWindow(host.window); });
  EXPECT_TRUE(handled->WaitForEnd(10s) && queued->WaitForEnd(10s));
  EXPECT_FALSE(destroyer->WaitForEnd(20ms));
  host.open->Set();
  EXPECT_TRUE(destroyer->WaitForEnd(10s));
}

TEST(WindowQueue, TheOldestNamesMakeRoomAndTheNewestAreRefused) {
  constexpr size_t BOUND = 10'000;
  RecordingWindow host;
  host.Post(RecordingWindow::STAY);
  ASSERT_TRUE(host.entered->Wait(10s));
  for (uintptr_t i = 0; i < BOUND + 5; ++i) EXPECT_EQ(host.Post(i, NAME), i < BOUND);
  for (uintptr_t i = 0; i < 3; ++i) EXPECT_FALSE(host.Post(i)) << "a name is lost for it";
  host.open->Set();
  host.Send(3);
  ASSERT_EQ(host.seen.size(), 1 + BOUND + 1);
  EXPECT_EQ(host.seen[1], std::pair(NAME, uintptr_t{3})) << "names 0 to 2 made room for three statuses";
  EXPECT_EQ(host.seen[BOUND - 3], std::pair(NAME, uintptr_t{BOUND - 1}))
      << "the last that was queued before it was full";
  EXPECT_EQ(host.seen[BOUND - 2], std::pair(STATUS, uintptr_t{0}));
  // The names are gone: statuses alone fill the queue, and none of them is lost.
  host.open->Reset();
  host.entered->Reset();
  host.Post(RecordingWindow::STAY);
  ASSERT_TRUE(host.entered->Wait(10s));
  host.seen.clear();
  for (uintptr_t i = 0; i < BOUND + 5; ++i) host.Post(i);
  host.open->Set();
  host.Send(BOUND + 5);
  EXPECT_EQ(host.seen.size(), BOUND + 6);
}

}  // namespace
}  // namespace quorl
