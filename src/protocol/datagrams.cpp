#include "protocol/datagrams.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <type_traits>

#include "protocol/datagram_list.h"

namespace quorl {

namespace {

constexpr Field<BlockHead, uint32_t> BLOCK_NUMBER = std::get<1>(FIELDS<BlockHead>);
static_assert(BLOCK_NUMBER.name == "block");

template <typename Message>
bool IsLongEnough(std::span<const uint8_t> datagram) {
  return datagram.size() >= LENGTH<Message>;
}

/// A datagram of fixed length as one alternative of `Result`, or Reject::TooShort.
template <typename Result, typename Message>
Result ParseFixed(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<Message>(datagram)) return Reject::TooShort;
  return ReadFields<Message>(datagram);
}

template <typename Message>
FromSender ParseBlock(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<BlockHead>(datagram)) return Reject::TooShort;
  const BlockHead head = ReadFields<BlockHead>(datagram);
  if (Message::COMMAND == CMD_DATA && head.firstSending == 0) return Reject::NotFirstSending;
  if (head.file == 0) return Reject::FileNumberZero;
  if (head.tailSize >= BLOCK_SIZE) return Reject::TailOutOfRange;
  const auto bytes = datagram.subspan(BLOCK_HEAD_SIZE);
  const size_t expected = head.Shape().BytesInBlock(head.block);
  if (bytes.size() < expected) return Reject::BlockIncomplete;
  return Message{head, bytes.first(expected)};
}

FromSender ParseEmptyDir(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<EmptyDirHead>(datagram)) return Reject::TooShort;
  const auto count = static_cast<int32_t>(ReadFields<EmptyDirHead>(datagram).count);
  const auto entries = datagram.subspan(LENGTH<EmptyDirHead>);
  const size_t announced = count < 0 ? 0 : std::min<size_t>(static_cast<size_t>(count), EMPTY_DIR_LIMIT);
  if (entries.size() < announced * WireSize<NameField>()) return Reject::TooShort;
  EmptyDir message;
  for (size_t i = 0; i < announced; ++i)
    message.names.push_back(ReadField<NameField>(entries.subspan(i * WireSize<NameField>())));
  return message;
}

/// One with a version and an extension, as one alternative of `Result`. Of version 0 there is none.
template <typename Result, typename Message>
Result ParseGrowing(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<Message>(datagram)) return Reject::TooShort;
  Message message = ReadFields<Message>(datagram);
  if (message.version == 0) return Reject::UnknownCommand;
  const auto rest = datagram.subspan(LENGTH<Message>);
  if (rest.size() < message.extension) return Reject::TooShort;
  if constexpr (requires { message.text; }) {
    message.text = rest.subspan(message.extension);
    if (message.text.size() > MAX_TEXT) return Reject::TextTooLong;
  }
  if constexpr (requires { message.knowsEnd; }) message.knowsEnd = message.extension == 0 ? uint8_t{0} : rest[0];
  if constexpr (requires { message.size; }) message.size = static_cast<uint16_t>(datagram.size());
  return message;
}

FromSender ParseSymbol(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<SymbolHead>(datagram)) return Reject::TooShort;
  return SymbolDatagram{ReadFields<SymbolHead>(datagram), datagram.subspan(LENGTH<SymbolHead>)};
}

/// What is out of order is left out with all that follows it.
FromReceiver ParseLacks(std::span<const uint8_t> datagram) {
  const auto parsed = ParseGrowing<std::variant<Reject, LacksHead>, LacksHead>(datagram);
  if (const auto* rejected = std::get_if<Reject>(&parsed)) return *rejected;
  const auto* head = std::get_if<LacksHead>(&parsed);
  Lacks lacks{*head, {}};
  auto rest = datagram.subspan(LENGTH<LacksHead> + head->extension);
  for (; rest.size() >= GROUP_LACK_SIZE && lacks.groups.size() < MOST_LACKS; rest = rest.subspan(GROUP_LACK_SIZE)) {
    const auto lack = ReadFields<GroupLack>(rest);
    if (!lacks.groups.empty() && lack.group <= lacks.groups.back().group) break;
    lacks.groups.push_back(lack);
  }
  return lacks;
}

bool IsCommand(uint8_t code) {
  return code >= CMD_COLLECT && code <= CMD_LACKS;
}

std::string Escape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte >= 0x20 && byte < 0x7F && c != '"') {
      escaped += c;
    } else {
      std::array<char, 5> hex{};
      std::snprintf(hex.data(), hex.size(), "\\x%02X", byte);
      escaped += hex.data();
    }
  }
  return escaped;
}

template <typename Message>
std::string DescribeFields(std::span<const uint8_t> datagram) {
  if (!IsLongEnough<Message>(datagram)) return " too short";
  std::string line;
  ForEachField<Message>([&]<typename Value>(const Field<Message, Value>& field) {
    const Value value = ReadField<Value>(datagram.subspan(field.offset));
    line.append(" ").append(field.name).append("=");
    if constexpr (std::is_same_v<Value, NameField>) {
      line.append("\"").append(Escape(value.Text())).append("\"");
    } else {
      line.append(std::to_string(value));
    }
  });
  return line;
}

}  // namespace

void WriteHeader(Command command, std::span<uint8_t> datagram) {
  assert(datagram.size() >= HEADER_SIZE);
  WriteField(datagram, MAGIC);
  datagram[2] = command;
}

std::vector<uint8_t> BuildEmptyDir(std::span<const NameField> names) {
  names = names.first(std::min(names.size(), EMPTY_DIR_LIMIT));
  std::vector<uint8_t> datagram(LENGTH<EmptyDirHead> + names.size() * WireSize<NameField>());
  WriteHeader(CMD_EMPTYDIR, datagram);
  WriteFields(EmptyDirHead{static_cast<uint32_t>(names.size())}, std::span(datagram));
  auto entries = std::span(datagram).subspan(LENGTH<EmptyDirHead>);
  for (const NameField& name : names) {
    WriteField(entries, name);
    entries = entries.subspan(WireSize<NameField>());
  }
  return datagram;
}

std::vector<uint8_t> BuildHeard(Heard heard) {
  heard.extension = 1;
  const auto fields = Build(heard);
  std::vector<uint8_t> datagram(fields.begin(), fields.end());
  datagram.push_back(heard.knowsEnd);
  return datagram;
}

std::vector<uint8_t> BuildPaddedOffer(Offer offer) {
  offer.extension = CODED_DATAGRAM - LENGTH<Offer>;
  const auto head = Build(offer);
  std::vector<uint8_t> datagram(head.begin(), head.end());
  datagram.resize(CODED_DATAGRAM);
  return datagram;
}

std::vector<uint8_t> BuildLacks(const Lacks& lacks) {
  const auto head = Build(lacks.head);
  std::vector<uint8_t> datagram(head.begin(), head.end());
  for (const GroupLack& lack : std::span(lacks.groups).first(std::min(lacks.groups.size(), MOST_LACKS))) {
    const size_t at = datagram.size();
    datagram.resize(at + GROUP_LACK_SIZE);
    WriteFields(lack, std::span(datagram).subspan(at));
  }
  return datagram;
}

BlockDatagram::BlockDatagram(Command command) {
  static_assert(FieldsAscend<BlockHead, HEADER_SIZE>());
  WriteHeader(command, buffer);
  head.firstSending = command == CMD_DATA ? 1 : 0;
}

void BlockDatagram::SetFile(uint32_t number, std::string_view name, FileShape shape) {
  head.file = number;
  head.name = NameField::From(name);
  head.lastBlock = shape.lastBlock;
  head.tailSize = shape.tailSize;
  WriteFields(head, std::span(buffer));
}

void BlockDatagram::SetBlock(uint32_t block) {
  head.block = block;
  WriteField(std::span(buffer).subspan(BLOCK_NUMBER.offset), block);
}

std::span<uint8_t> BlockDatagram::BlockBytes() {
  return std::span(buffer).subspan(BLOCK_HEAD_SIZE);
}

std::span<const uint8_t> BlockDatagram::Datagram(size_t byteCount) const {
  return std::span(buffer).first(BLOCK_HEAD_SIZE + std::min(byteCount, BLOCK_SIZE));
}

bool HasMagic(std::span<const uint8_t> datagram) {
  return datagram.size() >= sizeof(MAGIC) && ReadField<uint16_t>(datagram) == MAGIC;
}

FromSender ParseFromSender(std::span<const uint8_t> datagram) {
  if (!HasMagic(datagram)) return Reject::WrongMagic;
  if (datagram.size() < HEADER_SIZE) return Reject::TooShort;
  switch (datagram[2]) {
    case CMD_COLLECT: return Collect{};
    case CMD_MASTER: return ParseFixed<FromSender, Master>(datagram);
    case CMD_RELEASE: return ParseFixed<FromSender, Release>(datagram);
    case CMD_TASK: return ParseFixed<FromSender, Task>(datagram);
    case CMD_RESEND: return ParseBlock<Resend>(datagram);
    case CMD_FINISH: return ParseFixed<FromSender, Finish>(datagram);
    case CMD_STOP: return Stop{};
    case CMD_EMPTYDIR: return ParseEmptyDir(datagram);
    case CMD_DATA: return ParseBlock<Data>(datagram);
    case CMD_SERVEROS: return ParseFixed<FromSender, ServerOs>(datagram);
    case CMD_AOFNAME: return ParseFixed<FromSender, AutoOpenName>(datagram);
    case CMD_OFFER: return ParseGrowing<FromSender, Offer>(datagram);
    case CMD_WORD: return ParseGrowing<FromSender, Word>(datagram);
    case CMD_POLL: return ParseGrowing<FromSender, Poll>(datagram);
    case CMD_SYMBOL: return ParseSymbol(datagram);
    default: return IsCommand(datagram[2]) ? Reject::NotForThisSide : Reject::UnknownCommand;
  }
}

FromReceiver ParseFromReceiver(std::span<const uint8_t> datagram) {
  if (!HasMagic(datagram)) return Reject::WrongMagic;
  if (datagram.size() < HEADER_SIZE) return Reject::TooShort;
  switch (datagram[2]) {
    case CMD_CLIENT: return ParseFixed<FromReceiver, Client>(datagram);
    case CMD_ACK: return ParseFixed<FromReceiver, Ack>(datagram);
    case CMD_FINISH: return ParseFixed<FromReceiver, Finish>(datagram);
    case CMD_ANSWER: return ParseFixed<FromReceiver, Answer>(datagram);
    case CMD_ACCEPT: return ParseGrowing<FromReceiver, Accept>(datagram);
    case CMD_LETTER: return ParseGrowing<FromReceiver, Letter>(datagram);
    case CMD_LACKS: return ParseLacks(datagram);
    default: return IsCommand(datagram[2]) ? Reject::NotForThisSide : Reject::UnknownCommand;
  }
}

Reply ParseReply(std::span<const uint8_t> datagram) {
  if (!HasMagic(datagram)) return Reject::WrongMagic;
  if (datagram.size() < HEADER_SIZE) return Reject::TooShort;
  switch (datagram[2]) {
    case CMD_UNDERWAY: return ParseGrowing<Reply, UnderWay>(datagram);
    case CMD_HEARD: return ParseGrowing<Reply, Heard>(datagram);
    default: return IsCommand(datagram[2]) ? Reject::NotForThisSide : Reject::UnknownCommand;
  }
}

bool IsReport(std::span<const uint8_t> datagram) {
  return HasMagic(datagram) && datagram.size() >= LENGTH<Report> && datagram[2] == CMD_REPORT;
}

std::string Describe(std::span<const uint8_t> datagram) {
  if (!HasMagic(datagram) || datagram.size() < HEADER_SIZE)
    return "foreign datagram, " + std::to_string(datagram.size()) + " bytes";
  std::string line = "code " + std::to_string(datagram[2]);
  ForEachDatagram([&]<typename Fields>(const ListedDatagram<Fields>& listed) {
    if (listed.code == datagram[2]) line = std::string(listed.name) + DescribeFields<Fields>(datagram);
  });
  return line;
}

}  // namespace quorl
