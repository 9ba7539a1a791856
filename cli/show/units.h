#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorl::cli {

/// A rate that no machine reaches, kbit/s.
inline constexpr uint32_t FULL_SPEED = UINT32_MAX;

/// "200M", "1.5G", "64k" or plain bits a second as kbit/s, at least 1; "compatible", the fixed pacing, as 0; "max".
/// Nothing when it is no rate.
std::optional<uint32_t> ParseRate(std::string_view text);

std::string FormatBytes(uint64_t bytes);                        ///< "1.84 GB", in decimal units.
std::string FormatRate(double bytesPerSecond);                  ///< "25.0 MB/s".
std::string FormatLinkRate(uint32_t kilobitsPerSecond);         ///< "200 Mbit/s".
std::string FormatDuration(std::chrono::nanoseconds duration);  ///< "4.1 s", "1 min 22 s", "2 h 3 min".
std::string FormatLeft(std::chrono::seconds duration);          ///< "31 s left", "1 min 5 s left".
std::string FormatPart(uint64_t part, uint64_t whole);          ///< "0.81 of 1.84 GB", both in the unit of the whole.
std::string FormatAddress(uint32_t address);                    ///< Dotted, from network byte order.

/// An IPv4 address as FormatAddress writes it, and in no other way.
std::optional<uint32_t> ParseAddress(std::string_view text);

/// Whether one address comes before another as people count them, its first part first.
bool IsBefore(uint32_t address, uint32_t other);

/// Settings for sysctl(8) that give Linux room and haste enough for the fragments of blocks of which one got lost.
inline constexpr std::string_view REASSEMBLY_CURE = "net.ipv4.ipfrag_high_thresh=67108864 net.ipv4.ipfrag_time=2";

/// "1 file", "1 203 files".
std::string Count(uint64_t number, std::string_view noun);

}  // namespace quorl::cli
