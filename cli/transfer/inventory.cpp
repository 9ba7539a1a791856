// What is already there is not sent: how a receiver finds out.
#include "cli/transfer/inventory.h"

#include <algorithm>
#include <string_view>

#include "cli/show/views.h"
#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

class Taking {
 public:
  Taking(const Manifest& catalogue, const Staging& staging, const InventoryRules& rules)
      : catalogue(catalogue),
        target(staging.Target()),
        kept(staging.KeptDirectory()),
        record(staging.KeptFiles()),
        rules(rules) {}

  Inventory Run() {
    for (size_t i = 0; i < catalogue.files.size() && !ended; ++i)
      Look(static_cast<uint32_t>(i + 1), catalogue.files[i]);
    inventory.isWhole = !ended;
    return std::move(inventory);
  }

 private:
  enum class Alike { No, Unknown, Yes };

  void Look(uint32_t file, const ManifestEntry& entry) {
    const std::string name = StoredName(entry.name);
    if (IsReservedName(name)) return;
    Digest found{};
    const Alike alike = rules.onlyKept ? Alike::No : Compare(target.Read(name), entry, rules.quick, found);
    if (alike == Alike::Unknown) return Say(Have::Kind::Asks, file, 0, 1);
    if (alike == Alike::Yes) {
      inventory.inPlace.emplace(entry.name, found);
      return SayWhole(file, entry);
    }
    const auto known = record.files.find(entry.name);
    if (known == record.files.end()) return;
    const Kept::File& left = known->second;
    if (left.size != entry.size || left.written != entry.written) return;
    if (entry.digest == Digest{}) return Say(Have::Kind::Asks, file, 0, 1);
    if (left.IsWhole()) {
      if (Compare(kept.Read(name), entry, false, found) != Alike::Yes) return;
      SayWhole(file, entry);
    } else {
      for (const auto& [first, count] : left.blocks) {
        Say(Have::Kind::Blocks, file, first, count);
        inventory.held.push_back({sizeof(QuorlBlocks), file, first, count, entry.size});
      }
    }
    inventory.used.insert(name);
  }

  /// `found`: its digest, as far as that was looked for.
  Alike Compare(OpenedFile file, const ManifestEntry& entry, bool quick, Digest& found) {
    const auto stamp = file ? file.Stamp() : std::nullopt;
    if (!stamp || stamp->size != entry.size) return Alike::No;
    if (quick) return stamp->written == entry.written ? Alike::Yes : Alike::No;
    if (entry.digest == Digest{}) return Alike::Unknown;
    const auto read = DigestOfFile(file, catalogue.kind, [this](uint64_t bytes) {
      ended = rules.progress && !rules.progress(bytes);
      return !ended;
    });
    if (!read || !IsSame(read->digest, entry.digest)) return Alike::No;
    found = read->digest;
    return Alike::Yes;
  }

  void SayWhole(uint32_t file, const ManifestEntry& entry) {
    Say(Have::Kind::Whole, file, 0, 1);
    inventory.held.push_back(
        {sizeof(QuorlBlocks), file, 0, static_cast<uint32_t>(entry.size / BLOCK_SIZE + 1), entry.size});
  }

  /// Neighbours become one run.
  void Say(Have::Kind kind, uint32_t file, uint32_t first, uint32_t count) {
    auto& runs = inventory.runs;
    const bool isNext = !runs.empty() && kind != Have::Kind::Blocks && runs.back().kind == kind &&
                        runs.back().file + runs.back().count == file;
    if (isNext) {
      ++runs.back().count;
    } else {
      runs.push_back({kind, file, first, count});
    }
  }

  const Manifest& catalogue;
  const Directory& target;
  const Directory kept;
  const Kept& record;
  const InventoryRules& rules;
  Inventory inventory;
  bool ended = false;
};

}  // namespace

Inventory TakeInventory(const Manifest& catalogue, const Staging& staging, const InventoryRules& rules) {
  return Taking(catalogue, staging, rules).Run();
}

}  // namespace quorl::cli
