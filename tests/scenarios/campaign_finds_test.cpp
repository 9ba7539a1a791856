// What the campaign has found, each as a story of its own.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

bool IsStreamBlock(const Transit& transit, uint32_t block) {
  return Is(transit, CMD_DATA) && HeadOf(transit).block == block;
}

TEST(CampaignFinds, TheLastBlockArrivesWhileTheLossOfTheSenderIsBeingReported) {
  Room room(Robust(1));
  // The stream takes about as long as it takes to miss the heartbeat.
  room.File("a", 2260 * BLOCK_SIZE);
  bool reported = false;
  room.Net().SetFilter([&](const Transit& transit) {
    if (transit.to == &room.Sender() && Is(transit, CMD_FINISH)) reported = true;
    if (Is(transit, CMD_REPORT) || IsStreamBlock(transit, 7)) return false;
    return reported || !Is(transit, CMD_RESEND);
  });
  // The sender of this story goes on serving whoever asks, also one that has reported a failure.
  std::vector<uint8_t> block;
  room.Net().SetTap([&](const SentDatagram& sent) {
    if (sent.bytes[2] == CMD_RESEND) block = sent.bytes;
    if (sent.bytes[2] != CMD_FINISH || sent.from != &room.Receiver(0) || block.empty()) return;
    room.World().At(room.World().Now() + 5ms, [&] {
      for (const auto& datagram : {block, std::vector<uint8_t>{0x91, 0x02, CMD_RELEASE, 1, 0}})
        room.Net().Carry({room.World().Now(),
                          &room.Sender(),
                          {room.Sender().Address(), 27001},
                          {room.Receiver(0).Address(), 27001},
                          datagram});
    });
  });
  Begin(room, 60s);
  EXPECT_TRUE(room.HoldsAllFiles(0));
  EXPECT_EQ(Room::Statuses(room.Receiver(0)), std::vector<uint32_t>{QUORL_STATUS_DONE})
      << "a completed transfer has lost no sender";
}

TEST(CampaignFinds, ASenderThatComesBackAndIsLostAgain) {
  Room room(Robust(1));
  room.File("a", 100 * BLOCK_SIZE);
  Begin(room);
  room.Net().Partition({&room.Sender()});
  room.World().RunFor(40s);
  room.Net().Partition({});
  room.Sender().Call([&] { room.Server().StartSend(); });
  room.World().RunFor(50ms);
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Receiving);
  room.Sender().PowerOff();
  EXPECT_TRUE(room.RunUntilQuiet(40s)) << "nobody told it that the second transfer is over";
  EXPECT_EQ(Room::Statuses(room.Receiver(0)),
            (std::vector<uint32_t>{QUORL_STATUS_SENDER_LOST, QUORL_STATUS_SENDER_LOST}));
}

TEST(CampaignFinds, AReceiverWhoseAnswerToTheCollectionComesInTheSecondPassIsReported) {
  Room room(Robust(2));
  room.File("a", 20 * BLOCK_SIZE);
  room.Net().SetFilter([](const Transit& transit) { return !IsStreamBlock(transit, 7) && !Is(transit, CMD_RESEND); });
  room.Net().SetLink(&room.Receiver(1), &room.Sender(), {.hungUntil = 10s});
  Play(room);
  EXPECT_EQ(Ends(room), "holes 1460, holes 1460");
}

}  // namespace
}  // namespace quorl::sim
