// What no copy can cure, because every copy is lost: measured for each profile, so that the documents can say what it
// costs.
#include "sim/hard_losses.h"

#include <cstdio>

#include "protocol/datagrams.h"
#include "sim/room.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr Duration LONGEST_TRANSFER = 600s;

// A receiver that hears nothing more gives its sender up in less.
constexpr Duration RECEIVERS_AFTERWARDS = 30s;

bool Is(const Transit& transit, Command command) {
  return transit.datagram[2] == command;
}

bool IsOwnLostBlock(HardLoss loss, Room& room, const Transit& transit) {
  if (!Is(transit, CMD_DATA)) return false;
  const auto head = ReadFields<BlockHead>(transit.datagram);
  if (transit.to == &room.Receiver(1)) return head.file == 2 && head.block == 7;
  return loss != HardLoss::EveryAnswer && head.file == 2 && head.block == 5;
}

bool IsHardLost(HardLoss loss, Room& room, const Transit& transit) {
  const bool atFirst = transit.to == &room.Receiver(0);
  switch (loss) {
    case HardLoss::None: return false;
    case HardLoss::EveryFinish: return atFirst && Is(transit, CMD_FINISH);
    case HardLoss::EveryTask: return atFirst && Is(transit, CMD_TASK);
    case HardLoss::EveryAnswer: return Is(transit, CMD_ANSWER);
  }
  return false;
}

HardLossEnd EndOf(Room& room, size_t index, uint32_t statusAtSender) {
  HardLossEnd end{room.TreesIdentical(index), room.WasToldComplete(index), 0, statusAtSender};
  for (const uint32_t status : Room::Statuses(room.Receiver(index)))
    if (status != 0) end.hostStatus = status;
  return end;
}

std::string ToText(const HardLossEnd& end) {
  std::string text = end.whole ? "whole" : "holes";
  if (end.toldComplete) text += ", told so";
  if (end.hostStatus != 0) text += ", told " + std::to_string(end.hostStatus);
  if (end.statusAtSender != 0) text += ", reported " + std::to_string(end.statusAtSender);
  return text;
}

}  // namespace

std::string ToText(HardLoss loss) {
  switch (loss) {
    case HardLoss::None: return "two blocks only";
    case HardLoss::EveryFinish: return "+ every CMD_FINISH at the first";
    case HardLoss::EveryTask: return "+ every CMD_TASK at the first";
    case HardLoss::EveryAnswer: return "+ every CMD_ANSWER";
  }
  return "";
}

HardLossRun RunHardLoss(HardLoss loss, Profile profile) {
  Room room({.receivers = 2, .senderProfile = profile, .receiverProfile = profile});
  for (const char* name : {"a", "b", "c"}) room.File(name, 19 * BLOCK_SIZE + 1);
  room.Net().SetFilter(
      [&](const Transit& transit) { return !IsOwnLostBlock(loss, room, transit) && !IsHardLost(loss, room, transit); });
  room.StartReceivers();
  room.Send();
  const Moment start = room.World().Now();
  room.World().RunUntil([&] { return room.IsSenderThrough(); }, LONGEST_TRANSFER);
  HardLossRun run;
  run.took = room.World().Now() - start;
  room.World().RunFor(RECEIVERS_AFTERWARDS);
  const auto failed = room.FailedReceivers();
  for (size_t i = 0; i < room.Receivers(); ++i)
    run.receivers.push_back(EndOf(room, i, failed.contains(i) ? failed.at(i) : 0));
  const std::vector<uint32_t> statuses = Room::Statuses(room.Sender());
  run.senderStatus = statuses.empty() ? 0 : statuses.back();
  run.resends = room.Server().GetState().blocksResent;
  return run;
}

std::string HardLossTable() {
  std::string table;
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    table += profile == Profile::Classic ? "classic\n" : "robust\n";
    for (const auto loss : {HardLoss::None, HardLoss::EveryFinish, HardLoss::EveryTask, HardLoss::EveryAnswer}) {
      const HardLossRun run = RunHardLoss(loss, profile);
      char line[240];
      std::snprintf(line, sizeof line, "  %-32s first: %-34s second: %-34s sender %4u  %6.1f s  %llu resent\n",
                    ToText(loss).c_str(), ToText(run.receivers[0]).c_str(), ToText(run.receivers[1]).c_str(),
                    run.senderStatus, std::chrono::duration<double>(run.took).count(),
                    static_cast<unsigned long long>(run.resends));
      table += line;
    }
  }
  return table;
}

}  // namespace quorl::sim
