// From the end of a transfer to files under their names. Every answer but the last one leaves the target untouched.
#include "cli/receive_delivery.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/escape.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

using Found = std::optional<std::variant<ReadManifest, std::string>>;

/// "R:\\sub\start.html" as "sub/start.html".
std::string RelativeName(const std::string& drivePath) {
  std::string name;
  for (size_t at = drivePath.find(':') + 1; at < drivePath.size();) {
    const size_t end = std::min(drivePath.find('\\', at), drivePath.size());
    if (end > at) name += (name.empty() ? "" : "/") + drivePath.substr(at, end - at);
    at = end + 1;
  }
  return name;
}

class Delivering {
 public:
  Delivering(const Staging& staging, const RoundEnd& end, const DeliveryRules& rules) : staging(staging), rules(rules) {
    result.end = end;
  }

  ReceiveResult Run() {
    if (result.end.announced) LookIntoStaging();
    if (IsMeantForOthers()) {
      result.notMeant = true;
    } else if (!result.end.IsComplete() && !(Manifest() != nullptr && IsPartly())) {
      FailIncomplete();
    } else if (Check()) {
      Move();
    }
    return std::move(result);
  }

 private:
  void LookIntoStaging() {
    directory = staging.Open();
    if (!directory) return;
    tree = ListTree(directory.Get());
    found = FindManifest(directory.Get(), tree, rules.key);
    result.files = result.end.state.files - (found && result.end.state.files > 0 ? 1 : 0);
  }

  const ReadManifest* Manifest() const { return found ? std::get_if<ReadManifest>(&*found) : nullptr; }

  bool IsMeantForOthers() const {
    if (Manifest() == nullptr) return false;
    const std::vector<uint32_t>& meant = Manifest()->manifest.onlyFor;
    return !meant.empty() && std::find(meant.begin(), meant.end(), rules.ownAddress) == meant.end();
  }

  /// Over for everyone, and some files could not be stored on this machine. The manifest tells which of the others are
  /// whole.
  bool IsPartly() const { return result.end.announced && !result.end.stopped && result.end.state.failedFiles > 0; }

  void FailIncomplete() {
    QuorlReceiveState& state = result.end.state;
    if (state.status == 0) state.status = result.end.status;
    const Exit code = ReceiverExit(state);
    const std::string why = result.end.stopped ? "the sender stopped it"
                            : state.status != 0
                                ? fmt::format("{} (status {})", StatusInWords(state.status), state.status)
                                : "the sender ended it before everything was here";
    const std::string stored = fmt::format("the transfer is not complete, {} of {} stored", state.blocksStored,
                                           Count(state.blocksExpected, "block"));
    Fail(code == Exit::Complete ? Exit::PeerLost : code, result.end.announced ? stored : "nothing was received", why,
         {result.end.announced ? "Nothing was moved, and what had been received is removed." : "",
          "Start \"quorl receive\" again, then send again."});
  }

  /// Whether what is in staging may be moved; `whole` is what.
  bool Check() {
    if (!directory) {
      Fail(Exit::LocalFiles, "what was received has vanished", "somebody removed it", {});
      return false;
    }
    if (const auto* why = found ? std::get_if<std::string>(&*found) : nullptr) {
      FailVerification({{std::string(MANIFEST_NAME), *why}});
      return false;
    }
    return found ? CheckByManifest() : CheckByCount();
  }

  bool CheckByManifest() {
    auto verification = VerifyTree(directory.Get(), tree, Manifest()->manifest, rules.progress);
    result.interrupted = !verification;
    if (!verification) return false;
    if (!verification->differences.empty() && !(IsPartly() && !verification->verified.files.empty())) {
      FailVerification(std::move(verification->differences));
      return false;
    }
    result.seal = Manifest()->seal;
    result.verified = verification->differences.empty();
    result.differences = std::move(verification->differences);
    tree = std::move(verification->verified);
    if (!result.verified) {
      Fail(Exit::Partly,
           fmt::format("{} of {} could not be stored here", result.differences.size(), Count(result.files, "file")), "",
           {"The others are verified and in their places."});
    }
    return true;
  }

  /// Without a manifest there is still this: names that became one on this machine hold a mixture.
  bool CheckByCount() {
    if (rules.key != nullptr) {
      FailVerification({{std::string(MANIFEST_NAME), "is missing, and with --key-file nothing is taken without it"}});
      return false;
    }
    if (tree.files.size() == result.end.state.files && tree.strange.empty() && tree.readable) return true;
    FailVerification({{".", fmt::format("{} were announced, {} arrived under a name of their own",
                                        Count(result.end.state.files, "file"), tree.files.size())}});
    return false;
  }

  void Move() {
    result.moved = MoveTree(directory.Get(), staging.Target(), tree, rules.move);
    const std::string name = RelativeName(result.end.suggestedPath);
    for (const MoveReport::Moved& moved : result.moved.moved) {
      if (moved.name == name) result.suggested = moved.as;
    }
    if (!result.moved.taken.empty()) {
      Fail(Exit::LocalFiles,
           fmt::format("{} of {} exist already", result.moved.taken.size(), Count(result.files, "file")),
           "nothing was moved, as --existing fail wants it", {"Another --existing, or another directory with --to."});
    } else if (!result.moved.refused.empty()) {
      Fail(result.moved.moved.empty() ? Exit::LocalFiles : Exit::Partly,
           fmt::format("{} could not be moved to their places", Count(result.moved.refused.size(), "name")), "",
           {"They are not kept. Make room for their names, then send again."});
    } else if (!result.moved.synced) {
      Fail(Exit::LocalFiles, "the directory could not be brought to the disk", "",
           {"Everything is in its place, but a power failure may undo it."});
    }
  }

  void FailVerification(std::vector<Verification::Difference> differences) {
    result.differences = std::move(differences);
    Fail(Exit::NotVerified, "what arrived is not what was sent", Count(result.differences.size(), "difference"),
         {"Nothing was moved, and what had been received is removed."});
  }

  void Fail(Exit code, std::string what, std::string why, std::vector<std::string> next) {
    std::erase(next, "");
    result.code = code;
    result.failure = {code, std::move(what), std::move(why), std::move(next)};
  }

  const Staging& staging;
  const DeliveryRules& rules;
  FileHandle directory;
  StagedTree tree;
  Found found;
  ReceiveResult result;
};

}  // namespace

ReceiveResult Deliver(const Staging& staging, const RoundEnd& end, const DeliveryRules& rules) {
  return Delivering(staging, end, rules).Run();
}

}  // namespace quorl::cli
