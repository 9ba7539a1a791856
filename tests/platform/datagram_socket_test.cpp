#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/real_machine.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;
using Outcome = Received::Outcome;
using Bytes = std::vector<uint8_t>;

// Tests run side by side in processes of their own, each in a room of its own.
const uint16_t PORT = static_cast<uint16_t>(28500 + getpid() % 4000);

uint32_t Address(const char* text) {
  return inet_addr(text);
}

/// A group of this process's own; `number` 0 to 3.
uint32_t Group(uint32_t number) {
  return htonl(ntohl(Address("239.64.0.0")) + static_cast<uint32_t>(getpid() % 65536) * 4 + number);
}

const uint32_t GROUP = Group(0), OTHER_GROUP = Group(1);

std::shared_ptr<DatagramSocket> Open() {
  return RealMachine().network.OpenDatagramSocket();
}

/// As a receiver opens its data socket.
std::shared_ptr<DatagramSocket> OpenMember(const char* local, uint16_t port = PORT, uint32_t group = GROUP) {
  const auto socket = Open();
  EXPECT_TRUE(socket->SetReuseAddress());
  EXPECT_TRUE(socket->Bind({Address(local), port}));
  EXPECT_TRUE(socket->SetReceiveBuffer(1048576));
  EXPECT_TRUE(socket->SetMulticastInterface(Address(local)));
  EXPECT_TRUE(socket->JoinGroup(group, Address(local)));
  EXPECT_TRUE(socket->SetTimeToLive(50));
  return socket;
}

Received Take(DatagramSocket& socket, Duration limit = 5s) {
  std::vector<uint8_t> buffer(65536);
  return socket.Receive(buffer, limit, nullptr);
}

TEST(DatagramSocket, GroupsThatOthersJoinedDoNotLeakIn) {
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto other = OpenMember("127.0.0.2", PORT, OTHER_GROUP);
  const auto member = OpenMember("127.0.0.3");
  const auto wildcard = Open();
  ASSERT_TRUE(wildcard->SetReuseAddress());
  ASSERT_TRUE(wildcard->Bind({0, PORT}));
  ASSERT_TRUE(wildcard->JoinGroup(GROUP, Address("127.0.0.1")));
  ASSERT_TRUE(sender->Send(Bytes(5), {OTHER_GROUP, PORT}));
  EXPECT_EQ(Take(*other).outcome, Outcome::Datagram);
  EXPECT_EQ(Take(*member, 20ms).outcome, Outcome::TimedOut);
  EXPECT_EQ(Take(*wildcard, 0ns).outcome, Outcome::TimedOut);
  for (const uint32_t to : {GROUP, Address("127.0.0.5")}) {
    ASSERT_TRUE(sender->Send(Bytes(5), {to, PORT}));
    EXPECT_EQ(Take(*wildcard).outcome, Outcome::Datagram);
  }
}

TEST(DatagramSocket, TellsHowManyDatagramsFoundItsBufferFull) {
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto receiver = OpenMember("127.0.0.2");
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

TEST(DatagramSocket, ABatchArrivesAsItWasCutAndKeepsNoOtherDatagramWaiting) {
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto receiver = OpenMember("127.0.0.2");
  const std::vector<size_t> sizes{100, 50, 100, 100, 120};
  const Bytes bytes(120);
  std::vector<std::span<const uint8_t>> batch;
  for (const size_t size : sizes) batch.push_back(std::span(bytes).first(size));
  ASSERT_TRUE(sender->SendBatch(batch, {GROUP, PORT}, {}));
  ASSERT_TRUE(sender->Send(Bytes(7), {Address("127.0.0.2"), PORT}));
  std::vector<size_t> came;
  for (size_t i = 0; i <= sizes.size(); ++i) came.push_back(Take(*receiver).length);
  const auto own = std::find(came.begin(), came.end(), 7u);
  EXPECT_LE(own - came.begin(), 1) << "the group and the address take turns";
  if (own != came.end()) came.erase(own);
  EXPECT_EQ(came, sizes);
}

TEST(DatagramSocket, AnEventThatIsSetEndsEveryReceive) {
  const auto socket = OpenMember("127.0.0.2");
  const auto interrupt = RealMachine().threads.MakeEvent();
  interrupt->Set();
  std::array<uint8_t, 16> buffer{};
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(socket->Receive(buffer, FOREVER, interrupt.get()).outcome, Outcome::Interrupted);
}

/// Gives the calling thread a loopback of its own, which takes a hundred bytes a second. False without the right to
/// that.
bool MakeSlowLink() {
  return unshare(CLONE_NEWNET) == 0 &&
         std::system(
             "{ ip link set lo up && tc qdisc replace dev lo root tbf rate 1kbit burst 10kb limit 100mb; }"
             " >/dev/null 2>&1") == 0;
}

TEST(DatagramSocket, ASendWaitsForRoomUntilItsLimitItsInterruptOrAClose) {
  std::shared_ptr<DatagramSocket> socket;
  std::thread([&] {
    if (MakeSlowLink()) socket = OpenMember("127.0.0.1", 0);
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

TEST(DatagramSocket, ClosingWakesWhoSendsAndReceivesAndFreesThePort) {
  for (int round = 0; round < 20; ++round) {
    const auto socket = OpenMember("127.0.0.2");
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
    EXPECT_FALSE(socket->JoinGroup(GROUP, Address("127.0.0.2")));
    // Without sharing an address these succeed only when nobody has it any more.
    for (const uint32_t address : {Address("127.0.0.2"), GROUP}) EXPECT_TRUE(Open()->Bind({address, PORT}));
  }
}

}  // namespace
}  // namespace quorl
