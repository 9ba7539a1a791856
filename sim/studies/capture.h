#pragma once

#include <string>

namespace quorl::sim {

/// Writes a capture of small transfers in which every kind of datagram occurs, in blocks and in symbols, and what was
/// said in it as lines of text, one a datagram, into a file beside it that is called like it with ".log" behind. False
/// when a file cannot be written.
bool WriteCapture(const std::string& path);

}  // namespace quorl::sim
