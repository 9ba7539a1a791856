#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cli/talk/messages.h"

namespace quorl::cli {

/// Which rate a room takes in, found out while sending. Decisions only. It rises to the most that it is given, and
/// comes down when receivers say that blocks get lost because of it:
///
/// - A receiver whose own buffers overflow is too slow for it, without any doubt.
/// - One whose memory for fragments fills up would soon put nothing together any more, for as long as its system keeps
///   them: the rate is held where that memory does not get full.
/// - Blocks that are lost elsewhere may be lost at any rate. So it is taken down once to see: a receiver that loses as
///   much of a slower stream is no reason to be slow, and the rate goes back.
///
/// Afterwards it rises slowly.
class RateControl {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// kbit/s.
  RateControl(uint32_t begin, uint32_t most) : most(most), rate(begin), isRising(begin < most) {}

  /// Up to nine tenths of what the link of that interface carries, where that is known and all `receivers` tell what
  /// they lose; else 100 Mbit/s. Where blocks are cut into fragments it begins with 200: as many incomplete blocks as a
  /// stream that is far too fast leaves behind fill a receiver's memory for them before it can say so.
  static RateControl For(const std::string& interfaceName, const std::vector<QuorlReceiverState>& receivers);

  uint32_t Most() const { return static_cast<uint32_t>(most); }

  /// What a receiver has said.
  void Take(uint32_t address, const Intake& intake);

  /// The rate from now on, to be asked every 100 ms or so while the stream runs; `sent` blocks of it have left.
  uint32_t Rate(Time now, uint64_t sent);

 private:
  struct Receiver {
    uint64_t came = 0, lost = 0, overflowed = 0;  ///< In this period.
    double memory = 0;                            ///< Share of its memory for fragments that is in use,
    double memoryBefore = 0;                      ///< and that was when the period began.
    double accepted = 0;                          ///< Share of the blocks that it loses at any rate.
    double tried = 0;                             ///< That it lost before the rate was taken down to see; 0: none.

    double Overflow() const;
    double Loss() const;
    bool IsSuspect() const;
  };

  void BeginPeriod(Time now, uint64_t sent);
  void Judge(double actual, double seconds);
  bool HasHelped();
  double Bearable(double actual, double seconds) const;
  void Change(double kilobits);

  double most;
  double rate;
  bool isRising;  ///< Nothing has got lost for it so far.
  bool wasRising = false;
  double rateBefore = 0;    ///< Before it was taken down to see; 0: it was not.
  bool isSettling = false;  ///< What is said now may be about another rate.
  Time since{};             ///< That, or the period.
  uint64_t sentBefore = 0;  ///< When the period began.
  std::map<uint32_t, Receiver> receivers;
};

}  // namespace quorl::cli
