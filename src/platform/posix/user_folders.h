#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// The account that runs the process.
struct Account {
  std::string name;
  std::string home;
};
std::optional<Account> CurrentAccount();

/// Whether this system has something like the special folder with this identifier.
bool IsKnownFolder(uint32_t folder);

/// The local path of a known special folder, which need not exist; nothing when the account has no home directory.
std::optional<std::string> UserFolder(uint32_t folder);

}  // namespace quorl
