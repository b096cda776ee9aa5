"""The pace of a producer."""

from __future__ import annotations

import time
from fractions import Fraction
from typing import Callable, Optional, Union

#: Frames a second: 30, 29.97 or Fraction(30000, 1001).
Rate = Union[int, float, Fraction]

#: One frame an hour; far beyond it, no system sleeps until the next is due.
SLOWEST_RATE = Fraction(1, 3600)
FASTEST_RATE = 1000


class FrameClock:
    """Says when each frame is due: at the start plus whole periods, without drift.

    A producer that comes late gets its frame at once; the times that it has missed are skipped, so that a standstill is
    never followed by a burst. One thread uses it.
    """

    def __init__(
        self,
        rate: Rate,
        now: Callable[[], float] = time.perf_counter,
        sleep: Callable[[float], None] = time.sleep,
    ) -> None:
        """``rate`` is from SLOWEST_RATE to FASTEST_RATE. ``now`` and ``sleep`` are in seconds."""
        if not SLOWEST_RATE <= rate <= FASTEST_RATE:
            raise ValueError(f"{rate} frames a second: must be from one an hour to {FASTEST_RATE}")
        self._period = float(1 / Fraction(rate))
        self._now = now
        self._sleep = sleep
        self._start: Optional[float] = None
        self._next = 0  # the index of the frame that is due next

    def wait(self) -> int:
        """Returns when the next frame is due, with the number of frame times missed before it.

        The first call starts the clock and returns at once.
        """
        now = self._now()
        if self._start is None:
            self._start = now
            self._next = 1
            return 0
        due = self._start + self._next * self._period
        while now < due:
            self._sleep(due - now)
            now = self._now()
        # What is due is the last frame time that has passed.
        index = max(self._next, int((now - self._start) / self._period))
        missed = index - self._next
        self._next = index + 1
        return missed
