// The words in which scenarios are told.
#pragma once

#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "sim/room.h"

namespace quorl::sim {

inline bool Is(const Transit& transit, Command command) {
  return transit.datagram.size() > 2 && transit.datagram[2] == command;
}

inline bool IsBlock(const Transit& transit) {
  return Is(transit, CMD_DATA) || Is(transit, CMD_RESEND);
}

inline BlockHead HeadOf(const Transit& transit) {
  return ReadFields<BlockHead>(transit.datagram);
}

/// What was said after the stream, one line each: "receiver0: CMD_ACK file=2 block=5".
inline std::vector<std::string> RepairTalk(Room& room) {
  std::vector<std::string> talk;
  for (const SentDatagram& sent : room.Net().Sent()) {
    const uint8_t command = sent.bytes.at(2);
    const bool fromSender = sent.from == &room.Sender();
    const bool isRepair =
        fromSender ? command == CMD_MASTER || command == CMD_RELEASE || command == CMD_RESEND : command != CMD_CLIENT;
    if (!isRepair) continue;
    std::string line = sent.from->Name() + ": " + Describe(sent.bytes);
    if (command == CMD_RESEND) line = line.substr(0, line.find(" last block"));
    talk.push_back(line);
  }
  return talk;
}

inline size_t CountSent(Room& room, Command command) {
  size_t count = 0;
  for (const SentDatagram& sent : room.Net().Sent()) count += sent.bytes.at(2) == command ? 1 : 0;
  return count;
}

/// What has become of everybody, in one line: for each receiver "whole" or "holes", "told" when its host was told that
/// it is complete, and the status under which the sender reports it.
inline std::string Ends(Room& room) {
  std::string line;
  const auto failed = room.FailedReceivers();
  for (size_t index = 0; index < room.Receivers(); ++index) {
    if (index > 0) line += ", ";
    line += room.TreesIdentical(index) ? "whole" : "holes";
    if (room.WasToldComplete(index)) line += " told";
    if (failed.contains(index)) line += " " + std::to_string(failed.at(index));
  }
  return line;
}

}  // namespace quorl::sim
