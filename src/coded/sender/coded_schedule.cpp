#include "coded/sender/coded_schedule.h"

#include <algorithm>

#include "coded/code/erasure_code.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// Between two polls: while there is something new to ask about or nothing else to do, and otherwise.
constexpr Duration BETWEEN_POLLS = 10ms;
constexpr Duration IDLE_PERIOD = 200ms;

// As many symbols in the middle of a stream are something new as well: how many of them have come says whether the rate
// is one that everybody takes.
constexpr size_t NEWS = 32;

// So many receivers answer in a millisecond.
constexpr size_t ANSWERS_A_MILLISECOND = 4;
constexpr Duration LONGEST_SPREAD = 1s;

// In a big room, where all of them cannot be asked so soon again, so many are asked by themselves, so often.
constexpr Duration BIG_ROOM_SPREAD = 5ms;
constexpr Duration BETWEEN_ASKING = 20ms;
constexpr size_t MOST_ASKED = 50;
constexpr size_t BETWEEN_TWO = 10;  ///< Symbols, while there are some to be sent.

// A receiver that was asked so often, for so long, and was not heard, does not take part any more; nor does one that
// gets nowhere.
constexpr uint32_t MOST_UNANSWERED = 20;
constexpr Duration LONGEST_SILENCE = 5s;
constexpr Duration LONGEST_STANDSTILL = 30s;

// Answers come back within so many polls; older ones may count what was repaired since once more.
constexpr size_t REMEMBERED_REPAIRS = 32;

}  // namespace

CodedSchedule::CodedSchedule(uint32_t catalogueGroups, uint32_t groups)
    : catalogueGroups(catalogueGroups), groups(groups), firstOpen(catalogueGroups) {}

void CodedSchedule::Join(uint32_t address, Moment now) {
  const bool isLate = opened > catalogueGroups;
  if (isLate && (isSecondPass || sent - catalogueGroups > (groups - catalogueGroups) / 2)) return;
  peers.try_emplace(address, Peer{.heard = now, .advanced = now, .has = isLate ? firstOpen : 0});
  if (isLate) missedUpTo = std::max(missedUpTo, firstOpen);
}

void CodedSchedule::BeginSecondPass(Moment now) {
  isSecondPass = true;
  passBegan = round;
  groups = missedUpTo;
  firstOpen = opened = sent = catalogueGroups;
  open.clear();
  for (auto& [address, peer] : peers) {
    peer.has = catalogueGroups;
    peer.advanced = now;
  }
}

size_t CodedSchedule::Group::SentSince(uint32_t poll) const {
  size_t since = 0;
  for (const Sent& each : repairs)
    if (each.round >= poll) since += each.count;
  return since;
}

CodedSchedule::Group* CodedSchedule::Find(uint32_t group) {
  if (group < catalogue.size()) return &catalogue[group];
  return group >= firstOpen && group - firstOpen < open.size() ? &open[group - firstOpen] : nullptr;
}

void CodedSchedule::TakeLacks(uint32_t address, const Lacks& lacks, Moment now) {
  const auto found = peers.find(address);
  if (found == peers.end() || lacks.head.round == 0 || lacks.head.round > round) return;
  Peer& peer = found->second;
  peer.heard = now;
  peer.unanswered = 0;
  peer.answered = std::max(peer.answered, lacks.head.round);
  if (lacks.head.round <= passBegan) return;
  uint32_t has = std::min(lacks.head.endGroup, sent);
  bool lacksCatalogue = has < catalogueGroups;
  for (const GroupLack& lack : lacks.groups) {
    Group* group = lack.group < sent ? Find(lack.group) : nullptr;
    if (!group || group->symbols == 0) continue;
    lacksCatalogue = lacksCatalogue || lack.group < catalogueGroups;
    if (lack.group >= catalogueGroups) has = std::min(has, lack.group);
    const size_t wanted = std::min<size_t>(lack.symbols, group->symbols);
    const size_t under_way = group->SentSince(lacks.head.round);
    if (wanted <= under_way) continue;
    group->owed = std::max(group->owed, wanted - under_way);
    owing = std::min(owing, lack.group);
  }
  if (lacksCatalogue) has = std::min(has, catalogueGroups);
  if (has > peer.has || (!lacksCatalogue && (has == sent || !peer.hasCatalogue))) peer.advanced = now;
  peer.has = std::max(peer.has, has);
  peer.hasCatalogue = peer.hasCatalogue || !lacksCatalogue;
  Advance();
}

/// Lets go of what everybody has.
void CodedSchedule::Advance() {
  uint32_t all = sent;
  for (const auto& [address, peer] : peers) all = std::min(all, peer.has);
  for (; firstOpen < all; ++firstOpen) open.pop_front();
}

void CodedSchedule::ForgetSilent(Moment now) {
  std::erase_if(peers, [&](const auto& each) {
    const Peer& peer = each.second;
    return (peer.unanswered >= MOST_UNANSWERED && now - peer.heard >= LONGEST_SILENCE) ||
           ((peer.has < sent || !peer.hasCatalogue) && now - peer.advanced >= LONGEST_STANDSTILL);
  });
  Advance();
}

CodedSchedule::Step CodedSchedule::Next(Moment now) {
  if (IsPollDue(now)) return MakePoll(now);
  if (const auto ask = NextAsk(now)) return *ask;
  if (const auto repair = NextRepair()) return *repair;
  if (const auto source = NextSource()) return *source;
  if (MayOpen()) {
    const uint32_t end = opened < catalogueGroups ? catalogueGroups : std::min(groups, firstOpen + WINDOW);
    return OpenStep{opened, std::min(end, opened + TOGETHER)};
  }
  if (sent == groups && EverybodyHasAll()) {
    if (isSecondPass || missedUpTo <= catalogueGroups) return EndStep{};
    BeginSecondPass(now);
    return Next(now);
  }
  const Moment next = *polled + PollPeriod();
  if (next <= now) return MakePoll(now);
  return WaitStep{Spread() < BIG_ROOM_SPREAD ? next : std::min(next, std::max(askAgain, now + 1ms))};
}

bool CodedSchedule::EverybodyHasAll() const {
  return std::all_of(peers.begin(), peers.end(),
                     [&](const auto& each) { return each.second.has == groups && each.second.hasCatalogue; });
}

bool CodedSchedule::MayOpen() const {
  if (opened == groups) return false;
  if (opened < catalogueGroups) return true;
  if (opened > catalogueGroups) return opened < firstOpen + WINDOW;
  return std::all_of(peers.begin(), peers.end(), [](const auto& each) { return each.second.hasCatalogue; });
}

void CodedSchedule::Opened(uint32_t group, size_t symbols) {
  Group& next = group < catalogueGroups ? catalogue.emplace_back() : open.emplace_back();
  next.symbols = symbols;
  ++opened;
}

bool CodedSchedule::IsPollDue(Moment now) const {
  // Everybody waits for the catalogue.
  if (polled && asked < catalogueGroups && sent >= catalogueGroups) return true;
  return !polled || now - *polled >= (hasNews ? PollPeriod() : std::max(IDLE_PERIOD, PollPeriod()));
}

Duration CodedSchedule::Spread() const {
  return std::min<Duration>(peers.size() / ANSWERS_A_MILLISECOND * 1ms, LONGEST_SPREAD);
}

Duration CodedSchedule::PollPeriod() const {
  return std::max<Duration>(BETWEEN_POLLS, Spread() + std::min(Spread(), 3 * BETWEEN_ASKING));
}

CodedSchedule::PollStep CodedSchedule::MakePoll(Moment now) {
  ForgetSilent(now);
  for (auto& [address, peer] : peers) ++peer.unanswered;
  polled = now;
  hasNews = false;
  sincePoll = 0;
  askAgain = now + Spread() + BETWEEN_ASKING;
  toAsk.clear();
  asked = sent;
  const auto spread = std::chrono::duration_cast<std::chrono::milliseconds>(Spread());
  askedAll = ++round;
  return {round, firstOpen, sent, static_cast<uint16_t>(spread.count())};
}

/// There is nothing to send before somebody has more than he had.
bool CodedSchedule::IsAtRest() const {
  return owing >= sent && sent == opened && !MayOpen();
}

/// It has not been heard since the latest poll, or nothing more can go out before it has what is out.
bool CodedSchedule::KeepsOthersWaiting(const Peer& peer) const {
  return peer.answered < askedAll || (IsAtRest() && (!peer.hasCatalogue || peer.has < sent));
}

std::optional<CodedSchedule::PollStep> CodedSchedule::NextAsk(Moment now) {
  if (Spread() < BIG_ROOM_SPREAD || (sinceAsked < BETWEEN_TWO && !IsAtRest())) return std::nullopt;
  if (toAsk.empty() && now >= askAgain) {
    askAgain = now + BETWEEN_ASKING;
    for (const auto& [address, peer] : peers)
      if (toAsk.size() < MOST_ASKED && KeepsOthersWaiting(peer)) toAsk.push_back(address);
  }
  if (toAsk.empty()) return std::nullopt;
  const uint32_t address = toAsk.back();
  toAsk.pop_back();
  sinceAsked = 0;
  return PollStep{++round, firstOpen, sent, 0, address};
}

std::optional<CodedSchedule::SendStep> CodedSchedule::NextRepair() {
  for (; owing < sent; ++owing) {
    if (owing >= catalogueGroups && owing < firstOpen) owing = firstOpen;
    Group* group = Find(owing);
    if (!group || group->owed == 0) continue;
    --group->owed;
    if (group->repairs.empty() || group->repairs.back().round != round) group->repairs.push_back({round, 0});
    if (group->repairs.size() > REMEMBERED_REPAIRS) group->repairs.erase(group->repairs.begin());
    ++group->repairs.back().count;
    hasNews = true;
    ++sinceAsked;
    const auto index = static_cast<uint8_t>(MOST_SOURCE_SYMBOLS + group->nextRepair);
    group->nextRepair = static_cast<uint8_t>((group->nextRepair + 1) % MOST_REPAIR_SYMBOLS);
    return SendStep{owing, index};
  }
  return std::nullopt;
}

std::optional<CodedSchedule::SendStep> CodedSchedule::NextSource() {
  for (; sent < opened && turnIndex < MOST_SOURCE_SYMBOLS; turn = 0, ++turnIndex) {
    while (turn < opened - sent) {
      const uint32_t group = sent + turn++;
      if (turnIndex >= Find(group)->symbols) continue;
      ++sinceAsked;
      hasNews = hasNews || ++sincePoll >= NEWS;
      return SendStep{group, static_cast<uint8_t>(turnIndex)};
    }
  }
  hasNews = hasNews || sent < opened;
  sent = opened;
  turn = 0;
  turnIndex = 0;
  return std::nullopt;
}

}  // namespace quorl
