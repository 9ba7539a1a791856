// All datagrams in one list: code, name, who says it to whom, the layout of its fields, and what follows them. What is
// said of every datagram is made of it: lines for logs, the tables of docs/protocol.md and what Wireshark is told
// (tools/layouts.cpp).
#pragma once

#include <string_view>
#include <tuple>

#include "protocol/datagrams.h"

namespace quorl {

/// What follows the fields of a datagram.
enum class Rest {
  Nothing,
  Block,      ///< The block's bytes.
  Names,      ///< As many names as `count` says.
  Extension,  ///< As many bytes as `extension` says.
  Text,       ///< The same, and behind it what a host says.
  Symbol,     ///< The symbol's bytes.
  Lacks,      ///< An extension, and behind it a GroupLack for each group.
};

template <typename Fields>
struct ListedDatagram {
  Command code;
  std::string_view name;
  std::string_view way;
  std::string_view says;
  Rest rest = Rest::Nothing;
};

inline constexpr std::string_view TO_ALL = "sender, all";
inline constexpr std::string_view TO_ONE = "sender, one";
inline constexpr std::string_view TO_SENDER = "receiver, its sender";

inline constexpr std::tuple DATAGRAMS{
    ListedDatagram<Collect>{CMD_COLLECT, "CMD_COLLECT", TO_ALL, "who listens?"},
    ListedDatagram<Client>{CMD_CLIENT, "CMD_CLIENT", TO_SENDER, "I do"},
    ListedDatagram<Master>{CMD_MASTER, "CMD_MASTER", TO_ONE, "you are master; or: all is sent"},
    ListedDatagram<Release>{CMD_RELEASE, "CMD_RELEASE", TO_ONE, "you are not master any more"},
    ListedDatagram<Ack>{CMD_ACK, "CMD_ACK", TO_SENDER, "the block that I, the master, want next"},
    ListedDatagram<Task>{CMD_TASK, "CMD_TASK", TO_ALL, "what is coming, and where to"},
    ListedDatagram<BlockHead>{CMD_RESEND, "CMD_RESEND", TO_ALL, "a block again", Rest::Block},
    ListedDatagram<Finish>{CMD_FINISH, "CMD_FINISH", "sender, all; receiver, its sender",
                           "the stream is over; I am done, or why not"},
    ListedDatagram<Stop>{CMD_STOP, "CMD_STOP", TO_ALL, "stopped early"},
    ListedDatagram<EmptyDirHead>{CMD_EMPTYDIR, "CMD_EMPTYDIR", TO_ALL, "directories that no file creates", Rest::Names},
    ListedDatagram<BlockHead>{CMD_DATA, "CMD_DATA", TO_ALL, "a block of the stream", Rest::Block},
    ListedDatagram<Answer>{CMD_ANSWER, "CMD_ANSWER", TO_SENDER, "how many blocks are missing"},
    ListedDatagram<ServerOs>{CMD_SERVEROS, "CMD_SERVEROS", TO_ALL, "my platform"},
    ListedDatagram<Report>{CMD_REPORT, "CMD_REPORT", "sender, the report group", "still alive"},
    ListedDatagram<AutoOpenName>{CMD_AOFNAME, "CMD_AOFNAME", TO_ALL, "the file to open at the end"},
    ListedDatagram<Offer>{CMD_OFFER, "CMD_OFFER", TO_ALL, "what I am able to beyond all that", Rest::Extension},
    ListedDatagram<Accept>{CMD_ACCEPT, "CMD_ACCEPT", TO_SENDER, "what I am able to", Rest::Extension},
    ListedDatagram<UnderWay>{CMD_UNDERWAY, "CMD_UNDERWAY", TO_ONE, "a transfer that you came too late for",
                             Rest::Extension},
    ListedDatagram<Word>{CMD_WORD, "CMD_WORD", TO_ALL, "what my host says to yours", Rest::Text},
    ListedDatagram<Letter>{CMD_LETTER, "CMD_LETTER", TO_SENDER, "what my host says to yours", Rest::Text},
    ListedDatagram<Heard>{CMD_HEARD, "CMD_HEARD", TO_ONE, "your letter has come", Rest::Extension},
    ListedDatagram<Poll>{CMD_POLL, "CMD_POLL", TO_ALL, "a transfer in symbols, how far it is, and who lacks what?",
                         Rest::Extension},
    ListedDatagram<SymbolHead>{CMD_SYMBOL, "CMD_SYMBOL", TO_ALL, "a symbol", Rest::Symbol},
    ListedDatagram<LacksHead>{CMD_LACKS, "CMD_LACKS", TO_SENDER, "what I lack", Rest::Lacks},
};

/// Calls `visit` with each, in the order of their codes.
template <typename Visit>
constexpr void ForEachDatagram(Visit&& visit) {
  std::apply([&](const auto&... datagrams) { (visit(datagrams), ...); }, DATAGRAMS);
}

// Each has its place, so that a code that comes in is looked up without a search, and none is forgotten.
static_assert(std::tuple_size_v<decltype(DATAGRAMS)> == CMD_LACKS);
static_assert([] {
  bool inOrder = true;
  int code = 0;
  ForEachDatagram([&](const auto& datagram) { inOrder = inOrder && datagram.code == ++code; });
  return inOrder;
}());

}  // namespace quorl
