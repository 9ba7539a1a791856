// InitServer, with every call that it makes to the machine failing in turn.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

class EveryCall : public testing::TestWithParam<sim::Seam> {
 protected:
  /// How many calls InitServer made when the nth of them failed; 0: none.
  uint64_t Run(uint64_t nth) {
    sim::World world{1};
    sim::SimMachine& machine = world.AddMachine("sender", Ipv4(10, 0, 0, 1));
    CTransServer server(machine.Seam());
    const uint64_t before = machine.Calls(GetParam());
    machine.FailCall(GetParam(), nth);
    uint32_t result = 0;
    machine.Call([&] { result = server.InitServer(nullptr, 0, 0, machine.Address()); });
    failures += result == 0;
    EXPECT_EQ(machine.DebugLines().size(), result == 0 ? 1U : 0U) << nth;
    EXPECT_EQ(machine.OpenSockets(), result == 0 ? 0U : 3U) << nth;
    world.RunFor(100ms);
    EXPECT_EQ(machine.RunningThreads(), result == 0 ? 0U : 1U) << nth;
    return machine.Calls(GetParam()) - before;
  }
  int failures = 0;
};

TEST_P(EveryCall, FailingLeavesNothingOpenAndOneLine) {
  const uint64_t calls = Run(0);
  ASSERT_EQ(failures, 0);
  for (uint64_t nth = 1; nth <= calls; ++nth) Run(nth);
  EXPECT_GE(failures, GetParam() == sim::Seam::Network ? 20 : 5);
}

INSTANTIATE_TEST_SUITE_P(Seams, EveryCall, testing::Values(sim::Seam::Network, sim::Seam::Threads));

}  // namespace
}  // namespace quorl
