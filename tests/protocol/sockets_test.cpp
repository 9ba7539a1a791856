// The set-up of both sides' sockets: every step in its order, and what each failing step says and leaves behind.
#include <gtest/gtest.h>

#include "protocol/receiver_sockets.h"
#include "protocol/sender_sockets.h"
#include "sim/world/world.h"

namespace quorl {
namespace {

constexpr uint32_t LOCAL = Ipv4(10, 0, 0, 1);

struct Step {
  std::string_view call;
  std::string_view failure;
};

/// The call that failed, as the machine recorded it, and what the debug output said last.
struct Failed {
  bool opened = false;
  std::string call;
  std::string message;
  size_t openSockets = 0;
};

/// Makes `Sockets` on a machine whose `nth` call for sockets or events fails, and runs `open` on them.
template <typename Sockets, typename Open>
Failed FailNth(uint64_t nth, const Open& open) {
  sim::World world(1);
  sim::SimMachine& machine = world.AddMachine("one", LOCAL);
  Failed failed;
  uint64_t calls = 0;
  machine.FailEvery([&](std::string_view call) {
    if ((!call.starts_with("network.") && call != "threads.event") || ++calls != nth) return false;
    failed.call = call;
    return true;
  });
  machine.Call([&] {
    Counters counters;
    Sockets sockets(machine.Seam(), RoomAddress::From(0, 0, LOCAL), counters);
    failed.opened = open(sockets);
    failed.openSockets = machine.OpenSockets();
  });
  if (!machine.DebugLines().empty()) failed.message = machine.DebugLines().back();
  return failed;
}

const std::vector<Step> SENDER_STEPS = {
    {"network.start", "\nQuorl------Initialize Winsock2.2 Failed!\n"},
    {"network.open", "\nQuorl------Create Send Socket Failed!\n"},
    {"network.open", "\nQuorl------Create Receive Socket Failed!\n"},
    {"network.reuse", "\nQuorl------Set Send Socket Resuse Address Failed!\n"},
    {"network.reuse", "\nQuorl------Set Receive Socket Resuse Address Failed!\n"},
    {"network.bind", "\nQuorl------Bind Receive socket host Address Failed!\n"},
    {"network.bind", "\nQuorl-----Bind Send socket with host Address Failed!\n"},
    {"network.interface", "\nQuorl-----Can not support MultiCast!\n"},
    {"network.join", "\nQuorl-----Add send IP to Membership failed\n"},
    {"network.ttl", "\nQuorl-----Set Send Socket TTL Failed!\n"},
    {"network.open", "\nQuorl-----Create Find Server Socket Failed!\n"},
    {"network.reuse", "\nQuorl-----Set Find socket Reuse address Failed!\n"},
    {"network.bind", "\nQuorl-----Bind Find Socket with Host IP Failed!\n"},
    {"network.interface", "\nQuorl-----Can not MultiCast!\n"},
    {"network.join", "\nQuorl-----Add find socket address to Membership Failed\n"},
    {"network.ttl", "\nQuorl-----Set Find Socket TTL Failed!\n"},
    {"threads.event", "\nQuorl-----Create Find Socket Event Failed!\n"},
    {"network.receive", "\nQuorl-----Find Socket Select Find Event Failed!\n"},
    {"network.leave", ""},
    {"network.open", "\nQuorl------Create Send Report Socket Failed!\n"},
    {"network.reuse", "\nQuorl------Set Send report Socket Resuse Address Failed!\n"},
    {"network.bind", "\nQuorl-----Bind Send report socket with host Address Failed!\n"},
    {"network.interface", "\nQuorl-----Send Report Socket Can not support MultiCast!\n"},
    {"network.join", "\nQuorl-----Add send report IP to Membership failed\n"},
    {"network.ttl", "\nQuorl-----Set Send report Socket TTL Failed!\n"},
};

TEST(SenderSockets, EachFailingStepHasItsMessageAndLeavesNothingOpen) {
  for (size_t i = 0; i < SENDER_STEPS.size(); ++i) {
    const Failed failed = FailNth<SenderSockets>(i + 1, [](SenderSockets& sockets) { return sockets.Open(nullptr); });
    EXPECT_EQ(failed.call, SENDER_STEPS[i].call) << "step " << i;
    EXPECT_EQ(failed.message, SENDER_STEPS[i].failure);
    const bool matters = !SENDER_STEPS[i].failure.empty();
    EXPECT_EQ(failed.opened, !matters) << SENDER_STEPS[i].failure;
    EXPECT_EQ(failed.openSockets, matters ? 0u : 3u) << SENDER_STEPS[i].failure;
  }
}

struct ReceiverStep : Step {
  ReceiverSockets::SetUp result;
};

TEST(ReceiverSockets, EachFailingStepHasItsMessageAndItsCleanUp) {
  using SetUp = ReceiverSockets::SetUp;
  const std::vector<ReceiverStep> steps = {
      {{"network.start", "\n@@-----MtftpSocket startup failed\n"}, SetUp::Released},
      {{"network.open", "\n@@-----Create socket failed\n"}, SetUp::Released},
      {{"network.reuse", "\n@@-----setsockeopt failed\n"}, SetUp::Released},
      {{"network.bind", "\n@@-----Bind socket with sockaddr_in failed\n"}, SetUp::TearDown},
      {{"network.buffer", ""}, SetUp::Ready},
      {{"network.interface", "\n@@-----setsockeopt failed\n"}, SetUp::TearDown},
      {{"network.join", "\n@@-----setsockopt add membership failed\n"}, SetUp::TearDown},
      {{"network.ttl", "\n@@-----setsockopt TTL failed\n"}, SetUp::TearDown},
      {{"network.open", "\nQuorl------Create Receive Report Socket Failed!\n"}, SetUp::TearDown},
      {{"network.reuse", "\nQuorl------Set Receive report Socket Resuse Address Failed!\n"}, SetUp::TearDown},
      {{"network.bind", "\nQuorl-----Bind Receive report socket with host Address Failed!\n"}, SetUp::TearDown},
      {{"network.interface", "\nQuorl-----Receive Report Socket Can not support MultiCast!\n"}, SetUp::TearDown},
      {{"network.join", "\nQuorl-----Add Receive report IP to Membership failed\n"}, SetUp::TearDown},
      {{"network.ttl", "\nQuorl-----Set Receive report Socket TTL Failed!\n"}, SetUp::TearDown},
      {{"network.buffer", "\nQuorl-----Set Receive report Socket Buffer Failed!\n"}, SetUp::TearDown},
      {{"network.nonblocking", "\nQuorl-----Set Receive report WSAAsyncSelect Failed!\n"}, SetUp::TearDown},
  };
  for (size_t i = 0; i < steps.size(); ++i) {
    auto result = SetUp::Ready;
    const Failed failed = FailNth<ReceiverSockets>(i + 1, [&](ReceiverSockets& sockets) {
      result = sockets.Open();
      return result == SetUp::Ready;
    });
    EXPECT_EQ(failed.call, steps[i].call) << "step " << i;
    EXPECT_EQ(failed.message, steps[i].failure);
    EXPECT_EQ(result, steps[i].result) << steps[i].failure;
  }
}

TEST(RoomAddress, DefaultsAndTheReplyPortThatWraps) {
  const RoomAddress standard = RoomAddress::From(0, 0, 0);
  EXPECT_EQ(standard.group, (Endpoint{Ipv4(235, 9, 2, 9), 27001}));
  EXPECT_EQ(standard.ReplyPort(), 27003);
  EXPECT_EQ(RoomAddress::From(0, 65535, 0).ReplyPort(), 1);
  EXPECT_EQ(RoomAddress::From(0, 0x10001, 0).group.port, 1);
}

}  // namespace
}  // namespace quorl
