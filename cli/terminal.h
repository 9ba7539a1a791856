#pragma once

#include <termios.h>

namespace quorl::cli {

/// While it lives, standard input gives each key as it is pressed and does not show it. Ctrl-C keeps its meaning. What
/// was typed before is forgotten: it cannot have been an answer.
class KeyMode {
 public:
  KeyMode();
  ~KeyMode();
  KeyMode(const KeyMode&) = delete;
  KeyMode& operator=(const KeyMode&) = delete;

  static void Forget();

 private:
  termios before{};
  bool changed = false;
};

/// Whether somebody can be asked: standard input and standard error are terminals, and this process has the keyboard.
bool CanAsk();

}  // namespace quorl::cli
