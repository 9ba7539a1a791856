#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/staging/tree.h"

namespace quorl::cli {

/// The digests of files as they arrive: of what is written into them, in the order of their bytes. What is written
/// behind a gap is read again as soon as the gap is filled. So next to nothing has to be read once the last block is
/// there.
class ArrivingDigests {
 public:
  /// `catalogue`: what is to arrive, in the order of the transfer; `directory`: the path of where it goes.
  ArrivingDigests(const Manifest& catalogue, std::string directory);

  /// Whole blocks have been written, from `offset` on, into the file that has this number in the transfer, from 1 on,
  /// and this name, with "/" between its components.
  void Take(uint32_t number, const std::string& name, uint64_t offset, std::span<const uint8_t> bytes);

  /// Nothing is written any more, and this is what is there. What was written under a name that is not there has gone
  /// into some other file: on some systems two names lead to one. Then no digest is known.
  void Finish(const StagedTree& tree);

  /// Of a file as it was written, by the name that it travels under; nothing: it has to be read.
  std::optional<Digest> Find(std::string_view name) const;
  DigestKind Kind() const { return catalogue.kind; }

 private:
  enum class State : uint8_t { Untouched, Arriving, Known, Unknown };
  struct File {
    RunningDigest digest;
    uint64_t end = 0;                       ///< Of the bytes that it is of.
    std::map<uint64_t, uint64_t> behind{};  ///< Begin and end of what has been written behind that.
  };

  void Take(size_t index, uint64_t offset, std::span<const uint8_t> bytes);
  bool NoteBehind(File& file, uint64_t begin, uint64_t end);
  bool CatchUp(const std::string& name, File& file);
  bool Read(const std::string& name, File& file, uint64_t end) const;

  const Manifest& catalogue;
  const std::string directory;
  std::vector<State> states;
  std::vector<Digest> digests;
  std::map<size_t, File> arriving;
  size_t stretches = 0;          ///< Behind gaps, of all files.
  bool isStrange = false;        ///< Something has come that the catalogue has not.
  std::vector<uint32_t> byName;  ///< Files in the order of their names, once all is there.
};

}  // namespace quorl::cli
