#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/options/options.h"
#include "cli/transfer/exclusion.h"

namespace quorl::cli {

/// A drive letter and the local directory that stands behind it.
struct DriveMapping {
  char letter = 'D';
  std::string directory;
};

/// Something beneath the selection that does not travel, or not as it is.
struct Remark {
  std::string path;
  std::string why;
};

struct PlannedFile {
  std::string name;  ///< As it travels, "tree/sub/a.txt".
  uint64_t size = 0;
  uint64_t blocks = 0;  ///< That it travels in.
  size_t drive = 0;     ///< Which of the selection's drives it lies beneath.
};

/// What `quorl send` sends: local paths as the drive paths that the library takes, and what is in them.
struct SendPlan {
  std::vector<DriveMapping> drives;
  std::vector<std::string> paths;  ///< "D:\name", in the order given.
  std::vector<PlannedFile> files;
  std::vector<std::string> emptyDirectories;  ///< Those without files, as they travel.
  std::vector<ManifestLink> links;            ///< That travel as links.
  uint64_t directories = 0;
  uint64_t bytes = 0;
  uint64_t blocks = 0;
  std::vector<Remark> leftOut;
  uint64_t lost = 0;  ///< Files among those left out: who chose them misses something.
  std::vector<Remark> excluded;
  std::vector<Remark> renamed;
  std::vector<Remark> unfit;                   ///< Stand in the way: while there are any, nothing can be sent.
  uint64_t unreadable = 0;                     ///< Of the unfit: could be skipped.
  std::shared_ptr<const Exclusion> exclusion;  ///< In force for the library.

  std::string PathOf(const PlannedFile& file) const { return drives[file.drive].directory + "/" + file.name; }
};

/// How a selection is looked through.
struct PlanRules {
  bool subdirectories = true;
  std::vector<std::string> exclude;  ///< Patterns.
  bool skipUnreadable = false;
  Links links = Links::Follow;
  bool devices = false;  ///< Disks that are named travel with their contents.
};

/// Gives every directory that holds one of `paths` a drive letter of its own, so that all of them have parents of equal
/// length and each arrives under its own name wherever it came from; then has the library look through them
/// (SurveySelection, under the profile in force). What is missing, cannot be read or would fail at its turn is listed
/// as unfit, all of it; throws a Failure for paths that cannot be sent together.
SendPlan PlanSending(const std::vector<std::string>& paths, const PlanRules& rules);

}  // namespace quorl::cli
