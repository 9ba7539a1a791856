#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "protocol/profile.h"

namespace quorl::sim {

/// One cell of the study: rooms that are alike but for chance.
struct StudyCell {
  Profile profile = Profile::Classic;
  size_t receivers = 1;
  double loss = 0;  ///< Of each datagram at each receiver, and of each reply.

  // What became of them.
  uint64_t rooms = 0;
  uint64_t endless = 0;        ///< Rooms in which the sender was still repairing when nothing could need it any more.
  uint64_t complete = 0;       ///< Receivers that hold everything and told their host so.
  uint64_t incomplete = 0;     ///< The others.
  uint64_t wronglyFailed = 0;  ///< Complete receivers that the sender reports as failed.
  uint64_t unreported = 0;     ///< Incomplete ones that it does not report.
  uint64_t lostBlocks = 0;     ///< Blocks of the stream that a receiver did not get, counted for each receiver.
  uint64_t resentBlocks = 0;   ///< Blocks that the repair sent; each goes to all receivers.
  double seconds = 0;          ///< From the start to the end of the transfer, of the rooms that ended.

  void Add(const StudyCell& other);
};

/// Runs as many rooms of a cell as are asked for and fit into the time, which is real.
StudyCell RunCell(const StudyCell& cell, uint64_t rooms, std::chrono::seconds realTime, unsigned threads);

struct StudyOptions {
  uint64_t rooms = 1000;              ///< A cell at most.
  std::chrono::seconds realTime{10};  ///< A cell.
  unsigned threads = 1;
};

/// Receivers 1, 10, 30, 100 and 200, loss 0, 0.1, 1, 5 and 20 %, both profiles; prints a table as it goes.
void RunStudy(const StudyOptions& options);

/// The biggest room: 200 receivers, 10 000 blocks, 1 % loss. Prints what the simulation of it cost. False when a
/// receiver did not become complete.
bool RunScale(Profile profile);

}  // namespace quorl::sim
