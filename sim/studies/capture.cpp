// What Wireshark is shown, and what it should say of it.
#include "sim/studies/capture.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <variant>
#include <vector>

#include "protocol/datagrams.h"
#include "sim/network/pcap.h"
#include "sim/room/room.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint32_t RATE = 20'000;
constexpr std::string_view GREETING = "a word", REPLY = "a letter";

std::vector<uint8_t> BytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

/// Two receivers who have something to say, and one who comes late; some of what is sent gets lost.
std::vector<SentDatagram> PlayRoom(bool symbols, bool isStopped) {
  Room room({.receivers = 3,
             .senderProfile = Profile::Robust,
             .receiverProfile = Profile::Robust,
             .autoOpenName = "\\first",
             .capabilities = 1,
             .symbols = symbols});
  room.File("first", 100'000);
  room.File("second", 30'000);
  room.EmptyDirectory("nothing");
  room.EmptyDirectory("nothing either");
  room.Net().SetLoss(0.05);
  room.Server().SetSendRate(RATE);
  for (size_t i = 0; i < 2; ++i) room.StartReceiver(i);
  room.Send();
  room.Sender().Call([&] { room.Server().SendWord(BytesOf(GREETING)); });
  for (size_t i = 0; i < 2; ++i) room.Receiver(i).Call([&] { room.Client(i).SendLetter(BytesOf(REPLY)); });
  room.StartReceiver(2);
  room.World().RunFor(10ms);
  if (isStopped) room.Sender().Call([&] { room.Server().StopSend(); });
  room.RunUntilQuiet(60s);
  return room.Net().Sent();
}

std::string Hex(std::span<const uint8_t> bytes) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) text.append({DIGITS[byte / 16], DIGITS[byte % 16]});
  return text;
}

std::string NamedHex(std::string_view name, std::span<const uint8_t> bytes) {
  return bytes.empty() ? "" : " " + std::string(name) + "=" + Hex(bytes);
}

/// What follows the fields, in the same form.
struct TextOfRest {
  std::span<const uint8_t> datagram;

  template <typename Message>
  std::string operator()(const Message& message) const {
    if constexpr (requires { message.extension; }) {
      std::string text = NamedHex("extension bytes", datagram.subspan(LENGTH<Message>, message.extension));
      if constexpr (requires { message.text; }) text += NamedHex("text", message.text);
      return text;
    } else if constexpr (requires { message.bytes; }) {
      return NamedHex("bytes", message.bytes);
    }
    return "";
  }
  std::string operator()(const EmptyDir& directories) const {
    std::string text;
    for (const NameField& name : directories.names) text += " directory=\"" + std::string(name.Text()) + "\"";
    return text;
  }
  std::string operator()(const Lacks& lacks) const {
    std::string text;
    for (const GroupLack& lack : lacks.groups)
      text += " group=" + std::to_string(lack.group) + " symbols=" + std::to_string(lack.symbols);
    return text;
  }
};

/// Several parsers may know a command, each of one side.
std::string LineOf(const SentDatagram& sent) {
  const TextOfRest rest{sent.bytes};
  const std::string ofSender = std::visit(rest, ParseFromSender(sent.bytes));
  const std::string ofReceiver = std::visit(rest, ParseFromReceiver(sent.bytes));
  const std::string ofReply = std::visit(rest, ParseReply(sent.bytes));
  return Describe(sent.bytes) + ofSender + ofReceiver + ofReply + "\n";
}

}  // namespace

bool WriteCapture(const std::string& path) {
  std::vector<SentDatagram> all;
  for (const auto& [symbols, isStopped] : {std::pair{false, false}, std::pair{true, false}, std::pair{false, true}}) {
    const Moment begin = all.empty() ? Moment{0} : all.back().at;
    for (SentDatagram& sent : PlayRoom(symbols, isStopped)) {
      sent.at += begin;
      all.push_back(std::move(sent));
    }
  }
  std::ofstream log(path + ".log");
  for (const SentDatagram& sent : all) log << LineOf(sent);
  return WritePcap(path, all) && log.flush();
}

}  // namespace quorl::sim
