#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/room/venue.h"
#include "cli/system/network.h"

namespace quorl::cli {

/// How bad it is.
enum class Severity {
  Fine,
  Hint,   ///< Transfers work; they may be slow, or this may be why the other side hears nothing.
  Fault,  ///< Transfers cannot work.
};

/// One thing that was looked at.
struct Finding {
  Severity severity = Severity::Fine;
  std::string subject;  ///< "interface", "buffers" ...
  std::string text;
  std::vector<std::string> next;  ///< What to do; commands stand in lines of their own.
};

// What is read off the machine, judged. Nothing here asks the system.

Finding JudgeDevice(const Device& device, uint32_t address);
Finding JudgeMtu(const Device& device);

/// `listening`: interfaces through which receivers of this machine listen to the group.
Finding JudgeListeners(const std::vector<std::string>& listening, const InterfaceChoice& choice);

/// `routed`: where the routing table sends the group, 0: nowhere; `others`: interfaces that could be used instead.
Finding JudgeRoute(const InterfaceChoice& choice, uint32_t group, uint32_t routed);

/// `limit`: net.core.rmem_max, the most that a program without privileges gets.
Finding JudgeBuffers(std::optional<uint64_t> limit, bool privileged);

/// `overflows`: datagrams that the system has thrown away since its start because buffers were full.
Finding JudgeOverflows(std::optional<uint64_t> overflows);

/// Whether lost frames fill the memory for fragments, where blocks travel in such.
Finding JudgeReassembly(const Device& device, const std::optional<Reassembly>& reassembly);

/// `rules`: what "nft list ruleset" says; nothing: it may not be read, or is not there.
Finding JudgeFirewall(const std::optional<std::string>& rules, uint32_t port);

/// `size`: of the datagram.
Finding JudgeEcho(const Echo& echo, uint32_t port, size_t size);

}  // namespace quorl::cli
