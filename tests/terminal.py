"""A program on a pseudo-terminal, for tests of the interactive command line.

Gives what the program shows as plain text: escape sequences are taken out, so a test can wait for
what a person would see. Made from the standard library alone.
"""

import os
import pty
import re
import select
import signal
import time

# Control sequences, character sets, single-character escapes, and what only moves the cursor.
_ESCAPES = re.compile(r"\x1b\[[0-9;?]*[ -/]*[@-~]|\x1b[()][0-9A-Za-z]|\x1b[=>78MDEc]|[\x07\x0f\r]")


class Terminal:
    """A running program; use as a context manager, so that it never outlives its test."""

    # Ends a test that would wait for ever; says nothing about speed.
    limit = 20

    def __init__(self, command, environment, folder):
        self.shown = ""     # everything shown so far
        self._seen = 0      # up to where expect() has consumed it
        self._raw = b""
        self._status = None
        self.pid, self._fd = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execve(command[0], command, environment)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._status is None:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self._fd)

    def send(self, text):
        os.write(self._fd, text.encode())

    def _read(self, seconds):
        """Takes in what comes within that time; False at the end of the program's output."""
        if not select.select([self._fd], [], [], seconds)[0]:
            return True
        try:
            data = os.read(self._fd, 65536)
        except OSError:
            data = b""
        self._raw += data
        # An escape sequence may be cut at the end of what was read: clean the whole text again.
        self.shown = _ESCAPES.sub("", self._raw.decode(errors="replace"))
        return bool(data)

    def expect(self, text):
        """Waits until `text` is shown after what was expected before; returns what came before."""
        end = time.monotonic() + self.limit
        while True:
            place = self.shown.find(text, self._seen)
            if place >= 0:
                before = self.shown[self._seen:place]
                self._seen = place + len(text)
                return before
            alive = self._read(0.2)
            if not alive or time.monotonic() > end:
                raise AssertionError(f"{text!r} was not shown; the screen after the last match:\n"
                                     f"{self.shown[self._seen:]!r}")

    def wait(self):
        """Waits for the end of the program; returns its exit status, negative for a signal."""
        end = time.monotonic() + self.limit
        while self._read(0.2):
            if time.monotonic() > end:
                raise AssertionError(f"still running; the screen:\n{self.shown[self._seen:]!r}")
        _, status = os.waitpid(self.pid, 0)
        self._status = os.waitstatus_to_exitcode(status)
        return self._status
