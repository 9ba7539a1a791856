#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "cli/room/host_names.h"
#include "cli/show/contents.h"
#include "cli/show/progress.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// Bytes of a file in each block but its last.
inline constexpr uint64_t BLOCK_SIZE = QUORL_BLOCK_SIZE;

/// How far a transfer is, as it is asked from the library.
struct SendMoment {
  RateMeter::Clock::time_point now;
  QuorlSendState state{};
  std::span<const QuorlReceiverState> rows;
  std::string file;          ///< The one that travels now.
  uint64_t filesBefore = 0;  ///< It.
};

/// Makes the progress of a sender visible; remembers what it needs for rates.
class SendView {
 public:
  /// `before`: files that travel before those that are counted.
  SendView(const Contents& contents, uint64_t before, const HostNames& names, RateMeter::Clock::time_point start)
      : contents(contents), before(before), names(names) {
    sending.Add(start, 0);
  }

  ProgressView Show(const SendMoment& moment, size_t width);

 private:
  ProgressView ShowSending(const SendMoment& moment, size_t width);
  ProgressView ShowRepairing(const SendMoment& moment, size_t width);
  uint64_t LeftOf(const QuorlReceiverState& master, uint64_t resent);
  uint64_t BytesDone(const QuorlSendState& state) const;

  const Contents& contents;
  const uint64_t before;
  const HostNames& names;
  RateMeter sending;
  RateMeter repairing;
  uint32_t master = 0;              ///< Whose turn it is.
  uint64_t resentBeforeMaster = 0;  ///< By the repair, when its turn began.
};

/// The progress of a receiver.
class ReceiveView {
 public:
  explicit ReceiveView(RateMeter::Clock::time_point start = {}) {
    contents.Add(start, 0);
    blocks.Add(start, 0);
  }

  /// `bytes`: what there is in all, as far as it is known; 0: not yet.
  ProgressView Show(RateMeter::Clock::time_point now, const QuorlReceiveState& state, uint64_t bytes, size_t width);

 private:
  RateMeter contents;
  RateMeter blocks;
  uint64_t mostMissing = 0;  ///< When the repair began.
};

/// How far files have been read for the manifest.
class ReadingView {
 public:
  explicit ReadingView(uint64_t total) : total(total) {}
  void Add(uint64_t bytes);
  ProgressView Show(size_t width);

 private:
  const uint64_t total;
  uint64_t done = 0;
  RateMeter meter;
};

/// How far what has been received has been compared with its manifest.
ProgressView CheckingView(uint64_t done, uint64_t total, size_t width);

/// Of a block's datagram with the UDP header, four IP headers and four Ethernet frames, preamble and gap included.
inline constexpr uint64_t WIRE_BITS_PER_BLOCK = (4796 + 8 + 4 * (20 + 38)) * 8;

/// How long the blocks take at a rate in kbit/s, framing included; 0: the fixed pacing at its best.
std::chrono::milliseconds StreamTime(uint64_t blocks, uint32_t rate);

}  // namespace quorl::cli
