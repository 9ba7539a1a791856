#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <array>
#include <atomic>
#include <vector>

#include "platform/real_machine.h"
#include "temp_directory.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

class ThreadsTest : public testing::Test {
 protected:
  Threads& threads = RealMachine().threads;
  Clock& clock = RealMachine().clock;
};

TEST_F(ThreadsTest, WhatTheBodyHeldIsGoneWhenTheEndIsReported) {
  for (int i = 0; i < 200; ++i) {
    auto held = std::make_shared<int>(i);
    const std::weak_ptr<int> watch = held;
    const auto thread = threads.Start("body", Priority::AboveNormal, [held = std::move(held)] {});
    ASSERT_TRUE(thread->WaitForEnd(10s));
    EXPECT_TRUE(watch.expired());
  }
}

TEST_F(ThreadsTest, AThreadHasItsNameAndLeavesSignalsToTheHost) {
  std::string name;
  bool blocked = false;
  const auto thread = threads.Start("fifteen letters", Priority::Normal, [&] {
    char text[16] = "";
    pthread_getname_np(pthread_self(), text, sizeof text);
    name = text;
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked = sigismember(&mask, SIGINT) == 1 && sigismember(&mask, SIGTERM) == 1;
  });
  ASSERT_TRUE(thread->WaitForEnd(10s));
  EXPECT_EQ(name, "fifteen letters");
  EXPECT_TRUE(blocked);
}

/// Signals that come every millisecond to the thread of the test.
class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++count; };
    sigaction(SIGALRM, &action, &before);
    const itimerval every{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }
  ~SignalStorm() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
  }
  static inline std::atomic<int> count{0};

 private:
  struct sigaction before {};
};

TEST_F(ThreadsTest, SignalsOfTheHostNeitherShortenNorEndAWait) {
  const auto event = threads.MakeEvent();
  const auto socket = RealMachine().network.OpenDatagramSocket();
  ASSERT_TRUE(socket->Bind({0, 0}));
  std::array<uint8_t, 16> buffer{};
  const SignalStorm storm;
  const Moment start = clock.Now();
  clock.Sleep(30ms);
  EXPECT_GE(clock.Now() - start, 30ms);
  EXPECT_FALSE(event->Wait(30ms));
  EXPECT_GE(clock.Now() - start, 60ms);
  EXPECT_EQ(socket->Receive(buffer, 30ms, nullptr).outcome, Received::Outcome::TimedOut);
  EXPECT_GE(clock.Now() - start, 90ms);
  EXPECT_GT(SignalStorm::count, 0);
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

TEST_F(ThreadsTest, WithoutDescriptorsNothingIsMadeAndNothingBreaks) {
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
