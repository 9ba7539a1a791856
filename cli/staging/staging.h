#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "cli/staging/kept.h"
#include "cli/system/files.h"

namespace quorl::cli {

/// Whether a received name begins with a component that is ours: a staging directory or the manifest.
bool IsReservedName(std::string_view name);

/// The directory that files are delivered into, and in it one staging directory for each transfer, ".quorl-" and a
/// number of chance. A transfer is received into its staging directory and becomes visible when it is whole.
///
/// Whoever receives into a directory holds a shared lock on it. Who gets it alone knows that every staging directory in
/// it is left over from a run that was killed, and removes them.
class Staging {
 public:
  /// Throws a Failure when `directory` cannot be received into: 7, or 8 when it is on no local disk.
  explicit Staging(const std::string& directory);
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  const std::string& Path() const { return path; }  ///< Of the directory that files are delivered into.
  const Directory& Target() const { return target; }
  std::string NextPath() const { return path + "/" + next; }  ///< Of the staging directory of the next transfer.
  size_t Prepared() const { return prepared; }                ///< How often Prepare was called.
  size_t StaleRemoved() const { return staleRemoved; }

  /// What a broken transfer has left, and where; nothing of it while another receiver goes on from it.
  const Kept& KeptFiles() const { return kept; }
  Directory KeptDirectory() const;
  /// Keeps only `used` of it, and makes it the staging directory of the next transfer.
  void UseKept(const std::set<std::string>& used);
  /// Writes down how far the current staging directory is, for whoever comes after a kill.
  SystemError Record(RecordText soFar) const;
  /// The current staging directory becomes what is left of a broken transfer, in the place of what was.
  SystemError Keep(const Kept& left);

  /// Chooses the staging directory of the next transfer. It exists while `use` is called with its path, and then not
  /// again before something is received: a receiver that waits leaves no trace. Throws a Failure when it cannot be
  /// made, or when `use` says false.
  void Prepare(const std::function<bool(const std::string& path)>& use);

  /// The prepared staging directory is now the one that is being received into; an earlier one goes away.
  void Begin();

  /// The current staging directory.
  Directory Open() const;

  /// Whether something of that name lies directly in the current staging directory.
  bool Holds(const std::string& name) const;

  /// The contents of a file directly in it, unless it is not there or longer than `limit`.
  std::optional<std::string> ReadWhole(const std::string& name, uint64_t limit) const;

  /// Removes the current staging directory with all that is in it. False when something of it stays.
  bool Discard();

 private:
  void TakeLock();
  void RemoveStale();
  void FindKept();

  std::string path;
  Directory target;
  std::string next;
  std::string current;   ///< Empty: none.
  std::string keptName;  ///< Empty: none.
  Directory keptLock;
  Directory currentLock;  ///< None else takes it for one that somebody left.
  Kept kept;
  bool usesKept = false;  ///< For the next transfer.
  size_t prepared = 0;
  size_t staleRemoved = 0;
};

}  // namespace quorl::cli
