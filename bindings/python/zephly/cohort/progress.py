# SPDX-License-Identifier: MIT
"""One line on a terminal that shows how far a run is; without a terminal, only messages."""

from __future__ import annotations

import shutil
import sys
import time


def _clock(seconds: float) -> str:
    minutes, rest = divmod(int(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02}:{rest:02}" if hours else f"{minutes}:{rest:02}"


class Progress:
    def __init__(self, units: int, size: int) -> None:
        self._units = units
        self._size = size
        self._done = 0
        self._bytes = 0
        self._began = time.monotonic()
        self._drawable = sys.stderr.isatty()
        self._drawn = ""

    def advance(self, size: int) -> None:
        self._done += 1
        self._bytes += size
        self.draw()

    def text(self, elapsed: float, width: int) -> str:
        """`width`: columns of the terminal."""
        share = self._bytes / self._size if self._size else self._done / max(1, self._units)
        rate = self._bytes / elapsed if elapsed > 0 else 0
        text = f" {self._done} of {self._units}, {self._bytes / 1e9:.1f} of {self._size / 1e9:.1f} GB, {rate / 1e6:.0f} MB/s"
        if 0 < share < 1:
            text += f", {_clock(elapsed / share * (1 - share))} left"
        room = min(30, width - len(text) - 3)
        if room >= 5:
            full = round(room * share)
            text = "[" + "#" * full + "." * (room - full) + "]" + text
        return text[: width - 1]

    def draw(self) -> None:
        if not self._drawable:
            return
        text = self.text(time.monotonic() - self._began, shutil.get_terminal_size().columns)
        if text != self._drawn:
            sys.stderr.write("\r\x1b[K" + text)
            sys.stderr.flush()
            self._drawn = text

    def say(self, message: str) -> None:
        """A line that stays, above the one that changes."""
        self.end()
        # What comes from files must not control the terminal.
        lines = ["".join(c if c.isprintable() else "?" for c in line) for line in message.splitlines()]
        sys.stderr.write("".join(f"zephly.cohort: {line}\n" for line in lines))
        sys.stderr.flush()
        self.draw()

    def end(self) -> None:
        if self._drawn:
            sys.stderr.write("\r\x1b[K")
            sys.stderr.flush()
            self._drawn = ""
