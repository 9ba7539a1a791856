// Whole datagrams against their bytes, in both directions, and everything that is turned away at the edge; addresses of
// a room, what else may be on its group, and ranges of blocks.
#include <gtest/gtest.h>
#include <sstream>

#include "protocol/block_ranges.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "protocol/sender_sockets.h"
#include "sim/world/world.h"

namespace quorl {
namespace {

using Bytes = std::vector<uint8_t>;
using namespace std::chrono_literals;

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  std::istringstream digits(text);
  for (std::string pair; digits >> pair;) bytes.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
  return bytes;
}

template <typename Range>
Bytes ToBytes(const Range& range) {
  return Bytes(range.begin(), range.end());
}

/// A name field as it stands on the wire.
Bytes NameBytes(std::string_view name) {
  Bytes field(NAME_TEXT_SIZE, 0);
  std::copy(name.begin(), name.end(), field.begin());
  const auto length = static_cast<uint32_t>(name.size() + 1);
  for (int i = 0; i < 4; ++i) field.push_back(static_cast<uint8_t>(length >> (8 * i)));
  return field;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

template <typename Parsed>
Reject RejectOf(const Parsed& parsed) {
  EXPECT_TRUE(std::holds_alternative<Reject>(parsed));
  return std::holds_alternative<Reject>(parsed) ? std::get<Reject>(parsed) : Reject{-1};
}

Bytes BlockBytes(Command command, uint32_t file, uint32_t block, uint32_t last, uint8_t first, uint16_t tail,
                 size_t dataBytes) {
  Bytes datagram = {0x91, 0x02, command};
  for (const uint32_t value : {file, block, last})
    for (int i = 0; i < 4; ++i) datagram.push_back(static_cast<uint8_t>(value >> (8 * i)));
  datagram = datagram + Bytes{first, static_cast<uint8_t>(tail), static_cast<uint8_t>(tail >> 8)};
  return datagram + NameBytes("\\a") + Bytes(dataBytes, 0x5A);
}

TEST(Datagrams, FixedOnesHaveTheirBytes) {
  EXPECT_EQ(ToBytes(Build(Collect{})), FromHex("91 02 01"));
  EXPECT_EQ(ToBytes(Build(Client{1})), FromHex("91 02 02 01"));
  EXPECT_EQ(ToBytes(Build(Master{1})), FromHex("91 02 03 01 00 00 00"));
  EXPECT_EQ(ToBytes(Build(Release{1, 2})), FromHex("91 02 04 01 02"));
  EXPECT_EQ(ToBytes(Build(Ack{1, 5})), FromHex("91 02 05 01 00 00 00 05 00 00 00"));
  EXPECT_EQ(ToBytes(Build(Ack{0x01020304, 0xA0B0C0D0})), FromHex("91 02 05 04 03 02 01 D0 C0 B0 A0"));
  EXPECT_EQ(ToBytes(Build(Finish{1002})), FromHex("91 02 08 EA 03"));
  EXPECT_EQ(ToBytes(Build(Stop{})), FromHex("91 02 09"));
  EXPECT_EQ(ToBytes(Build(Answer{300})), FromHex("91 02 0C 2C 01 00 00"));
  EXPECT_EQ(ToBytes(Build(ServerOs{1})), FromHex("91 02 0D 01"));
  EXPECT_EQ(ToBytes(Build(Report{})), FromHex("91 02 0E 00 00 00 00"));
  EXPECT_FALSE(IsReport(FromHex("91 02 0E 00 00 00")));
}

TEST(Datagrams, NamesTravelInTheirFields) {
  const Bytes task = FromHex("91 02 06 04 00 00 00 02 00 00 00 FF FF FF FF") + NameBytes("C:\\in");
  EXPECT_EQ(ToBytes(Build(Task{4, 2, 0xFFFFFFFF, NameField::From("C:\\in")})), task);
  const FromSender parsed = ParseFromSender(task);
  ASSERT_TRUE(std::holds_alternative<Task>(parsed));
  EXPECT_EQ(std::get<Task>(parsed).totalBlocks, 4u);
  EXPECT_EQ(std::get<Task>(parsed).fileCount, 2u);
  EXPECT_EQ(std::get<Task>(parsed).targetPath.Text(), "C:\\in");

  EXPECT_EQ(ToBytes(Build(Task{})).at(535), 0) << "a name that was never set has not even a terminator's length";
  EXPECT_EQ(ToBytes(Build(Task{0, 0, 0, NameField::From("")})).at(535), 1) << "an empty one has";
  EXPECT_EQ(ToBytes(Build(AutoOpenName{NameField::From("a")})), FromHex("91 02 0F") + NameBytes("a"));
}

TEST(Datagrams, BlocksCarryTheirHeadAndBytes) {
  BlockDatagram stream(CMD_DATA);
  stream.SetFile(3, "\\longer name", {7, 100});
  stream.SetFile(1, "\\a", {1, 1});
  stream.SetBlock(1);
  stream.BlockBytes()[0] = 0x5A;
  EXPECT_EQ(ToBytes(stream.Datagram(1)), BlockBytes(CMD_DATA, 1, 1, 1, 1, 1, 1));

  BlockDatagram repair(CMD_RESEND);
  repair.SetFile(1, "\\a", {0, 0});
  EXPECT_EQ(ToBytes(repair.Datagram(0)), BlockBytes(CMD_RESEND, 1, 0, 0, 0, 0, 0));
  EXPECT_EQ(repair.Datagram(BLOCK_SIZE).size(), MAX_DATAGRAM);

  const Bytes longer = BlockBytes(CMD_DATA, 2, 0, 1, 1, 7, BLOCK_SIZE + 1);
  const FromSender parsed = ParseFromSender(longer);
  ASSERT_TRUE(std::holds_alternative<Data>(parsed));
  const Data& data = std::get<Data>(parsed);
  EXPECT_EQ(data.head.file, 2u);
  EXPECT_EQ(data.head.Shape(), (FileShape{1, 7}));
  EXPECT_EQ(data.head.name.Text(), "\\a");
  EXPECT_EQ(ToBytes(data.bytes), Bytes(BLOCK_SIZE, 0x5A));
}

/// Every datagram that a receiver takes, whole.
std::vector<Bytes> AllFromSender() {
  const std::vector<NameField> directories(2, NameField::From("\\d"));
  return {ToBytes(Build(Master{1})),
          ToBytes(Build(Release{})),
          ToBytes(Build(Task{})),
          ToBytes(Build(Finish{})),
          ToBytes(Build(ServerOs{})),
          ToBytes(Build(AutoOpenName{})),
          ToBytes(Build(Offer{})),
          BuildEmptyDir(directories),
          BlockBytes(CMD_DATA, 1, 0, 0, 1, 9, 9),
          BlockBytes(CMD_RESEND, 1, 0, 0, 0, 9, 9)};
}

TEST(Datagrams, EveryTruncationIsRejected) {
  for (const Bytes& whole : AllFromSender()) {
    EXPECT_FALSE(std::holds_alternative<Reject>(ParseFromSender(whole)));
    for (size_t length = 0; length < whole.size(); ++length) {
      const FromSender parsed = ParseFromSender(std::span(whole).first(length));
      EXPECT_TRUE(std::holds_alternative<Reject>(parsed)) << "code " << int{whole[2]} << " cut to " << length;
    }
  }
  for (const Bytes& whole : {ToBytes(Build(Client{})), ToBytes(Build(Ack{})), ToBytes(Build(Answer{})),
                             ToBytes(Build(Accept{})), BuildText(Letter{})})
    for (size_t length = 0; length < whole.size(); ++length)
      EXPECT_TRUE(std::holds_alternative<Reject>(ParseFromReceiver(std::span(whole).first(length))));
  for (const Bytes& whole : {ToBytes(Build(UnderWay{})), ToBytes(Build(Heard{}))})
    for (size_t length = 0; length < whole.size(); ++length)
      EXPECT_TRUE(std::holds_alternative<Reject>(ParseReply(std::span(whole).first(length))));
}

TEST(Datagrams, SymbolsAndWhatIsLackingOfThem) {
  EXPECT_EQ(ToBytes(Build(SymbolHead{0x01020304, 5, 130})), FromHex("91 02 17 04 03 02 01 05 00 00 00 82"));
  const Bytes poll = FromHex(
                         "91 02 16 01 00 00 04 03 02 01 07 00 00 00 01 00 00 00 09 00 00 00 2C 01 00 00 B0 05 0A 00"
                         " 01 04 00 00 00 02 00 00 00 FF FF FF FF") +
                     NameBytes("C:\\in");
  const Poll built{.transfer = 0x01020304,
                   .round = 7,
                   .firstGroup = 1,
                   .endGroup = 9,
                   .catalogueLength = 300,
                   .symbolSize = 1456,
                   .spread = 10,
                   .platform = 1,
                   .totalBlocks = 4,
                   .fileCount = 2,
                   .targetFolder = 0xFFFFFFFF,
                   .targetPath = NameField::From("C:\\in")};
  EXPECT_EQ(ToBytes(Build(built)), poll);
  EXPECT_EQ(std::get<Poll>(ParseFromSender(poll)).Announcement(), built.Announcement());

  const Bytes lacks = FromHex(
      "91 02 18 01 00 00 04 03 02 01 07 00 00 00 09 00 00 00 01 02 00 00 02 00 00 00 05 "
      "08 00 00 00 80");
  const Lacks said{{.transfer = 0x01020304, .round = 7, .endGroup = 9, .arrived = 0x201}, {{2, 5}, {8, 128}}};
  EXPECT_EQ(BuildLacks(said), lacks);
  EXPECT_EQ(std::get<Lacks>(ParseFromReceiver(lacks)).groups, said.groups);
  EXPECT_EQ(std::get<Lacks>(ParseFromReceiver(lacks + FromHex("08 00 00 00 01"))).groups, said.groups) << "no order";
}

TEST(Datagrams, YoungerOnesGrowAndCarryATextWithinBounds) {
  EXPECT_EQ(ToBytes(Build(Offer{.session = 0x01020304, .capabilities = 5})),
            FromHex("91 02 10 01 00 00 04 03 02 01 05 00 00 00"));
  const Bytes text(MAX_TEXT, 'x');
  const Bytes letter = BuildText(Letter{.session = 1, .instance = 2, .number = 3, .text = text});
  EXPECT_EQ(std::get<Letter>(ParseFromReceiver(letter)).text.size(), MAX_TEXT);
  EXPECT_EQ(RejectOf(ParseFromReceiver(letter + Bytes{'x'})), Reject::TextTooLong);

  Bytes grown = BuildText(Word{.session = 1, .number = 7, .text = text});
  grown[4] = 2;  // two bytes of an extension that this version does not know
  EXPECT_EQ(std::get<Word>(ParseFromSender(grown)).text.size(), MAX_TEXT - 2);
  grown[5] = 0xFF;
  EXPECT_EQ(RejectOf(ParseFromSender(grown)), Reject::TooShort);
  grown[3] = 0;
  EXPECT_EQ(RejectOf(ParseFromSender(grown)), Reject::UnknownCommand) << "there is no version 0";

  Bytes padded = ToBytes(Build(Offer{.session = 9})) + Bytes(100, 0);
  EXPECT_EQ(std::get<Offer>(ParseFromSender(padded)).size, padded.size());
  EXPECT_EQ(std::get<Heard>(ParseReply(Build(Heard{.number = 4}))).number, 4u);
  EXPECT_EQ(std::get<UnderWay>(ParseReply(Build(UnderWay{.totalBlocks = 8}))).totalBlocks, 8u);
}

TEST(Datagrams, EmptyDirectories) {
  const std::vector<NameField> one = {NameField::From("\\photos\\empty")};
  EXPECT_EQ(BuildEmptyDir(one), FromHex("91 02 0A 01 00 00 00") + NameBytes("\\photos\\empty"));
  const std::vector<NameField> many(41, NameField::From("\\d"));
  Bytes full = BuildEmptyDir(many);
  EXPECT_EQ(full.size(), 20967u);
  EXPECT_EQ(full[3], 40);

  full[3] = 200;  // more than the protocol allows is read as 40
  EXPECT_EQ(std::get<EmptyDir>(ParseFromSender(full)).names.size(), 40u);
  full[6] = 0x80;  // negative as a signed number
  EXPECT_TRUE(std::get<EmptyDir>(ParseFromSender(full)).names.empty());
  EXPECT_EQ(RejectOf(ParseFromSender(FromHex("91 02 0A 01 00 00 00"))), Reject::TooShort);
}

TEST(NameFields, TextEndsAtTheFirstOfNulLengthAndField) {
  NameField field = NameField::From("abc");
  EXPECT_EQ(field.length, 4u);
  for (const uint32_t length : {3u, 4u, 520u, 521u, 0xFFFFFFFFu}) {
    field.length = length;
    EXPECT_EQ(field.Text(), "abc") << length;
  }
  field.length = 2;
  EXPECT_EQ(field.Text(), "ab");
  field.length = 0;
  EXPECT_EQ(field.Text(), "");
  field.text.fill('x');
  field.length = 0xFFFFFFFF;
  EXPECT_EQ(field.Text().size(), 520u);
  EXPECT_EQ(NameField::From(std::string(600, 'y')).Text().size(), 519u);
}

TEST(Blocks, FilesAreCutAtBlockSize) {
  EXPECT_EQ(FileShape::Of(0), (FileShape{0, 0}));
  EXPECT_EQ(FileShape::Of(4253), (FileShape{0, 4253}));
  EXPECT_EQ(FileShape::Of(4254), (FileShape{1, 0}));
  EXPECT_EQ(FileShape::Of(4255), (FileShape{1, 1}));
  const uint64_t fiveGiB = 5ull << 30;
  EXPECT_EQ(FileShape::Of(fiveGiB)->Length(), fiveGiB);
  EXPECT_TRUE(FileShape::Of(4254ull * 0xFFFFFFFF - 1).has_value());
  EXPECT_FALSE(FileShape::Of(4254ull * 0xFFFFFFFF).has_value());
}

TEST(SenderSockets, OnlyADatagramOfTheSystemMakesAGroupBusy) {
  for (const bool isForeign : {false, true}) {
    sim::World world{1};
    sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
    sim::SimMachine& other = world.AddMachine("other", Ipv4(10, 0, 0, 2));
    Counters counters;
    SenderSockets sockets(machine.Seam(), RoomAddress{.localInterface = machine.Address()}, counters);
    const auto datagram = isForeign ? std::vector<uint8_t>(7) : std::vector<uint8_t>{0x91, 2, CMD_DATA};
    world.At(world.Now() + 10ms, [&] {
      world.Net().Carry({world.Now(), &other, {other.Address(), 5}, RoomAddress{}.group, datagram});
    });
    bool opened = false;
    machine.Call([&] { opened = sockets.Open(nullptr); });
    EXPECT_EQ(opened, isForeign);
    sockets.Close();
  }
}

TEST(RoomAddress, DefaultsAndTheReplyPortThatWraps) {
  const RoomAddress standard = RoomAddress::From(0, 0, 0);
  EXPECT_EQ(standard.group, (Endpoint{Ipv4(235, 9, 2, 9), 27001}));
  EXPECT_EQ(standard.ReplyPort(), 27003);
  EXPECT_EQ(RoomAddress::From(0, 65535, 0).ReplyPort(), 1);
  EXPECT_EQ(RoomAddress::From(0, 0x10001, 0).group.port, 1);
}

TEST(BlockRanges, HoldWhatTheySayAndNothingWhenTheyOverlap) {
  BlockRanges ranges;
  ASSERT_TRUE(ranges.Take({{2, 3, 4, 0}, {2, 9, 5, 0}}));
  for (const auto& [block, has] :
       {std::pair{2u, false}, {3u, true}, {6u, true}, {7u, false}, {13u, true}, {14u, false}})
    EXPECT_EQ(ranges.Has(2, block), has) << block;
  EXPECT_EQ(ranges.CountOf(2, 10), 5u) << "what lies beyond the file does not count";
  EXPECT_FALSE(ranges.Take({{2, 3, 4, 0}, {2, 6, 5, 0}}));
  EXPECT_EQ(ranges.CountOf(2, 100), 0u);
}

}  // namespace
}  // namespace quorl
