"""A shell in a pseudo terminal, and what it shows."""

import os
import pty
import re
import select
import signal
import struct
import termios
import time
from fcntl import ioctl

import pyte

_PATIENCE = 30  # seconds for anything the story waits for
_QUIET = 0.05  # a picture that is drawn in several writes is whole after this


class Terminal:
    """Bash with the prompt `$ `, in a folder, on a screen of its own."""

    def __init__(self, columns, lines, folder, environment):
        self.screen = pyte.Screen(columns, lines)
        self._stream = pyte.ByteStream(self.screen)
        self._process, self._file = pty.fork()
        if self._process == 0:
            os.chdir(folder)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "--noediting"], environment)
        ioctl(self._file, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
        self.wait_for(self.is_at_prompt)

    def close(self):
        """Ends the shell and what runs in it."""
        os.close(self._file)
        os.kill(self._process, signal.SIGHUP)
        os.waitpid(self._process, 0)

    def type(self, keys):
        os.write(self._file, keys.encode())

    def text(self):
        return "\n".join(line.rstrip() for line in self.screen.display).rstrip()

    def is_at_prompt(self):
        # A program that ends by Ctrl-C leaves the prompt behind the echo of it.
        return re.search(r"(^|\n|\^C)\$\Z", self.text()) is not None

    def wait_for(self, condition):
        """Reads until the condition holds and nothing more comes for a moment."""
        end = time.monotonic() + _PATIENCE
        while time.monotonic() < end:
            if self._read(_QUIET):
                continue
            if condition():
                return
        raise TimeoutError(f"the terminal still shows:\n{self.text()}")

    def _read(self, seconds):
        if not select.select([self._file], [], [], seconds)[0]:
            return False
        self._stream.feed(os.read(self._file, 65536))
        return True
