#include "cli/commands/list.h"

#include <fmt/format.h>

#include "cli/room/listeners.h"
#include "cli/transfer/inbox.h"

namespace quorl::cli {

int RunList(const Options& options, Reporter& reporter) {
  Inbox inbox;
  Venue venue = ResolveVenue(options.network);
  SayVenue(reporter, venue);
  Listeners listeners(venue, inbox);
  SetProfile(1);
  listeners.Look();
  reporter.Result().Add("receivers", listeners.There().size());
  if (listeners.There().empty()) throw listeners.TooFew(1, {});
  reporter.Say(Level::Always, listeners.AsFact(),
               fmt::format("Receivers  {}\n{}", listeners.There().size(),
                           listeners.Listing(reporter.Width(), MOST_RECEIVERS, "")));
  return 0;
}

}  // namespace quorl::cli
