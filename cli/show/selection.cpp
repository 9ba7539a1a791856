#include "cli/show/selection.h"

#include <fmt/format.h>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr size_t MOST_SHOWN = 5;
constexpr size_t MOST_UNFIT = 20;

void SayRemarks(Reporter& reporter, const char* title, const std::vector<Remark>& remarks) {
  for (size_t i = 0; i < remarks.size(); ++i) {
    const Remark& remark = remarks[i];
    Fact fact(title);
    fact.Add("path", remark.path).Add("reason", remark.why);
    bool shown = i < MOST_SHOWN || reporter.Wants(Level::Files);
    reporter.Say(fact, shown             ? fmt::format("  {}: \"{}\" ({})", title, Escape(remark.path), remark.why)
                       : i == MOST_SHOWN ? fmt::format("  ... and {} more", remarks.size() - MOST_SHOWN)
                                         : "");
  }
}

void SayExcluded(Reporter& reporter, const SendPlan& plan) {
  if (!plan.excluded.empty() && !reporter.Wants(Level::Files)) {
    reporter.Say(fmt::format("  left out, as --exclude wants it: {} (-v lists)", Count(plan.excluded.size(), "name")));
  }
  for (const Remark& remark : plan.excluded) {
    Fact fact("excluded");
    reporter.Say(Level::Files, fact.Add("path", remark.path), fmt::format("  excluded: \"{}\"", Escape(remark.path)));
  }
}

}  // namespace

void TellSelection(Reporter& reporter, const SendPlan& plan) {
  Fact fact("selection");
  fact.Add("files", plan.files.size()).Add("directories", plan.directories).Add("bytes", plan.bytes);
  fact.Add("blocks", plan.blocks).Add("links", plan.links.size()).Add("skipped", plan.leftOut.size());
  std::string folders = plan.directories == 0 ? "" : fmt::format(" in {}", Count(plan.directories, "folder"));
  if (!plan.links.empty()) folders += fmt::format(", {}", Count(plan.links.size(), "link"));
  reporter.Say(fact,
               fmt::format("Selection  {}{}, {}", Count(plan.files.size(), "file"), folders, FormatBytes(plan.bytes)));
  SayRemarks(reporter, "skipped", plan.leftOut);
  SayExcluded(reporter, plan);
  SayRemarks(reporter, "renamed", plan.renamed);
}

void RejectUnfit(Reporter& reporter, const SendPlan& plan) {
  if (plan.unfit.empty()) return;
  Failure failure{Exit::LocalFiles, fmt::format("{} cannot be sent", Count(plan.unfit.size(), "name")), "", {}};
  const size_t most = reporter.Wants(Level::Files) ? plan.unfit.size() : MOST_UNFIT;
  for (const Remark& remark : plan.unfit) {
    reporter.Say(Fact("unfit").Add("path", remark.path).Add("reason", remark.why), "");
    if (failure.next.size() < most) failure.next.push_back(fmt::format("\"{}\": {}", Escape(remark.path), remark.why));
  }
  if (plan.unfit.size() > most)
    failure.next.push_back(fmt::format("... and {} more; -v lists all", plan.unfit.size() - most));
  failure.next.push_back(plan.unreadable == plan.unfit.size()
                             ? "Nothing has been sent. To send the rest: --skip-unreadable"
                             : "Nothing has been sent.");
  throw Failure(failure);
}

void ListSelection(Reporter& reporter, const SendPlan& plan) {
  for (const PlannedFile& file : plan.files) {
    Fact fact("file");
    fact.Add("name", file.name).Add("bytes", file.size).Add("blocks", file.blocks);
    reporter.Say(fact, fmt::format("  {:>9}  {}", FormatBytes(file.size), Escape(file.name)));
  }
  for (const std::string& name : plan.emptyDirectories) {
    reporter.Say(Fact("folder").Add("name", name), fmt::format("  {:>9}  {}/", "folder", Escape(name)));
  }
  for (const ManifestLink& link : plan.links) {
    reporter.Say(Fact("link").Add("name", link.name).Add("leads_to", link.leadsTo),
                 fmt::format("  {:>9}  {} -> {}", "link", Escape(link.name), Escape(link.leadsTo)));
  }
}

}  // namespace quorl::cli
