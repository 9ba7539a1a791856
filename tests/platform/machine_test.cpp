#include <gtest/gtest.h>

#include "platform/real_machine.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(Threads, WhatTheBodyHeldIsGoneWhenTheEndIsReported) {
  for (int i = 0; i < 200; ++i) {
    auto held = std::make_shared<int>(i);
    const std::weak_ptr<int> watch = held;
    const auto thread = RealMachine().threads.Start("body", Priority::AboveNormal, [held = std::move(held)] {});
    ASSERT_TRUE(thread->WaitForEnd(10s));
    EXPECT_TRUE(watch.expired());
  }
}

TEST(Clock, PausesEndInTimeAndNeverEarly) {
  Clock& clock = RealMachine().clock;
  const Moment start = clock.Now();
  for (int i = 1; i <= 30; ++i) {
    clock.SleepUntil(start + i * 10ms);
    EXPECT_GE(clock.Now(), start + i * 10ms);
  }
  EXPECT_LT(clock.Now(), start + 400ms) << "ticks of 15.6 ms, which some systems have, would make 450 of them";
}

}  // namespace
}  // namespace quorl
