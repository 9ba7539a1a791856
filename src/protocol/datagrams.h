// Every datagram that sender and receivers exchange: the codes, one struct a layout, building and parsing.
//
// What comes off the wire is parsed here once. What cannot come from a conforming peer is rejected with its reason, so
// that later code can trust what it gets: all bytes of a block have arrived. A block beyond its file's last has none.
#pragma once

#include <quorl/host.h>
#include <quorl/quorl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "protocol/blocks.h"
#include "protocol/layout.h"

namespace quorl {

/// What each says stands in protocol/datagram_list.h. Those from CMD_OFFER on are younger than the others.
enum Command : uint8_t {
  CMD_COLLECT = 1,
  CMD_CLIENT = 2,
  CMD_MASTER = 3,
  CMD_RELEASE = 4,
  CMD_ACK = 5,
  CMD_TASK = 6,
  CMD_RESEND = 7,
  CMD_FINISH = 8,
  CMD_STOP = 9,
  CMD_EMPTYDIR = 10,
  CMD_DATA = 11,
  CMD_ANSWER = 12,
  CMD_SERVEROS = 13,
  CMD_REPORT = 14,
  CMD_AOFNAME = 15,
  CMD_OFFER = 16,
  CMD_ACCEPT = 17,
  CMD_UNDERWAY = 18,
  CMD_WORD = 19,
  CMD_LETTER = 20,
  CMD_HEARD = 21,
  CMD_POLL = 22,
  CMD_SYMBOL = 23,
  CMD_LACKS = 24,
};

/// The bytes 0x91 0x02 begin every datagram.
inline constexpr uint16_t MAGIC = 657;
inline constexpr size_t HEADER_SIZE = 3;

struct Collect {
  static constexpr Command COMMAND = CMD_COLLECT;
};

struct Client {
  static constexpr Command COMMAND = CMD_CLIENT;
  uint8_t platform = 0;  ///< 1 on the NT family
};
template <>
inline constexpr auto FIELDS<Client> = std::tuple{Field{"platform", 3, &Client::platform}};

struct Master {
  static constexpr Command COMMAND = CMD_MASTER;
  uint32_t state = 0;  ///< not 0: acknowledge with what you miss; 0: leave if you miss nothing
};
template <>
inline constexpr auto FIELDS<Master> = std::tuple{Field{"state", 3, &Master::state}};

struct Release {
  static constexpr Command COMMAND = CMD_RELEASE;
  uint8_t allSent = 0;     ///< 1: leave if you miss nothing
  uint8_t secondPass = 0;  ///< not 0: leave at once
};
template <>
inline constexpr auto FIELDS<Release> =
    std::tuple{Field{"all sent", 3, &Release::allSent}, Field{"second pass", 4, &Release::secondPass}};

struct Ack {
  static constexpr Command COMMAND = CMD_ACK;
  uint32_t file = 0;  ///< 1 to the file count; one more when nothing is wanted
  uint32_t block = 0;
};
template <>
inline constexpr auto FIELDS<Ack> = std::tuple{Field{"file", 3, &Ack::file}, Field{"block", 7, &Ack::block}};

struct Task {
  static constexpr Command COMMAND = CMD_TASK;
  uint32_t totalBlocks = 0;
  uint32_t fileCount = 0;
  uint32_t targetFolder = 0;  ///< a special folder, or 0xFFFFFFFF for targetPath
  NameField targetPath;

  friend bool operator==(const Task&, const Task&) = default;
};
template <>
inline constexpr auto FIELDS<Task> =
    std::tuple{Field{"total blocks", 3, &Task::totalBlocks}, Field{"file count", 7, &Task::fileCount},
               Field{"target folder", 11, &Task::targetFolder}, Field{"target path", 15, &Task::targetPath}};

/// The head of CMD_DATA and CMD_RESEND; the block's bytes follow it.
struct BlockHead {
  uint32_t file = 0;
  uint32_t block = 0;
  uint32_t lastBlock = 0;
  uint8_t firstSending = 0;  ///< 1 in CMD_DATA, 0 in CMD_RESEND
  uint16_t tailSize = 0;
  NameField name;

  FileShape Shape() const { return {lastBlock, tailSize}; }
};
template <>
inline constexpr auto FIELDS<BlockHead> = std::tuple{Field{"file", 3, &BlockHead::file},
                                                     Field{"block", 7, &BlockHead::block},
                                                     Field{"last block", 11, &BlockHead::lastBlock},
                                                     Field{"first sending", 15, &BlockHead::firstSending},
                                                     Field{"tail size", 16, &BlockHead::tailSize},
                                                     Field{"name", 18, &BlockHead::name}};

struct Data {
  static constexpr Command COMMAND = CMD_DATA;
  BlockHead head;
  std::span<const uint8_t> bytes;  ///< All bytes of the block, in the buffer that was parsed.
};

struct Resend {
  static constexpr Command COMMAND = CMD_RESEND;
  BlockHead head;
  std::span<const uint8_t> bytes;
};

struct Finish {
  static constexpr Command COMMAND = CMD_FINISH;
  uint16_t status = 0;
};
template <>
inline constexpr auto FIELDS<Finish> = std::tuple{Field{"status", 3, &Finish::status}};

struct Stop {
  static constexpr Command COMMAND = CMD_STOP;
};

/// The head of CMD_EMPTYDIR; that many name fields follow it.
struct EmptyDirHead {
  static constexpr Command COMMAND = CMD_EMPTYDIR;
  uint32_t count = 0;
};
template <>
inline constexpr auto FIELDS<EmptyDirHead> = std::tuple{Field{"count", 3, &EmptyDirHead::count}};

struct EmptyDir {
  static constexpr Command COMMAND = CMD_EMPTYDIR;
  std::vector<NameField> names;  ///< At most EMPTY_DIR_LIMIT.
};

struct Answer {
  static constexpr Command COMMAND = CMD_ANSWER;
  uint32_t missingBlocks = 0;
};
template <>
inline constexpr auto FIELDS<Answer> = std::tuple{Field{"missing blocks", 3, &Answer::missingBlocks}};

struct ServerOs {
  static constexpr Command COMMAND = CMD_SERVEROS;
  uint8_t platform = 0;  ///< 1 on the NT family
};
template <>
inline constexpr auto FIELDS<ServerOs> = std::tuple{Field{"platform", 3, &ServerOs::platform}};

struct Report {
  static constexpr Command COMMAND = CMD_REPORT;
  uint32_t reserved = 0;
};
template <>
inline constexpr auto FIELDS<Report> = std::tuple{Field{"reserved", 3, &Report::reserved}};

struct AutoOpenName {
  static constexpr Command COMMAND = CMD_AOFNAME;
  NameField name;
};
template <>
inline constexpr auto FIELDS<AutoOpenName> = std::tuple{Field{"name", 3, &AutoOpenName::name}};

// ---- what younger peers say to each other ----

struct Offer {
  static constexpr Command COMMAND = CMD_OFFER;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;
  uint32_t capabilities = 0;
  uint16_t size = 0;  ///< Of the datagram that was parsed; travels in no field.
};
template <>
inline constexpr auto FIELDS<Offer> =
    std::tuple{Field{"version", 3, &Offer::version}, Field{"extension", 4, &Offer::extension},
               Field{"session", 6, &Offer::session}, Field{"capabilities", 10, &Offer::capabilities}};

struct Accept {
  static constexpr Command COMMAND = CMD_ACCEPT;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;  ///< The offer's; 0: none has been heard, but a transfer has.
  uint32_t capabilities = 0;
  uint32_t instance = 0;  ///< Another one in each program that is started.
  uint16_t longest = 0;   ///< Bytes of the longest offer that came.
};
template <>
inline constexpr auto FIELDS<Accept> =
    std::tuple{Field{"version", 3, &Accept::version},    Field{"extension", 4, &Accept::extension},
               Field{"session", 6, &Accept::session},    Field{"capabilities", 10, &Accept::capabilities},
               Field{"instance", 14, &Accept::instance}, Field{"longest", 18, &Accept::longest}};

struct UnderWay {
  static constexpr Command COMMAND = CMD_UNDERWAY;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;
  uint32_t totalBlocks = 0;
  uint32_t sentBlocks = 0;
};
template <>
inline constexpr auto FIELDS<UnderWay> =
    std::tuple{Field{"version", 3, &UnderWay::version}, Field{"extension", 4, &UnderWay::extension},
               Field{"session", 6, &UnderWay::session}, Field{"total blocks", 10, &UnderWay::totalBlocks},
               Field{"sent blocks", 14, &UnderWay::sentBlocks}};

struct Word {
  static constexpr Command COMMAND = CMD_WORD;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;
  uint32_t number = 0;
  std::span<const uint8_t> text{};  ///< What follows the fields, in the buffer that was parsed.
};
template <>
inline constexpr auto FIELDS<Word> =
    std::tuple{Field{"version", 3, &Word::version}, Field{"extension", 4, &Word::extension},
               Field{"session", 6, &Word::session}, Field{"number", 10, &Word::number}};

struct Letter {
  static constexpr Command COMMAND = CMD_LETTER;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;
  uint32_t instance = 0;
  uint32_t number = 0;
  std::span<const uint8_t> text{};
};
template <>
inline constexpr auto FIELDS<Letter> =
    std::tuple{Field{"version", 3, &Letter::version}, Field{"extension", 4, &Letter::extension},
               Field{"session", 6, &Letter::session}, Field{"instance", 10, &Letter::instance},
               Field{"number", 14, &Letter::number}};

struct Heard {
  static constexpr Command COMMAND = CMD_HEARD;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t session = 0;
  uint32_t instance = 0;
  uint32_t number = 0;
  uint8_t knowsEnd = 0;  ///< The first byte of the extension: 1 once the writer has said how its transfer has ended.
};
template <>
inline constexpr auto FIELDS<Heard> = std::tuple{
    Field{"version", 3, &Heard::version}, Field{"extension", 4, &Heard::extension},
    Field{"session", 6, &Heard::session}, Field{"instance", 10, &Heard::instance}, Field{"number", 14, &Heard::number}};

/// A capability that is the library's own.
inline constexpr uint32_t KNOWS_SYMBOLS = QUORL_TAKES_SYMBOLS;

// ---- the coded transfer; src/coded tells what groups and symbols are ----

/// Repeats the announcement, so that nobody is left out who has missed that.
struct Poll {
  static constexpr Command COMMAND = CMD_POLL;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t transfer = 0;  ///< Another one in each transfer; never 0.
  uint32_t round = 0;     ///< Counts the polls, from 1 on.
  uint32_t firstGroup = 0;
  uint32_t endGroup = 0;  ///< Lacks are asked for from `firstGroup` to before this one.
  uint32_t catalogueLength = 0;
  uint16_t symbolSize = 0;
  uint16_t spread = 0;   ///< Milliseconds over which receivers spread their answers.
  uint8_t platform = 0;  ///< 1 on the NT family
  uint32_t totalBlocks = 0;
  uint32_t fileCount = 0;
  uint32_t targetFolder = 0;
  NameField targetPath{};

  Task Announcement() const { return {totalBlocks, fileCount, targetFolder, targetPath}; }
};
template <>
inline constexpr auto FIELDS<Poll> = std::tuple{Field{"version", 3, &Poll::version},
                                                Field{"extension", 4, &Poll::extension},
                                                Field{"transfer", 6, &Poll::transfer},
                                                Field{"round", 10, &Poll::round},
                                                Field{"first group", 14, &Poll::firstGroup},
                                                Field{"end group", 18, &Poll::endGroup},
                                                Field{"catalogue length", 22, &Poll::catalogueLength},
                                                Field{"symbol size", 26, &Poll::symbolSize},
                                                Field{"spread", 28, &Poll::spread},
                                                Field{"platform", 30, &Poll::platform},
                                                Field{"total blocks", 31, &Poll::totalBlocks},
                                                Field{"file count", 35, &Poll::fileCount},
                                                Field{"target folder", 39, &Poll::targetFolder},
                                                Field{"target path", 43, &Poll::targetPath}};

struct SymbolHead {
  static constexpr Command COMMAND = CMD_SYMBOL;
  uint32_t transfer = 0;
  uint32_t group = 0;
  uint8_t index = 0;
};
template <>
inline constexpr auto FIELDS<SymbolHead> =
    std::tuple{Field{"transfer", 3, &SymbolHead::transfer}, Field{"group", 7, &SymbolHead::group},
               Field{"index", 11, &SymbolHead::index}};

struct SymbolDatagram {
  static constexpr Command COMMAND = CMD_SYMBOL;
  SymbolHead head;
  std::span<const uint8_t> bytes;  ///< In the buffer that was parsed.
};

/// The head of CMD_LACKS; behind it a GroupLack for each group that is not stored or on its way to the disk, in
/// ascending order.
struct LacksHead {
  static constexpr Command COMMAND = CMD_LACKS;
  uint8_t version = 1;
  uint16_t extension = 0;
  uint32_t transfer = 0;
  uint32_t round = 0;     ///< The poll's.
  uint32_t endGroup = 0;  ///< Nothing is said of this group and those behind it.
  uint32_t arrived = 0;   ///< Symbols that have come so far, modulo 2^32.
};
template <>
inline constexpr auto FIELDS<LacksHead> =
    std::tuple{Field{"version", 3, &LacksHead::version},     Field{"extension", 4, &LacksHead::extension},
               Field{"transfer", 6, &LacksHead::transfer},   Field{"round", 10, &LacksHead::round},
               Field{"end group", 14, &LacksHead::endGroup}, Field{"arrived", 18, &LacksHead::arrived}};

struct GroupLack {
  uint32_t group = 0;
  uint8_t symbols = 0;

  friend bool operator==(const GroupLack&, const GroupLack&) = default;
};
template <>
inline constexpr auto FIELDS<GroupLack> =
    std::tuple{Field{"group", 0, &GroupLack::group}, Field{"symbols", 4, &GroupLack::symbols}};

struct Lacks {
  static constexpr Command COMMAND = CMD_LACKS;
  LacksHead head;
  std::vector<GroupLack> groups;  ///< Ascending.
};

template <typename Message>
inline constexpr size_t LENGTH = FixedLength<Message, HEADER_SIZE>();

/// The head of a block datagram, and the largest block datagram.
inline constexpr size_t BLOCK_HEAD_SIZE = LENGTH<BlockHead>;
inline constexpr size_t MAX_DATAGRAM = BLOCK_HEAD_SIZE + BLOCK_SIZE;

/// Directories that one CMD_EMPTYDIR announces at most, and the size of the largest: the largest datagram of all.
inline constexpr size_t EMPTY_DIR_LIMIT = QUORL_EMPTY_DIRECTORIES;
inline constexpr size_t MAX_EMPTY_DIR_DATAGRAM = LENGTH<EmptyDirHead> + EMPTY_DIR_LIMIT * WireSize<NameField>();

/// What hosts say to each other at most in one datagram.
inline constexpr size_t MAX_TEXT = QUORL_TEXT_SIZE;

/// The largest datagram that a receiver sends, with some room for extensions.
inline constexpr size_t MAX_REPLY = 1472;

/// Of this size are the datagrams of a coded transfer: what one frame of an Ethernet link holds, so that none is ever
/// cut. Nearly all of it is the symbol; its size is a multiple of 16, as vector instructions like it.
inline constexpr size_t CODED_DATAGRAM = 1472;
inline constexpr size_t SYMBOL_SIZE = (CODED_DATAGRAM - LENGTH<SymbolHead>) / 16 * 16;

/// Groups that one CMD_LACKS names at most.
inline constexpr size_t GROUP_LACK_SIZE = FixedLength<GroupLack, 0>();
inline constexpr size_t MOST_LACKS = (MAX_REPLY - LENGTH<LacksHead>) / GROUP_LACK_SIZE;

static_assert(LENGTH<Collect> == 3 && LENGTH<Client> == 4 && LENGTH<Master> == 7 && LENGTH<Release> == 5);
static_assert(LENGTH<Ack> == 11 && LENGTH<Task> == 539 && LENGTH<Finish> == 5 && LENGTH<Stop> == 3);
static_assert(LENGTH<Answer> == 7 && LENGTH<ServerOs> == 4 && LENGTH<Report> == 7 && LENGTH<AutoOpenName> == 527);
static_assert(LENGTH<Letter> + MAX_TEXT <= MAX_REPLY && LENGTH<Word> + MAX_TEXT <= MAX_REPLY);
static_assert(LENGTH<Poll> == 567 && LENGTH<SymbolHead> == 12 && LENGTH<LacksHead> == 22 && SYMBOL_SIZE == 1456);
static_assert(BLOCK_HEAD_SIZE == 542 && MAX_DATAGRAM == 4796 && MAX_EMPTY_DIR_DATAGRAM == 20967);

// ---- building ----

void WriteHeader(Command command, std::span<uint8_t> datagram);

/// A whole datagram of fixed length; bytes that no field names are zero.
template <typename Message>
std::array<uint8_t, LENGTH<Message>> Build(const Message& message) {
  static_assert(FieldsAscend<Message, HEADER_SIZE>());
  std::array<uint8_t, LENGTH<Message>> datagram{};
  WriteHeader(Message::COMMAND, datagram);
  WriteFields(message, datagram);
  return datagram;
}

/// Names beyond the first EMPTY_DIR_LIMIT are left out.
std::vector<uint8_t> BuildEmptyDir(std::span<const NameField> names);

std::vector<uint8_t> BuildHeard(Heard heard);

/// A Word or a Letter with its text, of which no more than MAX_TEXT bytes travel.
template <typename Message>
std::vector<uint8_t> BuildText(const Message& message) {
  const auto head = Build(message);
  const auto text = message.text.first(std::min(message.text.size(), MAX_TEXT));
  std::vector<uint8_t> datagram(head.size() + text.size());
  std::copy(text.begin(), text.end(), std::copy(head.begin(), head.end(), datagram.begin()));
  return datagram;
}

/// An offer of CODED_DATAGRAM bytes: whom it reaches, symbols reach.
std::vector<uint8_t> BuildPaddedOffer(Offer offer);

/// Groups beyond the first MOST_LACKS are left out.
std::vector<uint8_t> BuildLacks(const Lacks& lacks);

/// One datagram buffer for a stream of blocks: sending a block allocates nothing. Used by one thread at a time.
class BlockDatagram {
 public:
  /// `command`: CMD_DATA or CMD_RESEND.
  explicit BlockDatagram(Command command);

  void SetFile(uint32_t number, std::string_view name, FileShape shape);
  void SetBlock(uint32_t block);

  /// Room for the bytes of one block.
  std::span<uint8_t> BlockBytes();

  /// The datagram with the first `byteCount` bytes of the block.
  std::span<const uint8_t> Datagram(size_t byteCount) const;

 private:
  BlockHead head;
  std::array<uint8_t, MAX_DATAGRAM> buffer{};
};

// ---- parsing ----

/// Why a datagram goes no further.
enum class Reject {
  WrongMagic,       ///< Not of this system at all.
  UnknownCommand,   ///< A code that does not exist.
  NotForThisSide,   ///< A code that only the other side, or another socket, takes.
  TooShort,         ///< Shorter than its layout.
  NotFirstSending,  ///< A CMD_DATA that says it is none.
  FileNumberZero,   ///< Files are numbered from 1.
  TailOutOfRange,   ///< A last block of BLOCK_SIZE bytes or more.
  BlockIncomplete,  ///< Fewer bytes than the block has.
  TextTooLong,      ///< More than hosts may say in one datagram.
};

/// Whether the first two bytes are the magic.
bool HasMagic(std::span<const uint8_t> datagram);

/// What a receiver's data socket takes.
using FromSender = std::variant<Reject, Collect, Master, Release, Task, Resend, Finish, Stop, EmptyDir, Data, ServerOs,
                                AutoOpenName, Offer, Word, Poll, SymbolDatagram>;
FromSender ParseFromSender(std::span<const uint8_t> datagram);

/// What a sender's reply socket takes.
using FromReceiver = std::variant<Reject, Client, Ack, Finish, Answer, Accept, Letter, Lacks>;
FromReceiver ParseFromReceiver(std::span<const uint8_t> datagram);

/// What a receiver's letter socket takes.
using Reply = std::variant<Reject, UnderWay, Heard>;
Reply ParseReply(std::span<const uint8_t> datagram);

/// Whether a receiver's report socket got a heartbeat.
bool IsReport(std::span<const uint8_t> datagram);

/// One line for logs and traces: the command with its fields, names escaped. Any bytes are allowed.
std::string Describe(std::span<const uint8_t> datagram);

}  // namespace quorl
