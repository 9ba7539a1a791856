#pragma once

#include <string>

#include "cli/options/table.h"

namespace quorl::cli {

/// What "quorl --help" shows, and "quorl <command> --help"; `command`: nullptr for the first.
std::string HelpText(const CommandRow* command);

/// What "quorl --version" shows.
std::string VersionText();

/// The table as one JSON object, for the generators of manual pages and completion.
std::string OptionTableAsJson();

}  // namespace quorl::cli
