// A receiver in a simulated room with a sender that says what the test tells it to say.
#pragma once

#include <gtest/gtest.h>
#include <quorl/quorl.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "files/target_dir.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "receiver/blocks/lost_block.h"
#include "receiver/ctrans_client.h"
#include "sim/room/peer.h"

namespace quorl {

using namespace std::chrono_literals;

inline void PrintTo(const LostBlock& block, std::ostream* out) {
  *out << "(" << block.file << ", " << block.block << ")";
}

/// Replies and messages as texts: "CMD_ACK file=1 block=2", "1040 0 1".
using Lines = std::vector<std::string>;

class ScriptedSender : public testing::Test {
 protected:
  static constexpr uint32_t SENDER = Ipv4(10, 0, 0, 1);
  static constexpr uint32_t RECEIVER = Ipv4(10, 0, 0, 2);
  static constexpr Endpoint DATA_GROUP{DEFAULT_GROUP, DEFAULT_PORT};

  // ---- the receiver ----

  /// Everything up to a receiver that listens.
  void Listen(Profile profile) {
    client.SetProfile(profile);
    pc.Call([&] {
      ASSERT_EQ(client.InitClient(window, 0, 0, RECEIVER), 1u);
      ASSERT_EQ(client.StartReceive(), 1u);
    });
  }

  /// Tears the receiver down; how long that took.
  Duration DeInit() {
    const Moment before = world.Now();
    pc.Call([&] { EXPECT_EQ(client.DeInitClient(), 1u); });
    return world.Now() - before;
  }

  // ---- the sender ----

  /// A file of so many bytes as the next one of the transfer.
  void AddFile(const std::string& name, size_t length) { files.emplace_back(name, length, files.size()); }

  /// Three files of 1, 2 and 3 blocks.
  void AddThreeFiles() {
    AddFile("\\one.bin", 100);
    AddFile("\\two.bin", BLOCK_SIZE + 5);
    AddFile("\\sub\\three.bin", 2 * BLOCK_SIZE);
  }

  Task TaskFor(const std::string& target) const {
    Task task;
    for (const sim::PeerFile& file : files) task.totalBlocks += file.Shape().lastBlock + 1;
    task.fileCount = static_cast<uint32_t>(files.size());
    task.targetFolder = LITERAL_TARGET;
    task.targetPath = NameField::From(target);
    return task;
  }

  void Send(std::span<const uint8_t> datagram, Endpoint to) {
    sender.Say({SENDER, 40000}, to, datagram);
    world.RunFor(1ms);
  }
  void ToGroup(const auto& message) { Send(Build(message), DATA_GROUP); }
  void ToReceiver(const auto& message) { Send(Build(message), {RECEIVER, DEFAULT_PORT}); }

  void Announce(const std::string& target = "C:\\in") { ToGroup(TaskFor(target)); }
  void SendData(uint32_t file, uint32_t block) { Send(files.at(file - 1).Block(CMD_DATA, file, block), DATA_GROUP); }
  void SendResend(uint32_t file, uint32_t block) {
    Send(files.at(file - 1).Block(CMD_RESEND, file, block), DATA_GROUP);
  }

  /// The whole stream but the blocks in `lost`.
  void SendStream(const std::vector<LostBlock>& lost = {}) {
    for (uint32_t file = 1; file <= files.size(); ++file)
      for (uint32_t block = 0; block <= files[file - 1].Shape().lastBlock; ++block)
        if (std::find(lost.begin(), lost.end(), LostBlock{file, block}) == lost.end()) SendData(file, block);
  }

  /// Three files are announced to a receiver that listens.
  void Begin(Profile profile) {
    Listen(profile);
    AddThreeFiles();
    Announce();
  }

  /// As Begin; then the stream but the blocks in `lost`, and its end.
  void Transfer(Profile profile, const std::vector<LostBlock>& lost = {}) {
    Begin(profile);
    SendStream(lost);
    ToGroup(Finish{0});
  }

  /// Serves the master until it wants nothing more, then lets it go. What it asked for, in order.
  std::vector<LostBlock> Repair() {
    std::vector<LostBlock> served;
    ToReceiver(Master{1});
    world.RunFor(20ms);
    for (auto ack = LatestAck(); ack && ack->file <= files.size() && served.size() < 1000; ack = LatestAck()) {
      served.push_back({ack->file, ack->block});
      SendResend(ack->file, ack->block);
      world.RunFor(20ms);
    }
    ToReceiver(Master{0});
    world.RunFor(50ms);
    return served;
  }

  // ---- what came of it ----

  void ForEachReply(const auto& visit) const {
    for (const auto& sent : world.Net().Sent())
      if (sent.from == &pc) visit(sent);
  }

  std::optional<Ack> LatestAck() const {
    std::optional<Ack> latest;
    ForEachReply([&](const auto& sent) {
      if (sent.bytes.at(2) == CMD_ACK) latest = std::get<Ack>(ParseFromReceiver(sent.bytes));
    });
    return latest;
  }

  /// What the receiver has sent since the last call.
  Lines TakeReplies() {
    Lines replies;
    const auto& sent = world.Net().Sent();
    for (; repliesTaken < sent.size(); ++repliesTaken)
      if (sent[repliesTaken].from == &pc) replies.push_back(Describe(sent[repliesTaken].bytes));
    return replies;
  }

  /// When the receiver sent a datagram last.
  Moment LatestReplyAt() const {
    Moment at{};
    ForEachReply([&](const auto& sent) { at = sent.at; });
    return at;
  }

  /// What the host has been told, without the names of files.
  Lines Told() const {
    Lines told;
    for (const auto& message : pc.Messages()) {
      if (message.number == WM_FILE_NAME) continue;
      const std::string last = message.lParam == -1 ? message.text : std::to_string(message.lParam);
      told.push_back(std::to_string(message.number) + " " + std::to_string(message.wParam) + " " + last);
    }
    return told;
  }

  bool HasDebugLine(const std::string& line) const {
    const auto& lines = pc.DebugLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

  void ExpectFilesAt(const std::string& target) {
    for (const sim::PeerFile& file : files) EXPECT_EQ(pc.Disk().Read(target + file.name), file.content) << file.name;
  }

  mutable sim::World world{1};
  sim::Peer sender{world, "sender", SENDER};
  sim::SimMachine& pc = world.AddMachine("receiver", RECEIVER);
  QuorlWindow window = pc.MakeWindow();
  CTransClient client{pc.Seam()};
  std::vector<sim::PeerFile> files;
  size_t repliesTaken = 0;
};

/// The rules that hold in both profiles.
struct BothProfiles : ScriptedSender, testing::WithParamInterface<Profile> {
  bool IsRobust() const { return GetParam() == Profile::Robust; }
};

inline std::string ProfileName(const testing::TestParamInfo<Profile>& info) {
  return info.param == Profile::Classic ? "Classic" : "Robust";
}

/// One reply as it goes out: robust repeats what nobody asks for again.
inline Lines Copies(Profile profile, const std::string& reply) {
  return Lines(profile == Profile::Robust ? 3 : 1, reply);
}

}  // namespace quorl
