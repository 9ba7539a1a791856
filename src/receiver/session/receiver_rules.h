#pragma once

#include <cstddef>

#include "protocol/profile.h"
#include "protocol/receiver_sockets.h"

namespace quorl {

/// Where the profiles differ on the receiving side, beside the rules of the repair: one row each.
struct ReceiverRules {
  size_t dataBuffer = ReceiverSockets::DATA_BUFFER;  ///< Bytes that the system is asked to hold for the receive loop.
  int failureCopies = 1;                             ///< How often a failure is told to the sender, 10 ms apart.
  bool bindsSender = false;                          ///< Keeps to the sender whose announcement it has accepted.
  bool takesUnannounced = true;  ///< Stores blocks and makes directories before anything is announced.
  bool takesMoreFilesThanBlocks = true;
  bool comparesTrueSize = false;     ///< The disk has to hold the transfer, not only what 32 bits of its size say.
  bool looksForNames = false;        ///< The disk has to have room for so many files; none for one is a full disk, too.
  bool makesTargetOnce = false;      ///< At the announcement; a target that goes away stays away.
  bool remakesRemovedFiles = true;   ///< A file that has gone while its blocks came is made again.
  bool mixesFilesOfOnePlace = true;  ///< Two files whose names lead to one place are both written there.
  bool triesFailedFilesAgain = true;       ///< With each of their blocks, which is told each time.
  bool dropsBlocksAfterFailedOpen = true;  ///< Of the file that was open before, until another one is opened.
  bool tellsNameOfEachBlock = true;   ///< To the host; otherwise of each file that a block belongs to after another.
  bool tellsAnyEndAsComplete = true;  ///< The host hears of a good end however the sender has ended it.
  bool everyDatagramIsLife = false;   ///< Not the heartbeat alone shows that the sender lives.
  bool watchesFromTheStart = false;   ///< Hears heartbeats before anything is announced, and watches each transfer.
  bool wakesToEnd = false;            ///< The receive loop ends without waiting for a datagram or its socket's end.
  bool hasMail = false;               ///< Hears and answers what younger peers say to each other.
  bool closesFileAtEnd = false;       ///< The last file is closed before the host is told, and not at the teardown.
};

inline constexpr ReceiverRules CLASSIC_RULES{};

inline constexpr ReceiverRules ROBUST_RULES{
    .dataBuffer = 16 << 20,
    .failureCopies = 3,
    .bindsSender = true,
    .takesUnannounced = false,
    .takesMoreFilesThanBlocks = false,
    .comparesTrueSize = true,
    .looksForNames = true,
    .makesTargetOnce = true,
    .remakesRemovedFiles = false,
    .mixesFilesOfOnePlace = false,
    .triesFailedFilesAgain = false,
    .dropsBlocksAfterFailedOpen = false,
    .tellsNameOfEachBlock = false,
    .tellsAnyEndAsComplete = false,
    .everyDatagramIsLife = true,
    .watchesFromTheStart = true,
    .wakesToEnd = true,
    .hasMail = true,
    .closesFileAtEnd = true,
};

inline constexpr const ReceiverRules& RulesOf(Profile profile) {
  return profile == Profile::Robust ? ROBUST_RULES : CLASSIC_RULES;
}

}  // namespace quorl
