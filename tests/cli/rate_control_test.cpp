// Which rate a room takes in, in rooms of which everything is known.
#include "cli/transfer/rate_control.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "cli/show/views.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

/// Sends for a while at the rate that is decided; what of a tenth of a second a receiver loses, `receive` says.
struct Room {
  using Receive = std::function<Intake(double kilobits, uint32_t blocks)>;

  void Run(std::chrono::milliseconds time, const Receive& receive) {
    for (const auto end = now + time; now < end; now += 100ms) {
      const double kilobits = std::min<double>(control.Rate(now, sent), machine);
      const auto blocks = static_cast<uint32_t>(kilobits * 100 / WIRE_BITS_PER_BLOCK);
      sent += blocks;
      const Intake intake = receive(kilobits, blocks);
      if (intake.lost + intake.overflowed + intake.memory > 0) control.Take(1, intake);
      lost += intake.lost;
    }
  }
  uint32_t Rate() { return control.Rate(now, sent); }

  RateControl control{200'000, 900'000};
  double machine = 900'000;  ///< What the sender is able to.
  RateControl::Time now{1s};
  uint64_t sent = 0;
  uint64_t lost = 0;
};

Intake Lose(uint32_t blocks, double share, bool inBuffers = false) {
  const auto lost = static_cast<uint32_t>(blocks * share);
  return {blocks - lost, lost, inBuffers ? lost : 0, 0};
}

TEST(RateControl, ComesDownToWhatALinkOrAReceiverTakesAndStaysThere) {
  for (const bool inBuffers : {false, true}) {
    Room room;
    const auto narrow = [&](double kilobits, uint32_t blocks) {
      return Lose(blocks, std::max(0.0, 1 - 300'000 / kilobits), inBuffers);
    };
    room.Run(6s, narrow);
    room.lost = room.sent = 0;
    room.Run(20s, narrow);
    EXPECT_LT(room.lost, room.sent / 50) << inBuffers;
    EXPECT_GT(room.sent * WIRE_BITS_PER_BLOCK / 20'000, 200'000u) << inBuffers;
  }
}

TEST(RateControl, LossThatIsTheSameAtAnyRateDoesNotSlowItDown) {
  Room room;
  room.Run(12s, [](double, uint32_t blocks) { return Lose(blocks, 0.05); });
  EXPECT_EQ(room.Rate(), 900'000u);
  room.Run(5s,
           [](double kilobits, uint32_t blocks) { return Lose(blocks, 1 - 0.95 * std::min(1.0, 400'000 / kilobits)); });
  EXPECT_LT(room.Rate(), 480'000u) << "more than that does";
}

TEST(RateControl, WhatTheSendersMachineCannotDoIsNoMeasure) {
  Room room;
  room.control = RateControl(900'000, 900'000);
  room.machine = 500'000;
  room.Run(1s, [](double kilobits, uint32_t blocks) { return Lose(blocks, std::max(0.0, 1 - 250'000 / kilobits)); });
  EXPECT_LT(room.Rate(), 300'000u);
}

TEST(RateControl, FragmentsOfIncompleteBlocksNeverFillTheMemoryForThem) {
  // Of a hundred blocks one comes in part, and is kept for half a minute.
  Room room;
  double memory = 0, highest = 0;
  room.Run(120s, [&](double, uint32_t blocks) {
    memory += blocks * 0.01 / 450 - memory / 300;
    highest = std::max(highest, memory);
    Intake intake = Lose(blocks, 0.008);
    intake.memory = static_cast<uint16_t>(std::min(1000.0, memory * 1000));
    return intake;
  });
  EXPECT_LT(highest, 0.9);
  EXPECT_GT(room.Rate(), 10'000u);
}

}  // namespace
}  // namespace quorl::cli
