#include "cli/list.h"

#include <fmt/format.h>

#include "cli/inbox.h"
#include "cli/room.h"

namespace quorl::cli {

int RunList(const Options& options, Reporter& reporter) {
  Inbox inbox;
  Network network = ResolveNetwork(options.network);
  SayNetwork(reporter, network);
  Room room(network, inbox);
  SetProfile(1);
  room.Look();
  reporter.Result().Add("receivers", room.There().size());
  if (room.There().empty()) throw room.TooFew(1, {});
  reporter.Say(
      Level::Always, room.AsFact(),
      fmt::format("Receivers  {}\n{}", room.There().size(), room.Listing(reporter.Width(), MOST_RECEIVERS, "")));
  return 0;
}

}  // namespace quorl::cli
