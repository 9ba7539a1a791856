#include "cli/transfer/aftermath.h"

#include <fmt/format.h>

#include "cli/show/escape.h"
#include "cli/system/path.h"
#include "cli/transfer/suggestion.h"

namespace quorl::cli {

Aftermath::Aftermath(const ReceiveOptions& receive, Reporter& reporter) : receive(receive), reporter(reporter) {
  if (!receive.then.empty()) followUp.emplace(receive.then, FollowUp::Check::Now);
}

void Aftermath::Begin(const ReceiveResult& result, const Staging& staging) {
  OpenSuggestion(result, staging);
  RunThen(result, staging);
}

void Aftermath::OpenSuggestion(const ReceiveResult& result, const Staging& staging) {
  if (result.suggested.empty()) {
    if (!result.end.suggestedPath.empty() && !result.failure && !result.notMeant)
      reporter.Say("  The sender suggests to open a file that is not among those received; not opened.");
    return;
  }
  const std::string name = Escape(result.suggested);
  Fact fact("suggestion");
  fact.Add("name", result.suggested);
  const std::string why = receive.open ? WhyNotOpened(staging.Target(), result.suggested) : "--open would";
  if (!why.empty()) {
    reporter.Say(fact.Add("opened", false).Add("reason", why),
                 fmt::format("  The sender suggests to open \"{}\"; not opened ({}).", name, why));
    return;
  }
  reporter.Say(fact.Add("opened", true), fmt::format("  Opening \"{}\", as the sender suggests.", name));
  opener.Want((PathFrom(staging.Path()) / PathFrom(result.suggested)).make_preferred().string());
  Poll();
}

void Aftermath::RunThen(const ReceiveResult& result, const Staging& staging) {
  if (!followUp || result.notMeant) return;
  if (!result.failure && result.verified) {
    followUp->Want(staging.Path());
  } else {
    reporter.Warn(fmt::format("\"{}\" is not run: {}", Escape(receive.then),
                              result.verified ? "the transfer did not end well" : "nothing was verified"));
  }
  Poll();
}

void Aftermath::Poll() {
  if (const auto ended = opener.Poll(); ended && ended->notStarted)
    reporter.Warn(fmt::format("{} {}", FileOpener(), InWords(*ended)));
  const auto ended = followUp ? followUp->Poll() : std::nullopt;
  if (!ended) return;
  followUpFailed = followUpFailed || ended->notStarted || ended->signal != 0 || ended->exitCode != 0;
  Fact fact("then");
  fact.Add("program", receive.then).Add("exit", ended->exitCode).Add("signal", ended->signal);
  reporter.Say(fact.Add("start_error", ended->notStarted.number),
               fmt::format("  \"{}\" {}", Escape(receive.then), InWords(*ended)));
}

}  // namespace quorl::cli
