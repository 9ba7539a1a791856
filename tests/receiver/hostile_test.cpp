// What no sender of this system sends, or not the one that the receiver listens to: dropped, counted by its reason, and
// the transfer comes to the same end as without it.
#include "receiver/store/block_queue.h"
#include "scripted_sender.h"

namespace quorl {
namespace {

using Bytes = std::vector<uint8_t>;

struct HostileTest : BothProfiles {
  uint64_t Counted(std::string_view name) {
    for (const NamedCount& count : client.GetCounters())
      if (name == std::string_view(count.name).substr(std::string_view("receiver.").size())) return count.value;
    throw std::out_of_range("no counter " + std::string(name));
  }

  /// A block of the second file with something forged, and so many bytes after its head.
  static Bytes Block(const std::function<void(BlockHead&)>& forge, size_t byteCount = BLOCK_SIZE,
                     Command command = CMD_DATA) {
    BlockHead head{2, 0, 1, command == CMD_DATA ? uint8_t{1} : uint8_t{0}, 5, NameField::From("\\two.bin")};
    forge(head);
    return sim::BuildBlock(command, head, Bytes(byteCount));
  }

  /// One counter counts the datagram, and nothing else comes of it.
  void ExpectDropped(std::span<const uint8_t> datagram, std::string_view counter) {
    SCOPED_TRACE(Describe(datagram));
    const uint64_t before = Counted(counter);
    const size_t told = pc.Messages().size();
    Send(datagram, DATA_GROUP);
    EXPECT_EQ(Counted(counter), before + 1) << counter;
    EXPECT_EQ(pc.Messages().size(), told);
    EXPECT_EQ(TakeReplies(), Lines{});
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, HostileTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(HostileTest, WhatCannotComeFromASenderIsDroppedAndCounted) {
  Begin(GetParam());
  SendData(1, 0);
  // There would be no block left for the second file.
  if (IsRobust())
    ExpectDropped(Block([](BlockHead& head) { head.file = 3, head.lastBlock = 4; }), "dropped.beyond_total");
  SendData(2, 0);
  const auto nothing = [](BlockHead&) {};
  const Bytes whole = Block(nothing);
  for (const size_t length : {3, 4, 541}) ExpectDropped(std::span(whole).first(length), "dropped.short");
  for (const size_t length : {0, 1}) ExpectDropped(std::span(whole).first(length), "dropped.magic");
  for (const Bytes& foreign : {Bytes{2, 0x91, 11, 0}, Bytes(65507, 7)}) ExpectDropped(foreign, "dropped.magic");
  for (const uint8_t code : {0, 25, 255}) ExpectDropped(Bytes{0x91, 2, code, 0, 0, 0, 0}, "dropped.command");
  for (const uint8_t code : {CMD_CLIENT, CMD_ACK, CMD_ANSWER, CMD_REPORT})
    ExpectDropped(Bytes{0x91, 2, code, 0, 0, 0, 0}, "dropped.other_side");
  for (const Command command : {CMD_DATA, CMD_RESEND}) {
    const auto dropped = [&](std::string_view counter, const std::function<void(BlockHead&)>& forge,
                             size_t byteCount = BLOCK_SIZE) {
      ExpectDropped(Block(forge, byteCount, command), counter);
    };
    for (const uint16_t tail : {4254, 32767, 32768, 65535})
      dropped("dropped.tail", [&](BlockHead& head) { head.tailSize = tail; });
    if (IsRobust() && command == CMD_DATA) dropped("dropped.beyond_last", [](BlockHead& head) { head.block = 2; });
    dropped("dropped.incomplete", nothing, BLOCK_SIZE - 1);
    dropped(
        "dropped.incomplete", [](BlockHead& head) { head.block = 1; }, 4);
    dropped("dropped.file_zero", [](BlockHead& head) { head.file = 0; });
  }
  ExpectDropped(Block([](BlockHead& head) { head.firstSending = 0; }), "dropped.not_first_sending");
  if (IsRobust()) {
    for (const uint32_t file : {4u, UINT32_MAX})
      ExpectDropped(Block([&](BlockHead& head) { head.file = file; }), "dropped.beyond_files");
    ExpectDropped(Block([](BlockHead& head) { head.lastBlock = 2; }), "dropped.second_shape");
    ExpectDropped(Block([](BlockHead& head) { head.name = NameField::From("\\evil.bin"); }), "dropped.second_shape");
    for (const uint32_t last : {4u, UINT32_MAX})
      ExpectDropped(Block([&](BlockHead& head) { head.file = 3, head.lastBlock = last; }), "dropped.beyond_total");
    Task task = TaskFor("C:\\in");
    task.fileCount = UINT32_MAX;
    ExpectDropped(Build(task), "dropped.totals");
  }

  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  ExpectFilesAt("C:\\in");
  EXPECT_EQ(pc.Disk().List("C:\\in"), (Lines{"one.bin", "sub", "sub\\three.bin", "two.bin"}));
}

TEST_P(HostileTest, WithoutAnAnnouncementOnlyClassicTakesAnything) {
  Listen(GetParam());
  AddThreeFiles();
  if (IsRobust()) {
    Send(Build(Report{}), REPORT_GROUP);
    world.RunFor(2s);
    EXPECT_EQ(client.GetState().otherSender, SENDER);
  }
  SendData(1, 0);
  EXPECT_EQ(client.GetState().otherSender, SENDER);
  Send(BuildEmptyDir(std::vector{NameField::From("\\dir")}), DATA_GROUP);
  EXPECT_EQ(Counted("dropped.unannounced"), IsRobust() ? 2u : 0u);
  SendResend(2, 0);
  ToGroup(Finish{0});
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{});
  EXPECT_EQ(pc.Disk().List("C:\\"), IsRobust() ? Lines{} : (Lines{"dir", "one.bin"}));
  if (!IsRobust()) return;
  ToGroup(Release{1, 1});
  world.RunFor(100ms);
  EXPECT_EQ(Told(), Lines{});
}

TEST_P(HostileTest, StrangersAreHeardOnlyWhereNobodyIsKnown) {
  const bool named = !IsRobust();
  client.SetSender(named ? SENDER : 0);
  Listen(GetParam());
  sim::Peer stranger(world, "stranger", Ipv4(10, 0, 0, 3));
  const auto say = [&](const auto& message, Endpoint to = DATA_GROUP, Duration pause = 10ms) {
    stranger.Say({Ipv4(10, 0, 0, 3), 5}, to, Build(message));
    world.RunFor(pause);
  };
  say(Collect{});
  EXPECT_EQ(TakeReplies().size(), named ? 0u : 1u);
  const uint64_t before = Counted("dropped.stranger");
  EXPECT_EQ(before, named ? 1u : 0u);
  AddThreeFiles();
  Announce();
  say(Stop{});
  say(Task{});
  say(Release{1, 1});
  say(Master{1});
  say(Finish{0});
  EXPECT_EQ(Counted("dropped.stranger"), before + 5);
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
  EXPECT_EQ(TakeReplies(), Lines{});
  // Another room's heartbeat, on the group that all rooms share, does not keep this sender alive.
  for (int second = 0; second < 17; ++second) say(Report{}, REPORT_GROUP, 1s);
  EXPECT_EQ(Told().back(), "1040 1004 0");
}

TEST_P(HostileTest, NamesThatLeadNowhereOrToTheSamePlaceAreRefusedOnceAFile) {
  Listen(GetParam());
  for (const char* name : {"\\..\\up", "\\dir\\.", "sibling", "\\.?.\\up", "\\same.bin", "\\same?.bin"})
    AddFile(name, BLOCK_SIZE + 1);
  Announce();
  SendStream();
  world.RunFor(500ms);
  EXPECT_EQ(Counted("refused_names"), IsRobust() ? 5u : 4u);
  EXPECT_EQ(client.GetState().failedFiles, IsRobust() ? 5u : 4u);
  // Classic tries each of the two blocks of a refused file.
  Lines expected(IsRobust() ? 6 : 9, "1040 1001 0");
  expected[0] = "1039 6 12";
  EXPECT_EQ(Told(), expected);
  EXPECT_EQ(pc.Disk().List("C:\\"), (Lines{"in", "in\\same.bin"})) << "not even a directory is made";
  EXPECT_EQ(pc.Disk().Read("C:\\in\\same.bin") == files[4].content, IsRobust()) << "classic mixes the two";
  EXPECT_FALSE(client.GetState().complete);
}

TEST_P(HostileTest, ATransferHasNoMoreEmptyDirectoriesThanOneDatagramHolds) {
  Listen(GetParam());
  Announce();
  std::vector<NameField> names(1, NameField::From("\\..\\out"));
  for (size_t i = 1; i < EMPTY_DIR_LIMIT; ++i) names.push_back(NameField::From("\\d" + std::to_string(i)));
  Send(BuildEmptyDir(names), DATA_GROUP);
  Send(BuildEmptyDir(std::vector{NameField::From("\\one more")}), DATA_GROUP);
  Send(Bytes{0x91, 2, CMD_EMPTYDIR, 0xFF, 0xFF, 0xFF, 0xFF}, DATA_GROUP);
  EXPECT_EQ(pc.Disk().List("C:\\in").size(), EMPTY_DIR_LIMIT - 1);
  EXPECT_EQ(pc.Disk().List("C:\\").size(), EMPTY_DIR_LIMIT);
  EXPECT_EQ(Counted("refused_directories"), 2u);
}

TEST_P(HostileTest, BlocksThatFindNoRoomCountAsLost) {
  world.SetLogging(false);
  Listen(GetParam());
  AddFile("\\big.bin", 60000 * size_t{BLOCK_SIZE} + 9);
  pc.Disk().SetWriteTime(1h);  // the writer gets nowhere
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  constexpr uint64_t ROOM_FOR = BlockQueue::ROOM / (BLOCK_SIZE + sizeof(ReceivedBlocks));
  EXPECT_NEAR(static_cast<double>(Counted("dropped.queue_full")), 60000 - ROOM_FOR, 40);
  EXPECT_LE(Counted("queue_high_water"), BlockQueue::ROOM);
  EXPECT_GT(Counted("queue_high_water"), BlockQueue::ROOM - 2 * MAX_DATAGRAM);
  EXPECT_GE(client.GetState().blocksMissing, 1u);
  const uint64_t full = Counted("dropped.queue_full");
  Announce("C:\\other");
  SendData(1, 0);
  EXPECT_EQ(Counted("dropped.queue_full"), full) << "what waited before takes no room from the next transfer";
}

}  // namespace
}  // namespace quorl
