#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/host_names.h"
#include "cli/inbox.h"
#include "cli/network.h"
#include "cli/outcome.h"

namespace quorl::cli {

/// The library takes no more receivers than this.
inline constexpr size_t MOST_RECEIVERS = 200;

/// Who listens on the group. Holds the sender's side of the library open between Look and the end of a transfer.
class Room {
 public:
  Room(const Network& network, Inbox& inbox) : network(network), inbox(inbox) {}
  ~Room() { Leave(); }
  Room(const Room&) = delete;
  Room& operator=(const Room&) = delete;

  /// Asks who is there, which takes about a second. Throws a Failure when nobody can be asked.
  void Look();
  void Leave();

  const std::vector<uint32_t>& There() const { return there; }
  bool Has(uint32_t address) const;

  /// Those of `wanted` who are not there.
  std::vector<uint32_t> MissingOf(std::span<const uint32_t> wanted) const;

  /// That too few are there. `wanted`: who was waited for by address; else `needed` of them were.
  Failure TooFew(uint32_t needed, std::span<const uint32_t> wanted) const;

  HostNames& Names() { return names; }

  /// "  192.168.1.31 lab-01    192.168.1.32 lab-02" in columns, no more than `mostLines`; what did not fit is counted,
  /// with `hint` behind the number.
  std::string Listing(size_t width, size_t mostLines, const std::string& hint) const;
  Fact AsFact() const;

 private:
  const Network& network;
  Inbox& inbox;
  HostNames names;
  std::vector<uint32_t> there;
  uint32_t looks = 0;
};

/// The addresses with commas between them, as --only takes them.
std::string AddressList(std::span<const uint32_t> addresses);

}  // namespace quorl::cli
