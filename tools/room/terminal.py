"""A terminal that a command runs in: the screen that its output makes, and keys."""
import codecs
import fcntl
import os
import pty
import re
import select
import struct
import sys
import termios
import time

# Where Debian puts its packages for Python, which a Python of one's own does not look into.
sys.path.append("/usr/lib/python3/dist-packages")
import pyte  # noqa: E402

from room import QUORL  # noqa: E402

ROWS = 200


class Terminal:
    def __init__(self, *arguments, columns=100, environment=(), prefix=()):
        self.picture = pyte.Screen(columns, ROWS)
        self.stream = pyte.Stream(self.picture)
        self.raw = ""
        # A character may come in two pieces.
        self.decoder = codecs.getincrementaldecoder("utf-8")("backslashreplace")
        self.pid, self.controller = pty.fork()
        if self.pid == 0:
            os.environ.update({"TERM": "xterm", "NO_COLOR": "", "LC_ALL": "C.UTF-8"}, **dict(environment))
            # The size must be there before the command asks for it.
            fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("4H", ROWS, columns, 0, 0))
            command = [*map(str, prefix), str(QUORL), *map(str, arguments)]
            os.execvp(command[0], command)

    def screen(self):
        return "\n".join(line.rstrip() for line in self.picture.display).rstrip()

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
        """Takes what comes within a moment; False at the end."""
        if not select.select([self.controller], [], [], 0.1)[0]:
            return True
        try:
            data = os.read(self.controller, 1 << 16)
        except OSError:
            return False
        text = self.decoder.decode(data)
        self.raw += text
        self.stream.feed(text)
        return bool(data)
