// Threads, clock, windows and sockets of this machine.
#include <array>
#include <functional>

#include "tests/platform/host_window.h"
#include "tests/platform/room.h"

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

TEST(HostWindows, DestroyingWaitsForTheProcedureAndDropsTheRest) {
  RecordingWindow host;
  host.Send(0);
  EXPECT_EQ(host.seen.size(), 1u) << "a sent one is handled when Send returns";
  host.Post(RecordingWindow::STAY);
  ASSERT_TRUE(host.entered->Wait(10s));
  host.Post(1);
  const auto destroyer = InThread([&] { DestroyHostWindow(host.window); });
  EXPECT_FALSE(destroyer->WaitForEnd(20ms)) << "the procedure still runs";
  host.open->Set();
  EXPECT_TRUE(destroyer->WaitForEnd(10s));
  EXPECT_FALSE(host.windows.IsWindow(host.window));
  EXPECT_EQ(host.seen.size(), 2u);
  EXPECT_EQ(CreateHostWindow(nullptr, nullptr), nullptr);
}

TEST(HostWindows, OneThatItsOwnProcedureDestroysDropsWhatIsQueued) {
  RecordingWindow host;
  for (const uintptr_t what : {RecordingWindow::STAY, RecordingWindow::DESTROY, uintptr_t{3}}) host.Post(what);
  host.open->Set();
  for (int i = 0; i < 1000 && host.windows.IsWindow(host.window); ++i) RealMachine().clock.Sleep(10ms);
  EXPECT_FALSE(host.windows.IsWindow(host.window));
  EXPECT_EQ(host.seen.size(), 2u);
}

TEST(DatagramSocket, HearsItsGroupAndItsAddressAndCutsWhatIsTooLong) {
  const auto member = OpenMember(Loopback(2));
  const auto sender = OpenMember(Loopback(1), 0);
  for (const uint32_t to : {GROUP, Loopback(2)}) {
    ASSERT_TRUE(sender->Send(Bytes(4796), {to, PORT}));
    const Received got = Take(*member);
    EXPECT_EQ(got.length, 4796u);
    EXPECT_EQ(got.from.address, Loopback(1));
    ASSERT_TRUE(member->Send(Bytes(3), got.from));
    EXPECT_EQ(Take(*sender).length, 3u);
  }
  ASSERT_TRUE(sender->Send(Bytes(4796), {GROUP, PORT}));
  ASSERT_TRUE(sender->Send(Bytes(4), {GROUP, PORT}));
  std::array<uint8_t, 3> start{};
  EXPECT_EQ(member->Receive(start, 5s, nullptr).length, 3u);
  EXPECT_EQ(Take(*member).length, 4u) << "the rest of the long one is gone";
  ASSERT_TRUE(sender->Send(Bytes(4), {Loopback(2), static_cast<uint16_t>(PORT + 1)}));
  EXPECT_EQ(Take(*sender, 20ms).outcome, Outcome::TimedOut) << "nobody is there, which is no failure";
  ASSERT_TRUE(member->LeaveGroup(GROUP, Loopback(2)));
  ASSERT_TRUE(member->SetNonBlocking());
  EXPECT_EQ(Take(*member, FOREVER).outcome, Outcome::TimedOut);
}

TEST(DatagramSocket, AnEventThatIsSetEndsEveryReceive) {
  const auto socket = OpenMember(Loopback(2));
  const auto interrupt = RealMachine().threads.MakeEvent();
  interrupt->Set();
  std::array<uint8_t, 16> buffer{};
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(socket->Receive(buffer, FOREVER, interrupt.get()).outcome, Outcome::Interrupted);
}

TEST(DatagramSocket, ClosingWakesWhoSendsAndReceivesAndFreesThePort) {
  for (int round = 0; round < 20; ++round) {
    const auto socket = OpenMember(Loopback(2));
    std::vector<std::shared_ptr<Thread>> threads;
    const auto start = [&](std::function<void()> body) {
      threads.push_back(RealMachine().threads.Start("test", Priority::Normal, std::move(body)));
    };
    for (int i = 0; i < 2; ++i)
      start([&] {
        while (socket->Send(Bytes(50), {GROUP, PORT})) {
        }
      });
    start([&] {
      std::array<uint8_t, 64> buffer{};
      while (socket->Receive(buffer, FOREVER, nullptr).outcome == Outcome::Datagram) {
      }
    });
    for (int i = 0; i < 2; ++i) start([&] { socket->Close(); });
    for (const auto& thread : threads) ASSERT_TRUE(thread->WaitForEnd(10s));
    EXPECT_FALSE(socket->JoinGroup(GROUP, Loopback(2)));
    // Without sharing an address this succeeds only when nobody has it any more.
    EXPECT_TRUE(Open()->Bind({Loopback(2), PORT}));
  }
}

}  // namespace
}  // namespace quorl
