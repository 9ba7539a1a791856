#include "cli/terminal.h"

#include <unistd.h>

namespace quorl::cli {

KeyMode::KeyMode() {
  if (tcgetattr(STDIN_FILENO, &before) != 0) return;
  termios keys = before;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  changed = tcsetattr(STDIN_FILENO, TCSAFLUSH, &keys) == 0;
}

KeyMode::~KeyMode() {
  if (changed) tcsetattr(STDIN_FILENO, TCSADRAIN, &before);
}

void KeyMode::Forget() {
  tcflush(STDIN_FILENO, TCIFLUSH);
}

bool CanAsk() {
  // A job in the background would be stopped by the terminal for reading from it.
  return isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

}  // namespace quorl::cli
