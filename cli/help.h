#pragma once

#include <string>

#include "cli/option_table.h"

namespace quorl::cli {

/// What "quorl --help" shows, and "quorl <command> --help"; `command`: nullptr for the first.
std::string HelpText(const CommandRow* command);

/// What "quorl --version" shows.
std::string VersionText();

}  // namespace quorl::cli
