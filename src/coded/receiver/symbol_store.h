// What a receiver holds of a coded transfer, and what it lacks. Decisions only: no thread, socket, disk, clock or lock.
//
// Symbols are gathered group by group, in any order, until a group has as many as it has source symbols; then it is
// whole, waits until its owner has taken it over, and is forgotten. The catalogue comes first: without it nobody can
// tell what the contents' groups are, and their symbols are dropped; they come again when they are asked for.
//
// What anybody who speaks as the sender can take here: MOST_GROUPS groups of memory, the catalogue's beside them.
#pragma once

#include <bitset>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "coded/catalogue.h"
#include "coded/group_layout.h"
#include "platform/slab.h"
#include "protocol/datagrams.h"

namespace quorl {

class SymbolStore {
 public:
  /// Groups of the contents that are gathered at a time; a sender has fewer on the way.
  static constexpr size_t MOST_GROUPS = 160;

  /// Whether a transfer as the poll announces it can be gathered at all.
  static bool Takes(const Poll& poll);

  explicit SymbolStore(const Poll& poll);

  uint32_t Transfer() const { return transfer; }

  /// False when it is of no use: of a group that is whole or unknown, the same once more, or malformed.
  bool Take(const SymbolDatagram& symbol);

  /// The whole catalogue, once.
  std::optional<std::vector<uint8_t>> TakeCatalogue();
  /// What the catalogue says. Now the contents can come.
  void SetContents(std::vector<FileShape> shapes);
  const GroupLayout& Contents() const { return contents; }

  /// Blocks of the groups that are whole.
  struct Run {
    BlockRun blocks;
    Slab slab;  ///< The whole group.
  };
  /// One after the other. Who asks behind the last run of a group has taken that over.
  std::optional<Run> NextRun();
  /// This group of the contents, counted from their first, is not needed.
  void SetTaken(uint32_t group);

  Lacks Answer(const Poll& poll) const;

 private:
  struct Gathered {
    size_t symbols = 0;  ///< That it has as source.
    size_t count = 0;    ///< That have come.
    std::bitset<MOST_SOURCE_SYMBOLS + MOST_REPAIR_SYMBOLS> has;
    Slab bytes;
    std::vector<std::vector<uint8_t>> repair;  ///< Each with its index in front.

    bool IsWhole() const { return count == symbols; }
    std::span<uint8_t> Bytes() const { return {bytes.get(), symbols * SYMBOL_SIZE}; }
  };

  size_t SymbolsIn(uint32_t group) const;
  Gathered* Open(uint32_t group);
  static void Recover(Gathered& gathered);
  bool IsTaken(uint32_t group) const;

  const uint32_t transfer;
  const uint32_t catalogueLength;
  const uint32_t catalogueGroups;
  uint32_t arrived = 0;  ///< Symbols, whatever became of them.
  bool hasContents = false;
  GroupLayout contents;
  SlabPool slabs{GROUP_SIZE};
  std::vector<bool> taken;              ///< Of the contents.
  std::map<uint32_t, Gathered> groups;  ///< By their numbers on the wire.
  std::deque<uint32_t> whole;           ///< Of the contents, in the order in which they became so.
  std::optional<GroupRuns> handing;     ///< What is to be handed over of the first of those; nothing: all of it.
};

}  // namespace quorl
