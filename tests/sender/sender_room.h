// A sender in a simulated room whose receivers say what the test tells them to say.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sender/ctrans_server.h"
#include "sim/room/peer.h"
#include "sim/room/room.h"

namespace quorl {

using namespace std::chrono_literals;

/// A receiver of the room, by its number.
constexpr Endpoint Peer(int number) {
  return {Ipv4(10, 0, static_cast<uint8_t>(1 + number / 200), static_cast<uint8_t>(number % 200)), DEFAULT_PORT};
}

class SenderRoom : public testing::Test {
 protected:
  /// Three files of 1, 2 and 3 blocks beneath C:\data.
  void SetUp() override {
    machine.Disk().Write("C:\\data\\a", "first");
    machine.Disk().WriteSynthetic("C:\\data\\b", BLOCK_SIZE, 1);
    machine.Disk().WriteSynthetic("C:\\data\\c", 2 * BLOCK_SIZE + 1, 2);
  }

  /// `receivers` answer the collection.
  void Init(int receivers, Profile profile = Profile::Classic, uint8_t platform = 1) {
    for (int i = 0; i < receivers; ++i)
      world.At(world.Now() + 150ms, [this, i, platform] { Reply(i, Client{platform}); });
    server.SetProfile(profile);
    machine.Call([&] { EXPECT_EQ(server.InitServer(window, 0, 0, machine.Address()), 1U); });
    server.SetSubDirTrans(1);
    ASSERT_EQ(server.SetSelectFiles({"C:\\data"}, "\\data\\a"), 1);
  }
  void Start() {
    machine.Call([&] { server.StartSend(); });
    start = world.Now();
  }
  template <typename Message>
  void Reply(int number, const Message& message) {
    room.Say(Peer(number), {machine.Address(), 27003}, Build(message));
  }

  bool RunUntilStatuses(size_t count) {
    return world.RunUntil([&] { return Statuses().size() == count; }, 120s);
  }
  /// The codes of WM_TRANS_STATUS so far.
  std::vector<uint32_t> Statuses() const { return sim::Room::Statuses(machine); }
  std::vector<sim::SentDatagram> Sent(Command command) const {
    std::vector<sim::SentDatagram> found;
    for (const auto& sent : world.Net().Sent())
      if (sent.from == &machine && sent.bytes[2] == command) found.push_back(sent);
    return found;
  }
  static int64_t Milliseconds(Duration duration) { return duration / 1ms; }
  int CountDebug(const std::string& line) const {
    return static_cast<int>(std::count(machine.DebugLines().begin(), machine.DebugLines().end(), line));
  }
  uint64_t Counter(std::string_view name) {
    for (const NamedCount& counter : server.GetCounters())
      if (name == counter.name) return counter.value;
    ADD_FAILURE() << "no counter " << name;
    return 0;
  }
  void FailSends() {
    machine.FailEvery([](std::string_view call) { return call == "network.send"; });
  }

  mutable sim::World world{1};
  sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
  sim::Peer room{world, "room", Ipv4(10, 0, 0, 2)};
  CTransServer server{machine.Seam()};
  QuorlWindow window = machine.MakeWindow();
  Moment start{};
};

}  // namespace quorl
