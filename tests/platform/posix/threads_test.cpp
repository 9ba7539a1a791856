#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

#include "platform/real_machine.h"
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

}  // namespace
}  // namespace quorl
