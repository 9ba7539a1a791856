// Offers of symbols beyond those of the collection. One receiver that has not said that they reach it makes the whole
// room do without, and its word, or the offer, may only have been lost.
#pragma once

#include "sender/sender_context.h"

namespace quorl {

/// Whether somebody in the table may yet say so, and everybody else has. To be called with the context's mutex held.
bool AwaitsAcceptances(SenderContext& context);

/// Offers symbols once more if that is so. A receiver is waited for through so many of them; one that says nothing then
/// does not know symbols, or is out of their reach. False when nobody is waited for.
bool OfferSymbolsAgain(SenderContext& context, const SendWait& wait);

inline constexpr uint8_t FURTHER_OFFERS = 10;

}  // namespace quorl
