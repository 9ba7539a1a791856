// Any bytes as a datagram, for both sides. What is taken must be what the bytes say and lie within them.
#include <array>
#include <cctype>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "protocol/datagrams.h"

namespace quorl {
namespace {

using Datagram = std::span<const uint8_t>;

void CheckName(const NameField& field) {
  const std::string_view text = field.Text();
  MUST(text.size() <= NAME_TEXT_SIZE && text.size() <= field.length);
  MUST(text.find('\0') == std::string_view::npos);
  MUST(text.size() == field.length || text.size() == NAME_TEXT_SIZE || field.text[text.size()] == '\0');
}

/// Taken apart and put together again, a datagram of fixed length is the same.
template <typename Message>
void Check(const Message& message, Datagram datagram) {
  const auto built = Build(message);
  MUST(datagram.size() >= built.size());
  MUST(std::equal(built.begin(), built.end(), datagram.begin()));
  if constexpr (std::is_same_v<Message, Task>) CheckName(message.targetPath);
  if constexpr (std::is_same_v<Message, AutoOpenName>) CheckName(message.name);
  if constexpr (requires { message.extension; }) MUST(message.version != 0);
  if constexpr (requires { message.text; }) {
    MUST(message.text.size() <= MAX_TEXT);
    MUST(message.text.data() == datagram.data() + built.size() + message.extension);
    MUST(message.text.data() + message.text.size() == datagram.data() + datagram.size());
  }
}

template <typename Block>
requires(std::is_same_v<Block, Data> || std::is_same_v<Block, Resend>) void Check(const Block& message,
                                                                                  Datagram datagram) {
  const BlockHead& head = message.head;
  MUST(Block::COMMAND == CMD_RESEND || head.firstSending != 0);
  std::array<uint8_t, BLOCK_HEAD_SIZE> built{};
  WriteHeader(Block::COMMAND, built);
  WriteFields(head, std::span<uint8_t>(built));
  MUST(std::equal(built.begin(), built.end(), datagram.begin()));
  CheckName(head.name);

  MUST(head.file >= 1 && head.tailSize < BLOCK_SIZE);
  const uint64_t begin = uint64_t{head.block} * BLOCK_SIZE;
  const uint64_t fileLength = uint64_t{head.lastBlock} * BLOCK_SIZE + head.tailSize;
  // A block beyond its file's last has no bytes.
  const uint64_t rest = head.block > head.lastBlock ? 0 : fileLength - begin;
  MUST(message.bytes.size() == std::min<uint64_t>(BLOCK_SIZE, rest));
  MUST(message.bytes.data() == datagram.data() + BLOCK_HEAD_SIZE);
  MUST(BLOCK_HEAD_SIZE + message.bytes.size() <= datagram.size());
}

void Check(const EmptyDir& message, Datagram datagram) {
  MUST(message.names.size() <= EMPTY_DIR_LIMIT);
  for (const NameField& name : message.names) CheckName(name);
  const std::vector<uint8_t> built = BuildEmptyDir(message.names);
  const size_t head = LENGTH<EmptyDirHead>;
  MUST(datagram.size() >= built.size());
  MUST(std::equal(built.begin() + head, built.end(), datagram.begin() + head));
}

void Check(const SymbolDatagram& message, Datagram datagram) {
  MUST(message.bytes.data() == datagram.data() + LENGTH<SymbolHead>);
  MUST(LENGTH<SymbolHead> + message.bytes.size() == datagram.size());
}

void Check(const Lacks& message, Datagram datagram) {
  MUST(message.head.version != 0 && message.groups.size() <= MOST_LACKS);
  const std::vector<uint8_t> built = BuildLacks(message);
  MUST(datagram.size() >= built.size() + message.head.extension);
  const auto groups = datagram.subspan(LENGTH<LacksHead> + message.head.extension);
  MUST(std::equal(built.begin() + LENGTH<LacksHead>, built.end(), groups.begin()));
  for (size_t i = 1; i < message.groups.size(); ++i) MUST(message.groups[i - 1].group < message.groups[i].group);
}

void Check(Reject reason, Datagram datagram) {
  MUST((reason == Reject::WrongMagic) == !HasMagic(datagram));
}

}  // namespace

void fuzz::Run(Input input) {
  // In a buffer of its own, so that a byte read beyond it is noticed.
  const auto bytes = input.TakeBytes(SIZE_MAX);
  const std::vector<uint8_t> datagram(bytes.begin(), bytes.end());
  std::visit([&](const auto& message) { Check(message, datagram); }, ParseFromSender(datagram));
  std::visit([&](const auto& message) { Check(message, datagram); }, ParseFromReceiver(datagram));
  std::visit([&](const auto& message) { Check(message, datagram); }, ParseReply(datagram));
  MUST(!IsReport(datagram) || std::holds_alternative<Reject>(ParseFromSender(datagram)));
  for (const char c : Describe(datagram)) MUST(c >= 0x20 && c < 0x7F);
}

}  // namespace quorl
