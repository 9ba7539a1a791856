#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/system/files.h"
#include "cli/transfer/send_plan.h"

namespace quorl::cli {

/// Whether the files that are sent stay as they are meanwhile.
class SourceWatch {
 public:
  explicit SourceWatch(const SendPlan& plan) : plan(plan) {}

  /// They are to be as they are now.
  void Begin();

  /// As it was then; nothing when it could not be read.
  const std::optional<FileStamp>& StampOf(size_t file) const { return stamps[file]; }

  /// What has become of those that are not, by the names that they travel under.
  std::vector<Remark> Changes() const;
  /// The same of one, by its place in the plan; empty: it is as it was.
  std::string ChangeOf(size_t file) const;

 private:
  const SendPlan& plan;
  std::vector<std::optional<FileStamp>> stamps;
};

}  // namespace quorl::cli
