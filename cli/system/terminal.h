#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

#include "cli/system/error.h"

namespace quorl::cli {

bool OutputIsTerminal();
bool ErrorIsTerminal();

/// Columns of the terminal on standard error; 0: there is none, or nobody knows.
size_t TerminalColumns();

/// Whether the locale says that texts are UTF-8.
bool LocaleIsUnicode();

/// Whether somebody can be asked: standard input and standard error are terminals, and this process has the keyboard.
bool CanAsk();

/// Whether the terminal says of itself that it takes no control sequences.
bool TerminalIsDumb();

/// First of all: writing to an output that nobody reads any more becomes an error instead of the end of the process,
/// and a terminal gets UTF-8.
void PrepareStreams();

/// Writes a text out at once; why it could not be.
SystemError WriteOut(std::FILE* stream, std::string_view text);

/// While it lives, the terminal does not show typed keys. Ctrl-C keeps its meaning. One may be made while another
/// lives, and goes before it. With the first signal that Waiter gives out the terminal is as it was before all of them.
class KeyMode {
 public:
  enum class Input {
    Each,   ///< Standard input gives each key as it is pressed. What was typed before is forgotten: it cannot have been
            ///< an answer.
    Lines,  ///< It gives lines as ever, and is left alone where this process has not got the keyboard.
  };
  explicit KeyMode(Input input);
  ~KeyMode();
  KeyMode(const KeyMode&) = delete;
  KeyMode& operator=(const KeyMode&) = delete;

  static void Forget();

 private:
  struct State;
  std::unique_ptr<State> before;  ///< Null when nothing had to be changed.
};

}  // namespace quorl::cli
