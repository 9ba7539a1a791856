#include "sender/symbol_offers.h"

namespace quorl {

namespace {

bool IsReached(const KnownPeer& peer) {
  return peer.longestOffer >= CODED_DATAGRAM;
}

}  // namespace

bool AwaitsAcceptances(SenderContext& context) {
  if ((context.correspondence.OurOffer().capabilities & KNOWS_SYMBOLS) == 0) return false;
  bool awaitsAny = false;
  for (int32_t row = 0; row < context.table.Count(); ++row) {
    const KnownPeer& peer = context.table[row].peer;
    const bool knowsNone = peer.instance != 0 && (peer.capabilities & KNOWS_SYMBOLS) == 0;
    if (knowsNone || (!IsReached(peer) && peer.furtherOffers >= FURTHER_OFFERS)) return false;
    awaitsAny = awaitsAny || !IsReached(peer);
  }
  return awaitsAny;
}

bool OfferSymbolsAgain(SenderContext& context, const SendWait& wait) {
  {
    const std::scoped_lock lock(context.mutex);
    if (!AwaitsAcceptances(context)) return false;
    for (int32_t row = 0; row < context.table.Count(); ++row) {
      KnownPeer& peer = context.table[row].peer;
      if (!IsReached(peer)) ++peer.furtherOffers;
    }
  }
  context.sockets.SendToGroup(BuildPaddedOffer(context.correspondence.OurOffer()), wait);
  return true;
}

}  // namespace quorl
