// What must hold in every run. The central sentence: a robust receiver that says in any form that it is complete, to
// its host or to the sender, holds every byte of every file at that very moment; and whatever a classic one says, its
// state does not call it complete before.
#include "sim/campaign/checker.h"

#include <quorl/quorl.h>

#include <algorithm>
#include <cstdio>

#include "protocol/datagrams.h"

namespace quorl::sim {

namespace {

/// The threads of a role, and a few that come and go in its host.
constexpr size_t MOST_THREADS = 12;

/// When a host begins anew before the threads of the former time have ended, for each of which the role waits a while.
constexpr size_t MOST_THREADS_OF_WILD_HOST = 40;

bool IsOneOf(uintptr_t code, std::initializer_list<uintptr_t> codes) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool IsReceiverStatus(uintptr_t code) {
  return IsOneOf(
      code, {QUORL_STATUS_DONE, QUORL_STATUS_DISK_FULL, QUORL_STATUS_FILE_UNWRITABLE, QUORL_STATUS_NOT_FIXED_DISK,
             QUORL_STATUS_SEND_FAILED, QUORL_STATUS_SENDER_LOST, QUORL_STATUS_PATH_TOO_LONG, QUORL_STATUS_TIMED_OUT});
}

bool IsSenderStatus(uintptr_t code) {
  return IsOneOf(code, {QUORL_STATUS_DONE, QUORL_STATUS_FILE_UNREADABLE, QUORL_STATUS_SEND_FAILED,
                        QUORL_STATUS_GROUP_BUSY, QUORL_STATUS_TIMED_OUT});
}

}  // namespace

Checker::Checker(Room& room, Profile senderProfile, Profile receiverProfile, const CheckerOptions& options)
    : room(room),
      senderProfile(senderProfile),
      receiverProfile(receiverProfile),
      options(options),
      receivers(room.Receivers()) {
  for (size_t i = 0; i < room.Receivers(); ++i) {
    indices.emplace(&room.Receiver(i), i);
    room.Receiver(i).SetMessageTap([this, i](const RecordedMessage& message) { SeeReceiverMessage(i, message); });
  }
  room.Sender().SetMessageTap([this](const RecordedMessage& message) { SeeSenderMessage(message); });
  room.Net().SetTap([this](const SentDatagram& datagram) { SeeDatagram(datagram); });
}

Checker::~Checker() {
  room.Net().SetTap({});
  room.Sender().SetMessageTap({});
  for (size_t i = 0; i < room.Receivers(); ++i) room.Receiver(i).SetMessageTap({});
}

void Checker::ReceiverRestarts(size_t index) {
  Place& place = receivers.at(index);
  place = {.trusts = !attacked, .isWild = place.isWild, .claimed = place.claimed, .losesData = place.losesData};
}

void Checker::SenderBeginsAgain() {
  beginsAgain = true;
  SenderRestarts();
}

void Checker::SenderRestarts() {
  senderAnnouncements = 0;
  tableAtEnd.reset();
  senderFailed = false;
}

void Checker::HostRunsWild(std::optional<size_t> receiver) {
  (receiver ? receivers.at(*receiver).isWild : senderIsWild) = true;
}

void Checker::WindowCloses(size_t index) {
  receivers.at(index).hasWindow = false;
  // Without the messages nobody here knows whose transfer it takes part in.
  if (options.hasAttacker) receivers.at(index).trusts = false;
}

void Checker::AttackBegins() {
  attacked = true;
  for (Place& place : receivers)
    place.trusts = place.trusts && place.announcements == 1 && receiverProfile == Profile::Robust &&
                   !options.attackerForgesSources;
}

void Checker::Violate(const std::string& text) {
  // Most happen again and again until the end.
  if (!violated.insert(text).second) return;
  char at[40];
  std::snprintf(at, sizeof at, "at %.3f s: ", std::chrono::duration<double>(room.World().Now()).count());
  violations.push_back(at + text);
}

void Checker::SeeDatagram(const SentDatagram& datagram) {
  CheckThreads(*datagram.from);
  if (const auto receiver = indices.find(datagram.from); receiver != indices.end())
    return SeeReply(receiver->second, datagram);
  if (datagram.from == &room.Sender() && datagram.bytes.at(2) == CMD_STOP) NoteTable();
}

void Checker::SeeReply(size_t index, const SentDatagram& datagram) {
  const FromReceiver reply = ParseFromReceiver(datagram.bytes);
  if (const auto* finish = std::get_if<Finish>(&reply); finish && finish->status == 0)
    ClaimsCompletion(index, "CMD_FINISH 0");
  if (const auto* answer = std::get_if<Answer>(&reply); answer && answer->missingBlocks == 0)
    ClaimsCompletion(index, "CMD_ANSWER 0");
  const auto* ack = std::get_if<Ack>(&reply);
  const bool asksForNothing = ack && receivers[index].announcements != 0 && ack->file > room.FileCount();
  if (asksForNothing) ClaimsCompletion(index, "CMD_ACK for nothing");
}

void Checker::ClaimsCompletion(size_t index, const char* how) {
  Place& place = receivers[index];
  place.claimed = true;
  if (!place.trusts || room.HoldsAllFiles(index)) return;
  // A wild host of the sender may have announced nothing, or an earlier selection.
  if (senderIsWild && (!place.hasWindow || place.announcedFiles != room.FileCount())) return;
  if (receiverProfile == Profile::Classic) {
    ++exceptions[place.announcements == 0 || place.isWild
                     ? "a receiver that has heard of no transfer ends as if complete"
                     : "a receiver that misses blocks ends as if complete"];
    return;
  }
  if (IsBehind(place)) {
    ++exceptions["datagrams of one transfer are taken for those of another, as none says which one it belongs to"];
    return;
  }
  Violate(room.Receiver(index).Name() + " is not complete and says so by " + how);
}

void Checker::SeeReceiverMessage(size_t index, const RecordedMessage& message) {
  Place& place = receivers[index];
  CheckThreads(room.Receiver(index));
  if (message.number == WM_TASK_INFO) {
    ++place.announcements;
    place.announcedFiles = message.wParam;
    if (attacked) place.trusts = false;
  }
  if (message.number != WM_TRANS_STATUS) return;
  const std::string name = room.Receiver(index).Name();
  if (!IsReceiverStatus(message.wParam)) Violate(name + " posts the status " + std::to_string(message.wParam));
  if (place.completions != 0 && !place.isWild) Violate(name + " posts a status after its completion");
  if (message.wParam != QUORL_STATUS_DONE || message.lParam == 0) return;
  ++place.completions;
  ClaimsCompletion(index, "WM_TRANS_STATUS");
}

void Checker::SeeSenderMessage(const RecordedMessage& message) {
  CheckThreads(room.Sender());
  if (message.number == WM_TASK_INFO && ++senderAnnouncements > 1 && !senderIsWild)
    Violate("the sender announces twice");
  if (message.number == WM_CLIENT_ERR && !options.hasAttacker &&
      (message.wParam == 0 || (!IsReceiverStatus(message.wParam) && message.wParam != QUORL_STATUS_LEFT)))
    Violate("the sender passes on the status " + std::to_string(message.wParam));
  if (message.number != WM_TRANS_STATUS) return;
  NoteTable();
  if (!IsSenderStatus(message.wParam)) Violate("the sender posts the status " + std::to_string(message.wParam));
  if (message.wParam != QUORL_STATUS_DONE && message.wParam != QUORL_STATUS_TIMED_OUT) senderFailed = true;
}

void Checker::CheckThreads(const SimMachine& machine) {
  const auto receiver = indices.find(&machine);
  const bool isWild = receiver == indices.end() ? senderIsWild : receivers[receiver->second].isWild;
  if (machine.RunningThreads() > (isWild ? MOST_THREADS_OF_WILD_HOST : MOST_THREADS))
    Violate(machine.Name() + " runs " + std::to_string(machine.RunningThreads()) + " threads");
}

void Checker::AtRest() {
  for (size_t i = 0; i < room.Receivers(); ++i) CheckReceiver(i);
  if (!options.hasAttacker && !room.Sender().IsOff() && !senderFailed && !senderIsWild) CheckErrorReport();
}

void Checker::CheckReceiver(size_t index) {
  SimMachine& machine = room.Receiver(index);
  const std::vector<std::string> names = machine.Disk().List("C:\\");
  const auto outside = std::find_if(names.begin(), names.end(),
                                    [](const std::string& name) { return name != "in" && !name.starts_with("in\\"); });
  if (outside != names.end()) FindsOutside(index, *outside);
  if (machine.IsOff()) return;
  const ReceiveState state = room.Client(index).GetState();
  if (state.complete && state.files == room.FileCount() && receivers[index].trusts && !IsBehind(receivers[index]) &&
      !room.HoldsAllFiles(index))
    Violate(machine.Name() + " takes itself for complete");
}

void Checker::FindsOutside(size_t index, const std::string& name) {
  // In a room with an attacker the receivers are confined to a directory, and the profile makes no difference.
  if (receiverProfile == Profile::Robust || options.hasAttacker)
    return Violate(room.Receiver(index).Name() + " has made " + name);
  ++exceptions["a receiver that has heard of no transfer writes under the root of its drive"];
}

void Checker::DoesNotEnd(bool senderIsThrough) {
  if (!senderIsThrough) {
    if (senderProfile == Profile::Robust) return Violate("the sender does not come to an end");
    // A master in the first row that is given up can be named again, without a limit; and a
    // receiver that lacks what its rules can name no request for asks for nothing, without a limit.
    ++exceptions["a room that never ends: its first receiver is named, or a request comes, again and again"];
    return;
  }
  for (size_t i = 0; i < room.Receivers(); ++i) {
    if (IsAtRest(i)) continue;
    const Place& place = receivers[i];
    if (receiverProfile == Profile::Classic && (place.announcements > 1 || place.goesOn || !place.hasWindow)) {
      ++exceptions["a receiver that waits for ever, since it took a late announcement after it had lost its sender"];
    } else {
      Violate(room.Receiver(i).Name() + " does not come to an end");
    }
  }
}

bool Checker::IsAtRest(size_t index) {
  return room.IsReceiverThrough(index) || room.Client(index).GetState().phase == ReceivePhase::Idle;
}

/// A receiver that answers the collection after the end takes no part.
void Checker::NoteTable() {
  if (tableAtEnd) return;
  std::vector<uint32_t> addresses(room.Receivers() + 1);
  const uint32_t count = room.Server().GetReceivers(addresses.data(), static_cast<uint32_t>(addresses.size()));
  addresses.resize(std::min<size_t>(count, addresses.size()));
  tableAtEnd.emplace(addresses.begin(), addresses.end());
}

// A receiver that holds everything may be reported as failed, when its last word was lost; never the other way round.
void Checker::CheckErrorReport() {
  NoteTable();
  // Without its messages nobody knows when it ended, and who came later.
  if (senderWindowCloses) return;
  const auto failed = room.FailedReceivers();
  for (size_t i = 0; i < room.Receivers(); ++i) {
    const bool tookPart = tableAtEnd->contains(room.Receiver(i).Address());
    if (!tookPart || room.HoldsAllFiles(i) || failed.contains(i)) continue;
    if (IsBehind(receivers[i]) || (receivers[i].claimed && receivers[i].losesData)) continue;
    if (senderProfile == Profile::Robust && receiverProfile == Profile::Robust) {
      Violate(room.Receiver(i).Name() + " is not complete, and the sender does not report it");
    } else {
      ++exceptions["a receiver that is not complete is not reported"];
    }
  }
}

void Checker::AfterTearDown() {
  for (size_t i = 0; i <= room.Receivers(); ++i) {
    const SimMachine& machine = i < room.Receivers() ? room.Receiver(i) : room.Sender();
    if (machine.IsOff()) continue;
    if (machine.RunningThreads() != 0)
      Violate(machine.Name() + " leaves " + std::to_string(machine.RunningThreads()) + " threads behind");
    if (machine.OpenSockets() != 0)
      Violate(machine.Name() + " leaves " + std::to_string(machine.OpenSockets()) + " sockets behind");
    if (machine.OpenFiles() != 0)
      Violate(machine.Name() + " leaves " + std::to_string(machine.OpenFiles()) + " files open");
  }
}

}  // namespace quorl::sim
