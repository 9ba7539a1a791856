// Draws what a run does. Each kind of trouble is switched on or off as a whole before its amount is drawn: runs with
// little of everything would be alike, and the troubles would hide each other.
#include "sim/campaign/run_plan.h"

#include <algorithm>
#include <cstdio>

#include "protocol/blocks.h"
#include "protocol/datagrams.h"

namespace quorl::sim {

using namespace std::chrono_literals;

namespace {

constexpr uint64_t MOST_RECEIVERS = 12;

/// Of a file whose groups are more than what goes out at once, so that much of a room can change meanwhile.
constexpr uint64_t MOST_IN_SYMBOLS = 12'000'000;

class Dice {
 public:
  explicit Dice(uint64_t number) : random(Mix(number)) {}

  bool Chance(double probability) { return random.Fraction() < probability; }
  uint64_t Between(uint64_t least, uint64_t most) { return least + random.Below(most - least + 1); }
  Duration Between(Duration least, Duration most) {
    return Duration(
        static_cast<Duration::rep>(Between(static_cast<uint64_t>(least.count()), static_cast<uint64_t>(most.count()))));
  }
  template <typename T>
  T OneOf(std::initializer_list<T> choices) {
    return *(choices.begin() + random.Below(choices.size()));
  }

 private:
  Random random;
};

uint64_t DrawSize(Dice& dice) {
  const uint64_t blocks = dice.OneOf<uint64_t>({1, 1, 2, 5, 10, 40});
  switch (dice.Between(0, 4)) {
    case 0: return dice.Between(0, 300);
    case 1: return blocks * BLOCK_SIZE;
    case 2: return blocks * BLOCK_SIZE - 1;
    case 3: return blocks * BLOCK_SIZE + 1;
    default: return dice.Between(0, blocks * BLOCK_SIZE);
  }
}

void DrawCommon(Dice& dice, LinkOptions& link) {
  if (dice.Chance(0.5)) link.delay = dice.Between(10us, 20ms);
  if (dice.Chance(0.3)) link.jitter = dice.Between(10us, 30ms);
  if (dice.Chance(0.2)) link.reorder = dice.OneOf({0.01, 0.1, 0.5});
  if (dice.Chance(0.2)) link.duplicate = dice.OneOf({0.01, 0.1, 0.9});
  if (dice.Chance(0.3)) link.heldBack = dice.OneOf<Duration>({2ms, 100ms, 1500ms, 20s});
}

void DrawLoss(Dice& dice, LinkOptions& link) {
  if (dice.Chance(0.5)) link.loss = dice.OneOf({0.001, 0.01, 0.05, 0.2, 0.5});
  link.hasFragments = dice.Chance(0.3);
  if (dice.Chance(0.15)) link.lossMask = dice.Between(0, UINT64_MAX - 1) & dice.Between(0, UINT64_MAX - 1);
  if (dice.Chance(0.2)) link.burst = dice.OneOf({0.002, 0.02});
  link.burstLength = static_cast<uint32_t>(dice.OneOf<uint64_t>({3, 20, 200}));
  if (dice.Chance(0.15)) {
    link.lostCommands = CommandBit(static_cast<uint8_t>(dice.Between(CMD_COLLECT, CMD_LACKS)));
    link.commandLoss = dice.OneOf({0.3, 0.7, 1.0});
  }
  if (dice.Chance(0.15)) {
    link.wire.bytesPerSecond = dice.OneOf<uint64_t>({200'000, 1'000'000, 10'000'000});
    link.wire.queueBytes = dice.OneOf<uint64_t>({5'000, 30'000, 256'000});
  }
  if (dice.Chance(0.15)) link.lossOfCalls = dice.OneOf({0.01, 0.1, 0.5});
}

Uplink::Options DrawUplink(Dice& dice) {
  const uint64_t narrow = dice.OneOf<uint64_t>({200'000, 1'000'000, 10'000'000});
  return {.own = {narrow * dice.OneOf<uint64_t>({1, 10})},
          .bottleneck = {narrow, dice.OneOf<uint64_t>({5'000, 30'000, 65'536})}};
}

void DrawDetails(Dice& dice, const RunPlan& plan, PlannedFault& fault) {
  switch (fault.kind) {
    case FaultKind::DiskFull: fault.amount = dice.Between(0, dice.OneOf<uint64_t>({0, 100'000})); break;
    case FaultKind::DiskSlow: fault.amount = dice.OneOf<uint64_t>({100, 5'000, 300'000}); break;
    case FaultKind::DiskNarrow: fault.amount = dice.OneOf<uint64_t>({30'000, 300'000, 5'000'000}); break;
    case FaultKind::CallFails:
      fault.amount = dice.Between(1, dice.OneOf<uint64_t>({3, 30}));
      fault.call = fault.whom ? dice.OneOf({"files.open", "files.write", "files.close"})
                              : dice.OneOf({"files.open", "files.length", "files.read"});
      break;
    case FaultKind::StartsAgain: fault.amount = dice.Between(0, 1); break;
    case FaultKind::NameRefused:
    case FaultKind::FileVanishes: fault.amount = dice.Between(0, plan.fileSizes.size() - 1); break;
    case FaultKind::WindowBlocks:
    case FaultKind::WildHost: fault.duration = dice.OneOf<Duration>({200ms, 3s, 60s}); break;
    default: break;
  }
}

void DrawFault(Dice& dice, Whom whom, RunPlan& plan) {
  using enum FaultKind;
  PlannedFault fault{
      whom ? dice.OneOf({Crash, PowerCut, Freeze, LateStart, LinkHang, Partition, DiskFull, DiskSlow, DiskNarrow,
                         CallFails, NameRefused, WindowCloses, WindowBlocks, WildHost, StartsAgain})
           : dice.OneOf({Crash, PowerCut, Freeze, LateStart, CallFails, WindowCloses, WindowBlocks, WildHost, HostStops,
                         StartsAgain, FileVanishes}),
      dice.Between(0ms, dice.OneOf<Duration>({100ms, 1s, 5s})), whom, dice.OneOf<Duration>({0ms, 200ms, 2s, 8s, 20s})};
  DrawDetails(dice, plan, fault);
  plan.faults.push_back(fault);
}

void DrawFaults(Dice& dice, RunPlan& plan) {
  if (dice.Chance(0.5))
    for (size_t i = 0; i < plan.receivers; ++i)
      if (dice.Chance(0.4)) DrawFault(dice, i, plan);
  if (dice.Chance(0.15)) DrawFault(dice, {}, plan);
  std::stable_sort(plan.faults.begin(), plan.faults.end(),
                   [](const PlannedFault& a, const PlannedFault& b) { return a.at < b.at; });
}

const char* ToText(Profile profile) {
  return profile == Profile::Classic ? "classic" : "robust";
}

std::string NameOf(Whom whom) {
  return whom ? "receiver" + std::to_string(*whom) : "sender";
}

std::string Milliseconds(Duration duration) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3f ms", std::chrono::duration<double, std::milli>(duration).count());
  return text;
}

std::string ToText(const LinkOptions& link) {
  char text[400];
  std::snprintf(text, sizeof text,
                "delay %s, jitter %s, reorder %g, duplicate %g, held back %s, loss %g%s, mask %016llx, burst %g of %u, "
                "command bits %04x at %g, %llu bytes/s, queue %llu, calls %g",
                Milliseconds(link.delay).c_str(), Milliseconds(link.jitter).c_str(), link.reorder, link.duplicate,
                Milliseconds(link.heldBack).c_str(), link.loss, link.hasFragments ? " a fragment" : "",
                static_cast<unsigned long long>(link.lossMask), link.burst, link.burstLength, link.lostCommands,
                link.commandLoss, static_cast<unsigned long long>(link.wire.bytesPerSecond),
                static_cast<unsigned long long>(link.wire.queueBytes), link.lossOfCalls);
  return text;
}

}  // namespace

const char* ToText(FaultKind kind) {
  switch (kind) {
    case FaultKind::Crash: return "crashes";
    case FaultKind::PowerCut: return "loses its power";
    case FaultKind::Freeze: return "freezes";
    case FaultKind::LateStart: return "is started";
    case FaultKind::LinkHang: return "its links hang";
    case FaultKind::Partition: return "it and later ones are cut off";
    case FaultKind::DiskFull: return "disk full";
    case FaultKind::DiskSlow: return "disk slow";
    case FaultKind::DiskNarrow: return "disk narrow";
    case FaultKind::CallFails: return "a call fails:";
    case FaultKind::NameRefused: return "name refused";
    case FaultKind::WindowCloses: return "window destroyed";
    case FaultKind::WindowBlocks: return "window procedure blocks";
    case FaultKind::WildHost: return "wild host";
    case FaultKind::HostStops: return "host stops it";
    case FaultKind::StartsAgain: return "begins anew";
    case FaultKind::FileVanishes: return "file vanishes";
  }
  return "";
}

RunPlan DrawPlan(uint64_t number, std::optional<size_t> receivers) {
  Dice dice(number);
  RunPlan plan;
  plan.number = number;
  plan.senderProfile = dice.OneOf({Profile::Classic, Profile::Robust});
  plan.receiverProfile = dice.Chance(0.8) ? plan.senderProfile : dice.OneOf({Profile::Classic, Profile::Robust});
  const uint64_t drawn = dice.Between(1, dice.OneOf<uint64_t>({1, 2, 5, MOST_RECEIVERS}));
  plan.receivers = receivers.value_or(drawn);
  const uint64_t files = dice.Between(1, dice.OneOf<uint64_t>({1, 3, 8}));
  for (uint64_t i = 0; i < files; ++i) plan.fileSizes.push_back(DrawSize(dice));
  if (dice.Chance(0.2)) plan.emptyDirectories = dice.Between(1, 45);
  plan.hasOldFiles = dice.Chance(0.2);
  if (dice.Chance(0.2)) plan.rate = dice.OneOf<uint32_t>({2'000, 50'000, 1'000'000});
  DrawCommon(dice, plan.common);
  if (dice.Chance(0.5)) DrawLoss(dice, plan.common);
  if (dice.Chance(0.3)) DrawLoss(dice, plan.toOne.emplace(plan.common));
  if (dice.Chance(0.3)) DrawLoss(dice, plan.toSender.emplace(plan.common));
  for (size_t i = 0; i <= plan.receivers; ++i) {
    plan.clockDrifts.push_back(dice.Chance(0.1) ? dice.OneOf<int64_t>({-200'000, -300, 300, 200'000}) : 0);
    plan.receiveBuffers.push_back(dice.Chance(0.2) ? dice.OneOf<size_t>({512, 10'000, 100'000}) : SIZE_MAX);
  }
  if (dice.Chance(0.3)) plan.autoOpenName = "\\file0";
  DrawFaults(dice, plan);
  plan.hasAttacker = dice.Chance(0.2);
  plan.attackerForgesSources = plan.hasAttacker && dice.Chance(0.5);
  plan.attackBegins = dice.OneOf<Duration>({0ms, 200ms, 1500ms});
  plan.faultsEnd = dice.OneOf<Duration>({2s, 10s, 60s});
  if (dice.Chance(0.3)) plan.transfers = dice.Between(2, 3);
  plan.keepsSession = dice.Chance(0.7);
  plan.keepsListening = dice.Chance(0.7);
  plan.symbols = dice.Chance(0.5) && plan.senderProfile == Profile::Robust;
  if (plan.symbols && dice.Chance(0.1)) plan.blocksOnly = dice.Between(0, plan.receivers - 1);
  if (plan.symbols && dice.Chance(0.1)) plan.fileSizes.push_back(dice.Between(0, MOST_IN_SYMBOLS));
  if (dice.Chance(0.15)) plan.uplink = DrawUplink(dice);
  return plan;
}

std::string ToText(const RunPlan& plan) {
  std::string text = "run " + std::to_string(plan.number) + ": sender " + ToText(plan.senderProfile) + ", " +
                     std::to_string(plan.receivers) + " receivers " + ToText(plan.receiverProfile) + "\n  files:";
  for (const uint64_t size : plan.fileSizes) text += " " + std::to_string(size);
  text += "; empty directories: " + std::to_string(plan.emptyDirectories) + (plan.hasOldFiles ? "; old files" : "") +
          (plan.autoOpenName.empty() ? "" : "; opened at the end: " + plan.autoOpenName) + "; rate " +
          std::to_string(plan.rate) + "\n  every link: " + ToText(plan.common) + "\n";
  if (plan.toOne) text += "  to receiver0: " + ToText(*plan.toOne) + "\n";
  if (plan.toSender) text += "  to the sender: " + ToText(*plan.toSender) + "\n";
  if (plan.uplink)
    text += "  from the sender: " + std::to_string(plan.uplink->own.bytesPerSecond) + " bytes/s, behind it " +
            std::to_string(plan.uplink->bottleneck.bytesPerSecond) + " bytes/s, queue " +
            std::to_string(plan.uplink->bottleneck.queueBytes) + "\n";
  for (size_t i = 0; i <= plan.receivers; ++i) {
    const std::string name = i < plan.receivers ? NameOf(i) : NameOf({});
    if (plan.clockDrifts[i] != 0)
      text += "  " + name + ": clock " + std::to_string(plan.clockDrifts[i]) + " millionths\n";
    if (plan.receiveBuffers[i] != SIZE_MAX)
      text += "  " + name + ": receive buffers " + std::to_string(plan.receiveBuffers[i]) + "\n";
  }
  for (const PlannedFault& fault : plan.faults)
    text += "  after " + Milliseconds(fault.at) + ": " + NameOf(fault.whom) + " " + ToText(fault.kind) + " " +
            fault.call + ", for " + Milliseconds(fault.duration) + ", amount " + std::to_string(fault.amount) + "\n";
  if (plan.hasAttacker)
    text += "  after " + Milliseconds(plan.attackBegins) + ": an attacker" +
            (plan.attackerForgesSources ? " who forges sources" : "") + "\n";
  if (plan.transfers > 1)
    text += "  transfers: " + std::to_string(plan.transfers) + (plan.keepsSession ? ", in one session" : "") +
            (plan.keepsListening ? ", who still listens goes on" : "") + "\n";
  if (plan.symbols) text += "  in symbols" + (plan.blocksOnly ? ", but for " + NameOf(plan.blocksOnly) : "") + "\n";
  return text + "  faults end after " + Milliseconds(plan.faultsEnd) + "\n";
}

}  // namespace quorl::sim
