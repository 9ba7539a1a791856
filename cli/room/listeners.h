#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "cli/outcome/exits.h"
#include "cli/room/host_names.h"
#include "cli/room/venue.h"
#include "cli/transfer/inbox.h"

namespace quorl::cli {

/// The library takes no more receivers than this.
inline constexpr size_t MOST_RECEIVERS = QUORL_MOST_RECEIVERS;

/// Whose answers end a look: those at these addresses, or as many as that; nobody in particular.
struct Expected {
  std::vector<uint32_t> addresses{};
  uint32_t count = 0;
};

/// Who listens on the group. Holds the sender's side of the library open between Look and the end of a transfer.
class Listeners {
 public:
  Listeners(const Venue& venue, Inbox& inbox) : venue(venue), inbox(inbox) {}
  ~Listeners() { Leave(); }
  Listeners(const Listeners&) = delete;
  Listeners& operator=(const Listeners&) = delete;

  /// Asks who is there, which takes about a second, or until all that are expected have answered. Throws a Failure when
  /// nobody can be asked.
  void Look(const Expected& expected = {});

  /// The same, and waits while another sender is active, no longer than until `deadline`; `tell` hears once whose turn
  /// it is. Returns the signal that ended the wait, or 0.
  int LookWhenFree(const Expected& expected, std::chrono::steady_clock::time_point deadline,
                   const std::function<void(const std::string&)>& tell);
  void Leave();

  const std::vector<uint32_t>& There() const { return there; }
  bool Has(uint32_t address) const;

  /// Those of `wanted` who are not there.
  std::vector<uint32_t> MissingOf(std::span<const uint32_t> wanted) const;

  /// The addresses that are there under that name.
  std::vector<uint32_t> Named(const std::string& name) const;

  /// That too few are there. `missing`: those that were waited for and have not come; none: any `needed` would do.
  Failure TooFew(uint32_t needed, std::span<const std::string> missing) const;

  HostNames& Names() { return names; }

  /// "  192.168.1.31 lab-01    192.168.1.32 lab-02", as InColumns.
  std::string Listing(size_t width, size_t mostLines, const std::string& hint) const;
  Fact AsFact() const;

 private:
  Failure CannotAsk();

  const Venue& venue;
  Inbox& inbox;
  HostNames names;
  std::vector<uint32_t> there;
  uint32_t looks = 0;
};

}  // namespace quorl::cli
