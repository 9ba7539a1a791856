"""A terminal that a command runs in: a screen that its output is drawn on, and keys."""
import codecs
import fcntl
import os
import pty
import re
import select
import struct
import termios
import time

from room import QUORL


class Terminal:
    def __init__(self, *arguments, columns=100, environment=(), prefix=()):
        self.columns, self.lines, self.row, self.column = columns, [""], 0, 0
        self.rest = self.raw = ""
        # A character may come in two pieces.
        self.decoder = codecs.getincrementaldecoder("utf-8")("backslashreplace")
        self.pid, self.controller = pty.fork()
        if self.pid == 0:
            os.environ.update({"TERM": "xterm", "NO_COLOR": ""}, **dict(environment))
            # The size must be there before the command asks for it.
            fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("4H", 50, columns, 0, 0))
            command = [*map(str, prefix), str(QUORL), *map(str, arguments)]
            os.execvp(command[0], command)

    def screen(self):
        return "\n".join(line.rstrip() for line in self.lines).rstrip()

    def press(self, keys):
        os.write(self.controller, keys.encode())

    def wait_for(self, pattern, limit=20):
        """Until the screen, as it is at one moment, matches; that screen."""
        deadline = time.monotonic() + limit
        while not re.search(pattern, self.screen(), re.MULTILINE):
            if not self.read() or time.monotonic() > deadline:
                raise AssertionError(f"the screen never showed {pattern!r}:\n{self.screen()}")
        return self.screen()

    def end(self, limit=30):
        """Its exit code; what it left on the screen stays there."""
        deadline = time.monotonic() + limit
        while self.read():
            if time.monotonic() > deadline:
                os.kill(self.pid, 9)
                raise AssertionError(f"did not end within {limit} s:\n{self.screen()}")
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def read(self):
        """Draws what comes within a moment; False at the end."""
        if not select.select([self.controller], [], [], 0.1)[0]:
            return True
        try:
            data = os.read(self.controller, 1 << 16)
        except OSError:
            return False
        text = self.decoder.decode(data)
        self.raw += text
        self.rest += text
        while match := re.match("\x1b\\[([0-9;]*)([A-Za-z])|[^\x1b]", self.rest, re.DOTALL):
            self.rest = self.rest[match.end():]
            self.draw(match.group(0), match.group(1), match.group(2))
        return bool(data)

    def draw(self, text, number=None, what=None):
        line = self.lines[self.row]
        if text == "\r":
            self.column = 0
        elif text == "\n":
            self.row += 1
            self.lines += [""] * (self.row + 1 - len(self.lines))
        elif what == "A":
            self.row -= int(number or 1)
        elif what in ("J", "K"):
            self.lines[self.row] = line[:self.column]
            del self.lines[self.row + 1 if what == "J" else len(self.lines):]
        elif what is None:
            if self.column == self.columns:
                self.draw("\n")
                self.column, line = 0, self.lines[self.row]
            self.lines[self.row] = line[:self.column].ljust(self.column) + text + line[self.column + 1:]
            self.column += 1
