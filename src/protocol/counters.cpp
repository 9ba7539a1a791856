// The public names of the counters: the role, what is counted and, for what was dropped or refused, why. A host shows
// them as they stand.
#include "protocol/counters.h"

#include <iterator>

namespace quorl {

namespace {

struct PublicName {
  Count what;
  const char* ofSender;  ///< nullptr where the role has no such counter.
  const char* ofReceiver;
};

constexpr PublicName NAMES[] = {
    {Count::DatagramsIn, "sender.datagrams_in", "receiver.datagrams_in"},
    {Count::BytesIn, "sender.bytes_in", "receiver.bytes_in"},
    {Count::DatagramsOut, "sender.datagrams_out", "receiver.datagrams_out"},
    {Count::BytesOut, "sender.bytes_out", "receiver.bytes_out"},
    {Count::SocketOverflows, "sender.socket_overflows", "receiver.socket_overflows"},
    {Count::DroppedWrongMagic, "sender.dropped.magic", "receiver.dropped.magic"},
    {Count::DroppedUnknownCommand, "sender.dropped.command", "receiver.dropped.command"},
    {Count::DroppedNotForThisSide, "sender.dropped.other_side", "receiver.dropped.other_side"},
    {Count::DroppedTooShort, "sender.dropped.short", "receiver.dropped.short"},
    {Count::DroppedNotFirstSending, nullptr, "receiver.dropped.not_first_sending"},
    {Count::DroppedFileNumberZero, nullptr, "receiver.dropped.file_zero"},
    {Count::DroppedTailOutOfRange, nullptr, "receiver.dropped.tail"},
    {Count::DroppedBlockIncomplete, nullptr, "receiver.dropped.incomplete"},
    {Count::DroppedTextTooLong, "sender.dropped.text", "receiver.dropped.text"},
    {Count::DroppedStranger, "sender.dropped.stranger", "receiver.dropped.stranger"},
    {Count::DroppedUnannounced, nullptr, "receiver.dropped.unannounced"},
    {Count::DroppedMoreFilesThanBlocks, nullptr, "receiver.dropped.totals"},
    {Count::DroppedBlockBeyondLast, nullptr, "receiver.dropped.beyond_last"},
    {Count::DroppedBeyondFileCount, nullptr, "receiver.dropped.beyond_files"},
    {Count::DroppedBeyondTotal, nullptr, "receiver.dropped.beyond_total"},
    {Count::DroppedSecondShape, nullptr, "receiver.dropped.second_shape"},
    {Count::DroppedQueueFull, nullptr, "receiver.dropped.queue_full"},
    {Count::DroppedMessages, nullptr, "receiver.dropped.messages"},
    {Count::RefusedNames, nullptr, "receiver.refused_names"},
    {Count::RefusedDirectories, nullptr, "receiver.refused_directories"},
    {Count::RefusedGaps, nullptr, "receiver.refused_gaps"},
    {Count::RefusedMissing, nullptr, "receiver.refused_missing"},
    {Count::QueueHighWater, nullptr, "receiver.queue_high_water"},
    {Count::GapsHighWater, nullptr, "receiver.gaps_high_water"},
    {Count::MissingHighWater, nullptr, "receiver.missing_high_water"},
    {Count::RepairsAsked, "sender.repairs_asked", "receiver.repairs_asked"},
    {Count::RepairsServed, "sender.repairs_served", nullptr},
    {Count::DroppedTableFull, "sender.dropped.table_full", nullptr},
    {Count::DroppedOrderQueueFull, "sender.dropped.order_queue_full", nullptr},
    {Count::OrdersHighWater, "sender.orders_high_water", nullptr},
};
static_assert(std::size(NAMES) == static_cast<size_t>(Count::COUNT));
// One for each Reject, in its order.
static_assert(static_cast<size_t>(Count::DroppedTextTooLong) - static_cast<size_t>(Count::DroppedWrongMagic) ==
              static_cast<size_t>(Reject::TextTooLong));

}  // namespace

std::vector<NamedCount> Counters::List(Role role) const {
  std::vector<NamedCount> list;
  for (const PublicName& entry : NAMES) {
    const char* name = role == Role::Sender ? entry.ofSender : entry.ofReceiver;
    if (name != nullptr) list.push_back({name, (*this)[entry.what]});
  }
  return list;
}

}  // namespace quorl
