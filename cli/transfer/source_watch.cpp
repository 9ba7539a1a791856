#include "cli/transfer/source_watch.h"

namespace quorl::cli {

void SourceWatch::Begin() {
  stamps.clear();
  stamps.reserve(plan.files.size());
  for (const PlannedFile& file : plan.files) {
    const OpenedFile opened = OpenedFile::Open(plan.PathOf(file));
    stamps.push_back(opened ? opened.Stamp() : std::nullopt);
  }
}

std::string SourceWatch::ChangeOf(size_t file) const {
  const OpenedFile opened = OpenedFile::Open(plan.PathOf(plan.files[file]));
  const auto now = opened ? opened.Stamp() : std::nullopt;
  const auto& then = stamps[file];
  if (!now) return "could not be read while it was sent: " + opened.Why().text;
  if (!then) return "";
  if (now->size < then->size) return "became shorter while it was sent";
  if (now->size > then->size) return "grew while it was sent";
  return now->written == then->written ? "" : "changed while it was sent";
}

std::vector<Remark> SourceWatch::Changes() const {
  std::vector<Remark> changes;
  for (size_t i = 0; i < stamps.size(); ++i) {
    if (std::string why = ChangeOf(i); !why.empty()) changes.push_back({plan.files[i].name, std::move(why)});
  }
  return changes;
}

}  // namespace quorl::cli
