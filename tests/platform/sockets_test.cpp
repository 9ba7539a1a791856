#include <array>
#include <functional>

#include "tests/platform/room.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

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
