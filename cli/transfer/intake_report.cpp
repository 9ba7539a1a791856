#include "cli/transfer/intake_report.h"

#include <algorithm>

#include "cli/system/network.h"
#include "cli/talk/messages.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto BETWEEN = 150ms;

/// Of the memory for fragments.
uint16_t ThousandthsInUse() {
  const auto reassembly = ReadReassembly();
  if (!reassembly || reassembly->limit == 0) return 0;
  return static_cast<uint16_t>(std::min<uint64_t>(1000, reassembly->used * 1000 / reassembly->limit));
}

}  // namespace

void IntakeReport::Tell(Time now, const QuorlReceiveState& state, uint64_t overflows) {
  const bool isAsked = state.phase == QUORL_PHASE_STREAMING && (state.senderCapabilities & HEARS_INTAKE) != 0;
  // What has not been heard yet will be told in one with what comes.
  if (!isAsked || now < due || GetLettersOnTheirWay() > 0) return;
  due = now + BETWEEN;
  const uint16_t memory = ThousandthsInUse();
  const uint64_t lost = state.blocksLost - std::min(state.blocksLost, lostBefore);
  const Intake intake{static_cast<uint32_t>(state.blocksCame - cameBefore), static_cast<uint32_t>(lost),
                      static_cast<uint32_t>(overflows - overflowsBefore), memory};
  const bool isNews = intake.lost != 0 || intake.overflowed != 0 || memory != memoryBefore;
  cameBefore = state.blocksCame;
  lostBefore = state.blocksLost;
  overflowsBefore = overflows;
  memoryBefore = memory;
  if (isNews) Say(Letter(intake));
}

}  // namespace quorl::cli
