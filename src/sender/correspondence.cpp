#include "sender/correspondence.h"

namespace quorl {

namespace {

constexpr size_t MOST_LETTERS = 4096;

}  // namespace

Correspondence::Accepted Correspondence::TakeAccept(const Accept& accept, uint32_t address, ReceiverTable& table,
                                                    bool inTransfer) const {
  ClientEntry* row = table.Find(address);
  const bool isAnother = row && row->peer.instance != 0 && row->peer.instance != accept.instance;
  const bool takesPart = row && !isAnother && (accept.session == session || row->peer.instance != 0);
  if (inTransfer && !takesPart) return isAnother ? Accepted::Replaced : Accepted::TooLate;
  if (row && accept.session == session) {
    row->peer.capabilities = accept.capabilities;
    row->peer.longestOffer = accept.longest;
    row->peer.instance = accept.instance;
  }
  return Accepted::Known;
}

std::optional<Heard> Correspondence::TakeLetter(const Letter& letter, uint32_t address, ReceiverTable& table) {
  ClientEntry* row = table.Find(address);
  if (!IsOn() || !row || letter.session != session) return std::nullopt;
  KnownPeer& peer = row->peer;
  const bool isFirst = peer.writer != letter.instance;
  if (isFirst || letter.number > peer.lastLetter) {
    // Only the next one is ever on its way; what is missing in between was given up.
    if (letters.size() == MOST_LETTERS) return std::nullopt;
    letters.push_back({address, {letter.text.begin(), letter.text.end()}});
    peer.writer = letter.instance;
    peer.lastLetter = letter.number;
  }
  return Heard{.session = session,
               .instance = letter.instance,
               .number = letter.number,
               .knowsEnd = row->complete || row->reportedFailure ? uint8_t{1} : uint8_t{0}};
}

std::optional<Correspondence::Received> Correspondence::Take() {
  if (letters.empty()) return std::nullopt;
  Received letter = std::move(letters.front());
  letters.pop_front();
  return letter;
}

}  // namespace quorl
