#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "tests/platform/room.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(PosixSocket, GroupsThatOthersJoinedDoNotLeakIn) {
  const auto sender = OpenMember(Loopback(1), 0);
  const auto other = OpenMember(Loopback(2), PORT, OTHER_GROUP);
  const auto member = OpenMember(Loopback(3));
  const auto wildcard = Open();
  ASSERT_TRUE(wildcard->SetReuseAddress());
  ASSERT_TRUE(wildcard->Bind({0, PORT}));
  ASSERT_TRUE(wildcard->JoinGroup(GROUP, Loopback(1)));
  ASSERT_TRUE(sender->Send(Bytes(5), {OTHER_GROUP, PORT}));
  EXPECT_EQ(Take(*other).outcome, Outcome::Datagram);
  EXPECT_EQ(Take(*member, 20ms).outcome, Outcome::TimedOut);
  EXPECT_EQ(Take(*wildcard, 0ns).outcome, Outcome::TimedOut);
  for (const uint32_t to : {GROUP, Loopback(5)}) {
    ASSERT_TRUE(sender->Send(Bytes(5), {to, PORT}));
    EXPECT_EQ(Take(*wildcard).outcome, Outcome::Datagram);
  }
  for (const auto& socket : {other, member, wildcard}) socket->Close();
  EXPECT_TRUE(Open()->Bind({GROUP, PORT})) << "the socket that hears the group has gone with the other";
}

TEST(PosixSocket, TellsHowManyDatagramsFoundItsBufferFull) {
  const auto sender = OpenMember(Loopback(1), 0);
  const auto receiver = OpenMember(Loopback(2));
  ASSERT_TRUE(receiver->SetReceiveBuffer(20000));
  constexpr uint32_t SENT = 100;
  for (uint32_t i = 0; i < SENT; ++i) ASSERT_TRUE(sender->Send(Bytes(4796), {GROUP, PORT}));
  uint32_t got = 0;
  while (Take(*receiver, 0ns).outcome == Outcome::Datagram) ++got;
  EXPECT_LT(got, SENT);
  // The system tells with the next datagram that finds room.
  ASSERT_TRUE(sender->Send(Bytes(7), {GROUP, PORT}));
  EXPECT_EQ(Take(*receiver).droppedBefore, SENT - got);
  ASSERT_TRUE(sender->Send(Bytes(7), {GROUP, PORT}));
  EXPECT_EQ(Take(*receiver).droppedBefore, 0u) << "each is told of once";
}

TEST(PosixSocket, ABatchArrivesAsItWasCutAndKeepsNoOtherDatagramWaiting) {
  const auto sender = OpenMember(Loopback(1), 0);
  const auto receiver = OpenMember(Loopback(2));
  const std::vector<size_t> sizes{100, 50, 100, 100, 120};
  const Bytes bytes(120);
  std::vector<std::span<const uint8_t>> batch;
  for (const size_t size : sizes) batch.push_back(std::span(bytes).first(size));
  ASSERT_TRUE(sender->SendBatch(batch, {GROUP, PORT}, {}));
  ASSERT_TRUE(sender->Send(Bytes(7), {Loopback(2), PORT}));
  std::vector<size_t> came;
  for (size_t i = 0; i <= sizes.size(); ++i) came.push_back(Take(*receiver).length);
  const auto own = std::find(came.begin(), came.end(), 7u);
  EXPECT_LE(own - came.begin(), 1) << "the group and the address take turns";
  if (own != came.end()) came.erase(own);
  EXPECT_EQ(came, sizes);
}

/// Gives the calling thread a loopback of its own, which takes a hundred bytes a second. False without the right to
/// that.
bool MakeSlowLink() {
  return unshare(CLONE_NEWNET) == 0 &&
         std::system(
             "{ ip link set lo up && tc qdisc replace dev lo root tbf rate 1kbit burst 10kb limit 100mb; }"
             " >/dev/null 2>&1") == 0;
}

TEST(PosixSocket, ASendWaitsForRoomUntilItsLimitItsInterruptOrAClose) {
  std::shared_ptr<DatagramSocket> socket;
  std::thread([&] {
    if (MakeSlowLink()) socket = OpenMember(Loopback(1), 0);
  }).join();
  if (!socket) GTEST_SKIP() << "no right to make a network";
  const Endpoint group{GROUP, PORT};
  int sent = 0;
  while (sent < 10'000 && socket->Send(Bytes(4796), group, {0ns, nullptr})) ++sent;
  ASSERT_LT(sent, 10'000) << "a slow link has no end of room";
  const Moment before = RealMachine().clock.Now();
  EXPECT_FALSE(socket->Send(Bytes(4796), group, {50ms, nullptr}));
  EXPECT_GE(RealMachine().clock.Now() - before, 50ms);
  const auto interrupt = RealMachine().threads.MakeEvent();
  for (const bool closes : {false, true}) {
    const auto sender = RealMachine().threads.Start("test", Priority::Normal, [&] {
      EXPECT_FALSE(socket->Send(Bytes(4796), group, {FOREVER, closes ? nullptr : interrupt.get()}));
    });
    EXPECT_FALSE(sender->WaitForEnd(closes ? 1200ms : 20ms)) << "without a limit it waits as long as it takes";
    closes ? socket->Close() : interrupt->Set();
    ASSERT_TRUE(sender->WaitForEnd(1s));
  }
}

}  // namespace
}  // namespace quorl
