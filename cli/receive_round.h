#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/options.h"
#include "cli/progress.h"
#include "cli/reporter.h"
#include "cli/staging.h"

namespace quorl::cli {

/// Bytes of a file in each block but its last.
inline constexpr uint64_t BLOCK_SIZE = 4254;

/// How it ended to wait for a transfer and to receive it.
struct RoundEnd {
  enum class Kind {
    Over,         ///< The transfer is over, well or not.
    TimedOut,     ///< None was announced in time.
    Interrupted,  ///< By a signal.
    Deaf,         ///< The sockets could not be opened.
  };
  Kind kind = Kind::Over;
  bool announced = false;
  bool stopped = false;       ///< By the sender.
  uint32_t status = 0;        ///< The QUORL_STATUS_ that ended it.
  std::string suggestedPath;  ///< What the sender suggests to open; empty: nothing.
  int signal = 0;
  QuorlReceiveState state{};
  uint64_t strangers = 0;  ///< Datagrams from others than the sender, dropped.
  uint64_t overflows = 0;  ///< Datagrams that this machine had no room for.
  std::chrono::nanoseconds elapsed{0};

  /// Every block of every file is on the disk.
  bool IsComplete() const;
};

/// Waits for one transfer and receives it into a staging directory. The receiver is closed when Run returns.
class Reception {
 public:
  /// `tick` is called a few times a second.
  Reception(const ReceiveOptions& options, Reporter& reporter, Inbox& inbox, const Network& network, Staging& staging,
            std::function<void()> tick);
  ~Reception();
  Reception(const Reception&) = delete;
  Reception& operator=(const Reception&) = delete;

  RoundEnd Run();

 private:
  using Clock = std::chrono::steady_clock;

  bool Open();
  void UseNextStaging();
  std::optional<RoundEnd> Step(const Event& event);
  RoundEnd Ended(RoundEnd end);
  void Begin();
  void SayTask(const QuorlReceiveState& state);
  void ShowProgress(const QuorlReceiveState& state);

  const ReceiveOptions& options;
  Reporter& reporter;
  Inbox& inbox;
  const Network& network;
  Staging& staging;
  std::function<void()> tick;
  RateMeter meter;
  bool announced = false;
  bool said = false;
  uint64_t mostMissing = 0;  ///< When the repair began.
  Clock::time_point waitingSince;
  Clock::time_point started;
};

}  // namespace quorl::cli
