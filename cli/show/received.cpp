// The end of a transfer in words.
#include "cli/show/received.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/show/escape.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr size_t MOST_FILES_SHOWN = 5;

std::string InQuotes(const std::string& name) {
  return fmt::format("\"{}\"", Escape(name));
}

uint64_t MillisecondsOf(std::chrono::nanoseconds duration) {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

/// A list whose first line begins with what it is and how many there are. Programs get every one as a fact; people get
/// the first few, and the rest with -v.
class List {
 public:
  List(Reporter& reporter, const char* type, const char* title, size_t count)
      : reporter(reporter), type(type), title(title), count(count) {}

  void Add(const std::string& name, const char* key, const std::string& value, const std::string& text) {
    Fact fact(type);
    fact.Add("name", name);
    if (*key != '\0') fact.Add(key, value);
    const std::string head = shown == 0 ? fmt::format("{:<8} {:>3}", title, count) : std::string(12, ' ');
    const bool isShown = shown < MOST_FILES_SHOWN || reporter.Wants(Level::Files);
    ++shown;
    reporter.Say(fact, isShown ? fmt::format("  {}   {}", head, text) : "");
    if (shown == MOST_FILES_SHOWN && count > MOST_FILES_SHOWN && !reporter.Wants(Level::Files))
      reporter.Say(fmt::format("  {}   ... and {} more", std::string(12, ' '), count - MOST_FILES_SHOWN));
  }

 private:
  Reporter& reporter;
  const char* type;
  const char* title;
  size_t count;
  size_t shown = 0;
};

/// A name, and the reason of its fate.
struct Reason {
  std::string name;
  std::string why;
};

/// A reason that many names share is told once, with their number. Programs get every name.
void TellReasons(Reporter& reporter, const char* type, const char* title, const char* divider,
                 const std::vector<Reason>& reasons) {
  std::vector<std::pair<std::string, std::vector<const Reason*>>> causes;
  for (const Reason& reason : reasons) {
    auto cause = std::find_if(causes.begin(), causes.end(), [&](const auto& one) { return one.first == reason.why; });
    if (cause == causes.end()) cause = causes.insert(causes.end(), {reason.why, {}});
    cause->second.push_back(&reason);
  }
  std::string head = fmt::format("{:<8} {:>3}", title, reasons.size());
  for (const auto& [why, names] : causes) {
    const bool isList = names.size() <= 2 || reporter.Wants(Level::Files);
    for (const Reason* reason : names) {
      const std::string text = fmt::format("  {}   {}{}{}", head, InQuotes(reason->name), divider, why);
      reporter.Say(Fact(type).Add("name", reason->name).Add("reason", why), isList ? text : "");
      if (isList) head = std::string(12, ' ');
    }
    if (isList) continue;
    reporter.Say(fmt::format("  {}   {}: {}, {} and {} more (-v lists)", head, why, InQuotes(names[0]->name),
                             InQuotes(names[1]->name), names.size() - 2));
    head = std::string(12, ' ');
  }
}

void TellLists(Reporter& reporter, const ReceiveResult& result) {
  const auto isRenamed = [](const MoveReport::Moved& moved) { return moved.name != moved.as; };
  const auto& moved = result.moved.moved;
  for (const MoveReport::Moved& file : moved) {
    reporter.Say(Level::Files, Fact("file").Add("name", file.as), "  " + InQuotes(file.as));
  }
  List renamed(reporter, "renamed", "renamed",
               static_cast<size_t>(std::count_if(moved.begin(), moved.end(), isRenamed)));
  for (const MoveReport::Moved& file : moved) {
    if (!isRenamed(file)) continue;
    renamed.Add(file.name, "as", file.as,
                fmt::format("{} existed, new one is {}", InQuotes(file.name), InQuotes(file.as)));
  }
  if (result.inPlace > 0)
    reporter.Say(Fact("in_place").Add("files", result.inPlace),
                 fmt::format("  {:<8} {:>3}   with the same contents, left alone", "there", result.inPlace));
  List skipped(reporter, "skipped", "skipped", result.moved.skipped.size());
  for (const std::string& name : result.moved.skipped) skipped.Add(name, "", "", InQuotes(name) + " existed");
  List unmade(reporter, "unmade", "no links", result.moved.unmade.size());
  for (const std::string& name : result.moved.unmade)
    unmade.Add(name, "", "", InQuotes(name) + ": this system makes none");
  List taken(reporter, "taken", "exist", result.moved.taken.size());
  for (const std::string& name : result.moved.taken) taken.Add(name, "", "", InQuotes(name));
  std::vector<Reason> refused;
  for (const auto& [name, why] : result.moved.refused) refused.push_back({name, why});
  TellReasons(reporter, "refused", "refused", ": ", refused);
  std::vector<Reason> differences;
  for (const auto& [name, why] : result.differences) differences.push_back({name, why});
  TellReasons(reporter, "difference", "differ", " ", differences);
}

/// A transfer that suffers from it loses nearly everything, without a sign of why.
void TellFragments(Reporter& reporter, const RoundEnd& end) {
  if (end.fragments == 0) return;
  reporter.Say(
      Fact("fragments").Add("refused", end.fragments),
      fmt::format("  {} of blocks found no memory, as lost ones keep it for long. This cures it on this machine:\n"
                  "    sysctl -w {}",
                  Count(end.fragments, "fragment"), REASSEMBLY_CURE));
}

void TellTrouble(Reporter& reporter, const RoundEnd& end) {
  if (end.strangers > 0) {
    reporter.Say(Fact("strangers").Add("datagrams", end.strangers),
                 fmt::format("  {} from others than the sender, dropped", Count(end.strangers, "datagram")));
  }
  TellFragments(reporter, end);
  if (end.overflows > 0) {
    reporter.Say(Fact("overflows").Add("datagrams", end.overflows),
                 fmt::format("  {} came faster than this machine could take them; \"quorl doctor\" tells more",
                             Count(end.overflows, "datagram")));
  }
}

std::string InTime(const ReceiveResult& result) {
  return fmt::format("{}, {} in {}", Count(result.files, "file"), FormatBytes(result.moved.bytes),
                     FormatDuration(result.end.elapsed));
}

std::string VerifiedText(const ReceiveResult& result) {
  if (!result.verified) return "not verified: it came without a manifest";
  return fmt::format("verified {} of {}{}", result.files, result.files,
                     result.seal == Seal::Keyed ? " with the key" : "");
}

}  // namespace

void TellResult(Reporter& reporter, const ReceiveResult& result) {
  if (result.notMeant) {
    reporter.Say(Fact("not_meant"), "Not meant for this machine: the sender named others. Nothing was kept.");
    return;
  }
  if (!result.failure) {
    Fact fact("received");
    reporter.Say(Level::Always, AddResult(fact, result),
                 fmt::format("{} {}, nothing missing, {}.", reporter.Painted(Tint::Good, "Complete:"), InTime(result),
                             VerifiedText(result)));
  }
  TellLists(reporter, result);
  List changed(reporter, "changed", "changed", result.end.changed.size());
  for (const std::string& name : result.end.changed)
    changed.Add(name, "", "", InQuotes(name) + " changed, or could not be read, on the sender's side");
  TellTrouble(reporter, result.end);
  if (result.failure) reporter.Complain(*result.failure);
}

void TellResultInALine(Reporter& reporter, const ReceiveResult& result) {
  const std::string from = FormatAddress(result.end.state.senderAddress);
  std::string text;
  if (result.notMeant) {
    text = fmt::format("{}: not meant for this machine, not kept", from);
  } else if (!result.failure) {
    text = fmt::format("{}: complete, {}, {}", from, InTime(result), VerifiedText(result));
    const auto& moved = result.moved;
    const auto renamed =
        std::count_if(moved.moved.begin(), moved.moved.end(), [](const auto& file) { return file.name != file.as; });
    if (renamed > 0) text += fmt::format(", {} renamed", renamed);
    if (!moved.skipped.empty()) text += fmt::format(", {} skipped", moved.skipped.size());
  } else {
    text = fmt::format("{}: failed, {}{}{} (exit code {})", from, result.failure->what,
                       result.failure->why.empty() ? "" : ": ", result.failure->why, static_cast<int>(result.Code()));
  }
  Fact fact("received");
  reporter.Say(Level::Always, AddResult(fact, result), text);
  TellFragments(reporter, result.end);
}

Fact& AddResult(Fact& fact, const ReceiveResult& result) {
  const QuorlReceiveState& state = result.end.state;
  fact.Add("state", result.notMeant ? "not_meant" : !result.failure ? "complete" : "failed");
  fact.Add("exit", static_cast<int>(result.Code())).Add("sender", FormatAddress(state.senderAddress));
  fact.Add("files", result.files).Add("files_moved", result.moved.moved.size()).Add("bytes", result.moved.bytes);
  fact.Add("verified", result.verified).Add("keyed", result.verified && result.seal == Seal::Keyed);
  fact.Add("files_in_place", result.inPlace).Add("files_kept", result.filesKept).Add("bytes_kept", result.bytesKept);
  fact.Add("blocks_expected", state.blocksExpected).Add("blocks_stored", state.blocksStored);
  fact.Add("skipped", result.moved.skipped.size()).Add("refused", result.moved.refused.size());
  fact.Add("differences", result.differences.size()).Add("strangers", result.end.strangers);
  if (result.failure) fact.Add("what", result.failure->what).Add("why", result.failure->why);
  return fact.Add("elapsed_ms", MillisecondsOf(result.end.elapsed));
}

}  // namespace quorl::cli
