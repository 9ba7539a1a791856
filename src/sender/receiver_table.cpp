#include "sender/receiver_table.h"

#include <quorl/quorl.h>

#include <algorithm>
#include <cassert>

namespace quorl {

bool ReceiverTable::AddClient(Endpoint source) {
  if (FindClient(source.address) != count) return true;
  if (static_cast<size_t>(count) == rows.size()) return false;
  (*this)[count++] = ClientEntry{.addr = source};
  return true;
}

void ReceiverTable::TakeAnswer(uint32_t address, uint32_t missing, uint32_t totalBlocks, uint32_t neverTooMuch) {
  ClientEntry* row = Find(address);
  if (!row) return;
  row->missing = missing;
  if (missing == 0) {
    row->noTurn = true;
    row->complete = true;
  } else if (missing > neverTooMuch && totalBlocks != 0 && uint64_t{missing} * 10 > uint64_t{totalBlocks} * 3) {
    row->noTurn = true;
    row->status = QUORL_STATUS_TOO_MUCH_MISSING;
  }
}

void ReceiverTable::Forget() {
  for (ClientEntry& row : rows) row = ClientEntry{.addr = row.addr, .peer = row.peer};
}

void ReceiverTable::ForgetAnswers() {
  for (ClientEntry& row : rows) {
    row.complete = false;
    row.missing.reset();
  }
}

int32_t ReceiverTable::FindClient(uint32_t address) const {
  const auto used = rows.begin() + count;
  const auto found = std::find_if(rows.begin(), used, [&](const auto& row) { return row.addr.address == address; });
  return static_cast<int32_t>(found - rows.begin());
}

ClientEntry* ReceiverTable::Find(uint32_t address) {
  const int32_t index = FindClient(address);
  return index == count ? nullptr : &(*this)[index];
}

ClientEntry& ReceiverTable::operator[](int32_t index) {
  assert(index >= 0 && static_cast<size_t>(index) < rows.size());
  return rows[static_cast<size_t>(index)];
}

const ClientEntry& ReceiverTable::operator[](int32_t index) const {
  return const_cast<ReceiverTable&>(*this)[index];
}

bool ReceiverTable::AllAnswered() const {
  return std::all_of(rows.begin(), rows.begin() + count, [](const auto& row) { return row.HasAnswered(); });
}

}  // namespace quorl
