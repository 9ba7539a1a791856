#pragma once

#include <string>
#include <string_view>

namespace quorl::cli {

/// `text` as it may be shown on a terminal: names come from disks and networks and may hold anything. Control
/// characters, marks that reverse or hide text and bytes that are no UTF-8 come out as \xNN, byte by byte, a backslash
/// as itself.
std::string Escape(std::string_view text);

}  // namespace quorl::cli
