#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <vector>

#include "platform/real_machine.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;
using Outcome = Received::Outcome;

// Tests run side by side in processes of their own, each in a room of its own.
const uint16_t PORT = static_cast<uint16_t>(28500 + getpid() % 4000);

uint32_t Address(const char* text) {
  return inet_addr(text);
}

/// A group of this process; `number` 0 to 3.
uint32_t Group(uint32_t number) {
  return htonl(ntohl(Address("239.64.0.0")) + static_cast<uint32_t>(getpid() % 65536) * 4 + number);
}

const uint32_t GROUP = Group(0);

std::vector<uint8_t> Pattern(size_t length) {
  std::vector<uint8_t> bytes(length);
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + length);
  return bytes;
}

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

Received Take(DatagramSocket& socket, std::vector<uint8_t>& buffer, Duration limit = 5s) {
  buffer.assign(65536, 0);
  const Received received = socket.Receive(buffer, limit, nullptr);
  buffer.resize(received.length);
  return received;
}

TEST(DatagramSocket, ARoomOnLoopback) {
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto first = OpenMember("127.0.0.2");
  const auto second = OpenMember("127.0.0.3");
  std::vector<uint8_t> buffer;

  for (const size_t length : {size_t{7}, size_t{4796}, size_t{20967}}) {
    const auto datagram = Pattern(length);
    ASSERT_TRUE(sender->Send(datagram, {GROUP, PORT}));
    uint16_t senderPort = 0;
    for (const auto& receiver : {first, second}) {
      const Received received = Take(*receiver, buffer);
      ASSERT_EQ(received.outcome, Outcome::Datagram);
      EXPECT_EQ(received.from.address, Address("127.0.0.1"));
      EXPECT_EQ(buffer, datagram);
      senderPort = received.from.port;
    }
    // The answer leaves from the receiver's own address and port.
    ASSERT_TRUE(second->Send(datagram, {Address("127.0.0.1"), senderPort}));
    const Received answer = Take(*sender, buffer);
    ASSERT_EQ(answer.outcome, Outcome::Datagram);
    EXPECT_EQ(answer.from, (Endpoint{Address("127.0.0.3"), PORT}));
    EXPECT_EQ(buffer, datagram);
  }

  // Unicast reaches the one that is meant, and nothing comes twice.
  ASSERT_TRUE(sender->Send(Pattern(9), {Address("127.0.0.2"), PORT}));
  EXPECT_EQ(Take(*first, buffer).outcome, Outcome::Datagram);
  EXPECT_EQ(Take(*first, buffer, 0ns).outcome, Outcome::TimedOut);
  EXPECT_EQ(Take(*second, buffer, 20ms).outcome, Outcome::TimedOut);
}

TEST(DatagramSocket, GroupsThatOthersJoinedDoNotLeakIn) {
  const uint32_t otherGroup = Group(1);
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto other = OpenMember("127.0.0.2", PORT, otherGroup);
  const auto member = OpenMember("127.0.0.3");
  const auto wildcard = Open();
  ASSERT_TRUE(wildcard->SetReuseAddress());
  ASSERT_TRUE(wildcard->Bind({0, PORT}));
  ASSERT_TRUE(wildcard->JoinGroup(GROUP, Address("127.0.0.1")));
  std::vector<uint8_t> buffer;
  ASSERT_TRUE(sender->Send(Pattern(5), {otherGroup, PORT}));
  EXPECT_EQ(Take(*other, buffer).outcome, Outcome::Datagram);
  EXPECT_EQ(Take(*member, buffer, 20ms).outcome, Outcome::TimedOut);
  EXPECT_EQ(Take(*wildcard, buffer, 0ns).outcome, Outcome::TimedOut);
  for (const uint32_t to : {GROUP, Address("127.0.0.5")}) {
    ASSERT_TRUE(sender->Send(Pattern(5), {to, PORT}));
    EXPECT_EQ(Take(*wildcard, buffer).outcome, Outcome::Datagram);
  }
  ASSERT_TRUE(member->LeaveGroup(GROUP, Address("127.0.0.3")));
  Take(*member, buffer);
  ASSERT_TRUE(sender->Send(Pattern(5), {GROUP, PORT}));
  EXPECT_EQ(Take(*wildcard, buffer).outcome, Outcome::Datagram);
  EXPECT_EQ(Take(*member, buffer, 20ms).outcome, Outcome::TimedOut);
}

TEST(DatagramSocket, TellsHowManyDatagramsFoundItsBufferFull) {
  const auto sender = OpenMember("127.0.0.1", 0);
  const auto receiver = OpenMember("127.0.0.2");
  ASSERT_TRUE(receiver->SetReceiveBuffer(20000));
  constexpr uint32_t SENT = 100;
  for (uint32_t i = 0; i < SENT; ++i) ASSERT_TRUE(sender->Send(Pattern(4796), {GROUP, PORT}));
  std::vector<uint8_t> buffer;
  uint32_t got = 0;
  while (Take(*receiver, buffer, 0ns).outcome == Outcome::Datagram) ++got;
  EXPECT_LT(got, SENT);
  // The system tells with the next datagram that finds room.
  ASSERT_TRUE(sender->Send(Pattern(7), {GROUP, PORT}));
  EXPECT_EQ(Take(*receiver, buffer).droppedBefore, SENT - got);
}

TEST(DatagramSocket, TheInterruptEventEndsAReceive) {
  const auto socket = OpenMember("127.0.0.2");
  const auto interrupt = RealMachine().threads.MakeEvent();
  std::atomic<int> outcome{-1};
  const auto thread = RealMachine().threads.Start("receive", Priority::Normal, [&] {
    std::array<uint8_t, 16> buffer{};
    outcome = static_cast<int>(socket->Receive(buffer, FOREVER, interrupt.get()).outcome);
  });
  EXPECT_FALSE(thread->WaitForEnd(20ms));
  interrupt->Set();
  ASSERT_TRUE(thread->WaitForEnd(10s));
  EXPECT_EQ(outcome, static_cast<int>(Outcome::Interrupted));
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
        while (socket->Send(Pattern(50), {GROUP, PORT})) {
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
  }
  // Without sharing an address these succeed only when nobody has it any more.
  for (const uint32_t address : {Address("127.0.0.2"), GROUP}) EXPECT_TRUE(Open()->Bind({address, PORT}));
}

}  // namespace
}  // namespace quorl
