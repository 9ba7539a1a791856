#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace quorl::cli {

/// The names of other machines, asked for in the background: a name server that does not answer holds nothing up, the
/// end of the program included.
class HostNames {
 public:
  HostNames();
  ~HostNames();
  HostNames(const HostNames&) = delete;
  HostNames& operator=(const HostNames&) = delete;

  /// Asks for the names of those not asked for yet, and waits for them, no longer than `patience`.
  void Ask(std::span<const uint32_t> addresses, std::chrono::milliseconds patience);

  /// The name, up to its first dot, escaped; empty when it is not known (yet).
  std::string Short(uint32_t address) const;

  /// "192.168.1.31 lab-01", or the address alone.
  std::string Label(uint32_t address) const;

 private:
  struct Work;
  static void Run(const std::shared_ptr<Work>& work);

  std::shared_ptr<Work> work;
};

}  // namespace quorl::cli
