// From the end of a transfer to files under their names, as the verdicts of outcome/delivery have it.
#include "cli/transfer/delivery.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "cli/show/units.h"
#include "cli/transfer/salvage.h"

namespace quorl::cli {
namespace {

using Action = Verdict::Action;

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
  Delivering(Staging& staging, const RoundEnd& end, const DeliveryRules& rules) : staging(staging), rules(rules) {
    result.end = end;
  }

  ReceiveResult Run() {
    judge = {rules.key != nullptr, rules.catalogue != nullptr && !rules.allOrNothing, rules.allOrNothing};
    Action action = Take(JudgeArrival(result.end, Look(), judge));
    if (action == Action::Keep) Keep();
    if (rules.sink != nullptr && (action == Action::Verify || action == Action::Move)) action = RequireOneFile(action);
    if (action == Action::Verify) action = Verify();
    if (action == Action::Move && rules.sink != nullptr) action = UseSink();
    if (action == Action::Move) Move();
    result.notMeant = action == Action::Ignore;
    return std::move(result);
  }

 private:
  Arrival Look() {
    Arrival arrival;
    if (result.end.announced) directory = staging.Open();
    if (!directory) return arrival;
    tree = ListTree(directory);
    auto found = FindManifest(directory, tree, rules.key);
    result.files = result.end.state.files - (found && result.end.state.files > 0 ? 1 : 0);
    arrival.isThere = true;
    arrival.files = tree.files.size();
    arrival.isPlain = tree.strange.empty() && tree.readable;
    if (!found) return arrival;
    if (auto* read = std::get_if<ReadManifest>(&*found)) {
      arrival.manifest = Arrival::Listed::Well;
      const std::vector<uint32_t>& meant = read->manifest.onlyFor;
      arrival.isForOthers = !meant.empty() && std::find(meant.begin(), meant.end(), rules.ownAddress) == meant.end();
      manifest = std::move(*read);
      if (!rules.permissions) ForgetPermissions(manifest.manifest);
    } else {
      arrival.manifest = Arrival::Listed::Unusably;
      arrival.whyUnusable = std::get<std::string>(*found);
    }
    return arrival;
  }

  Action Take(Verdict verdict) {
    result.failure = std::move(verdict.failure);
    result.differences = std::move(verdict.differences);
    return verdict.action;
  }

  /// A sink takes what is one file, and verified.
  Action RequireOneFile(Action action) {
    const Manifest& listed = manifest.manifest;
    if (action == Action::Move) {
      result.failure = Failure{Exit::NotVerified, "what arrived cannot be verified", "it came without a manifest", {}};
    } else if (listed.files.size() != 1 || !listed.emptyDirectories.empty() || !listed.links.empty()) {
      result.failure = Failure{Exit::Other,
                               "the transfer is not a single file",
                               fmt::format("--output takes one, and {} came", Count(listed.files.size(), "file")),
                               {}};
    } else {
      return action;
    }
    result.failure->next = {"Nothing was written, and what had been received is removed."};
    return Action::Discard;
  }

  /// The file gets the name of the sink, to be moved to it, or is poured out.
  Action UseSink() {
    StagedTree::File& file = tree.files.front();
    const SplitName split(file.name);
    Sink& sink = *rules.sink;
    if (!sink.outlet) {
      if (const SystemError error =
              directory.Sub(split.directory).Move(split.leaf, directory, sink.name, OntoName::Any))
        result.failure = Failure{Exit::LocalFiles, sink.shown + " cannot be written", error.text, {}};
      file.name = sink.name;
      return result.failure ? Action::Discard : Action::Move;
    }
    OpenedFile opened = directory.Read(file.name);
    if (!opened) result.failure = Failure{Exit::LocalFiles, "what was received cannot be read", opened.Why().text, {}};
    if (opened) result.failure = Pour(opened, file.size, sink, rules.progress, result.interrupted);
    if (!result.failure) {
      result.moved.moved.push_back({file.name, file.name});
      result.moved.bytes = file.size;
    }
    return Action::Discard;
  }

  Action Verify() {
    if (rules.arriving != nullptr) rules.arriving->Finish(tree);
    auto verification = VerifyTree(directory, tree, manifest.manifest, rules.inPlace, rules.progress, rules.arriving);
    result.interrupted = !verification;
    if (!verification) return Action::Discard;
    result.seal = manifest.seal;
    result.verified = verification->differences.empty();
    result.inPlace = verification->inPlace;
    tree = std::move(verification->verified);
    return Take(JudgeVerified(result.end, std::move(verification->differences), tree.files.size() + result.inPlace,
                              result.files, judge));
  }

  /// By a key, only what it vouches for goes to its name.
  void Keep() {
    std::map<uint32_t, Digest> digests = rules.key != nullptr ? std::map<uint32_t, Digest>() : result.end.digests;
    const auto& files = rules.catalogue->files;
    for (size_t i = 0; i < files.size(); ++i)
      if (files[i].digest != Digest{}) digests[static_cast<uint32_t>(i + 1)] = files[i].digest;
    // Who asked for an end does not wait for files to be read.
    if (result.end.kind == RoundEnd::Kind::Interrupted || rules.sink != nullptr) digests.clear();
    Salvaged salvaged = Salvage(staging, *rules.catalogue, rules.inPlace, result.end.stored, digests, rules.move);
    result.moved = std::move(salvaged.moved);
    result.filesKept = salvaged.kept.files.size();
    result.bytesKept = salvaged.kept.Bytes();
    result.failure = AfterKeeping(*result.failure, result.moved.moved.size(), result.filesKept, result.bytesKept);
  }

  void Move() {
    result.moved = MoveTree(directory, staging.Target(), tree, rules.move);
    const std::string name = RelativeName(result.end.suggestedPath);
    for (const MoveReport::Moved& moved : result.moved.moved) {
      if (moved.name == name) result.suggested = moved.as;
    }
    const MoveReport& report = result.moved;
    result.inPlace += report.alike.size();
    auto failure =
        JudgeMoved({report.moved.size(), report.taken.size(), report.refused.size(), report.synced, report.hadNoRoom},
                   result.files, result.end.room);
    if (failure) result.failure = std::move(failure);
  }

  Staging& staging;
  JudgeRules judge;
  const DeliveryRules& rules;
  Directory directory;
  StagedTree tree;
  ReadManifest manifest;
  ReceiveResult result;
};

}  // namespace

ReceiveResult Deliver(Staging& staging, const RoundEnd& end, const DeliveryRules& rules) {
  return Delivering(staging, end, rules).Run();
}

}  // namespace quorl::cli
