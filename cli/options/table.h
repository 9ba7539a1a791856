#pragma once

#include <span>
#include <string>

#include "cli/options/options.h"

namespace quorl::cli {

/// What a value is, for completion.
enum class ValueKind { None, Text, File, Directory, Interface, Choice };

/// One option of one or more commands. Parser, help, manual pages and completion all come from these rows.
struct OptionRow {
  unsigned commands = 0;       ///< Verb values, or-ed.
  const char* name = "";       ///< "--rate".
  const char* shortName = "";  ///< "-r", or empty.
  const char* argument = "";   ///< What stands for the value; empty: a flag, whose value is how often it was given.
  ValueKind kind = ValueKind::None;
  const char* help = "";
  void (*set)(Options&, const std::string&) = nullptr;  ///< Throws WrongValue.
  bool repeats = false;                                 ///< May be given more than once.
};

struct CommandRow {
  Verb verb = Verb::None;
  const char* name = "";
  const char* arguments = "";  ///< What stands behind the options: "PATH..."; empty: nothing.
  const char* argumentsHelp = "";
  const char* summary = "";
};

/// Why a value cannot be taken, in words.
struct WrongValue {
  std::string why;
};

std::span<const OptionRow> OptionRows();
std::span<const CommandRow> CommandRows();

/// The environment variable that stands for an option when it is not given: "--wait-for" is QUORL_WAIT_FOR.
std::string EnvironmentName(const OptionRow& row);

}  // namespace quorl::cli
