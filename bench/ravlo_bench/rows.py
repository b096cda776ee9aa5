"""What is measured, beside which floor, and which bar it must meet."""

from __future__ import annotations

import enum
import math
from dataclasses import dataclass
from typing import Dict, Optional, Tuple

NATIVE, WINE = "native", "Wine"
FRAME_SIZES = ("720p", "1080p", "2160p")
NO_SIZE = ("",)
#: A ratio known less exactly than this is measured again.
WIDEST_INTERVAL = 0.2


class Kind(enum.Enum):
    """How the values of a row are judged."""

    RATIO = "ratio"  #: product / floor of pairs of costs, at most
    RATE = "rate"  #: floor / product of pairs of costs, at least
    PERCENTILE = "percentile"  #: of the product's values, at most
    GAP = "gap"  #: a percentile of the product's values less the floor's, at most the bar where there is one
    FIGURE = "figure"  #: the largest of the product's values, at most
    DIFFERENCE = "difference"  #: the product's median less the floor's, at most
    SHOWN = "shown"  #: a percentile of the product's values; no bar


@dataclass(frozen=True)
class Row:
    """One line of the table of bars. `sizes` are those that must be there and for which the bar holds; others are shown
    without it. Without a bar the figure is shown and nothing is judged."""

    number: int
    name: str
    title: str
    floor: str
    unit: str
    kind: Kind
    bar: Optional[float] = None
    sizes: Tuple[str, ...] = FRAME_SIZES
    where: Tuple[str, ...] = (WINE,)
    share: float = 0.5  #: which percentile
    beyond: str = ""  #: a value of the context to which the bar is added
    strict: bool = False  #: the bar itself does not meet it
    source: str = ""  #: the row whose measurements this one judges; it has none of its own
    per: str = ""  #: a value of the context: of so many pieces of work each cost of a pair is the sum
    remark: str = ""  #: what the context has to say beside the figure, with its keys in braces
    setup: int = 1  #: so many values in a row come from one setup under Wine; those are not independent

    def values_of_a_setup(self, where: str) -> int:
        """Natively each repetition sets up anew."""
        return 1 if where == NATIVE else self.setup


@dataclass(frozen=True)
class Limit:
    """Why a bar cannot be met, and how far beyond it the figure may lie for this reason: what is worse has another."""

    worst: float  #: of the interval's unfavourable end, in the row's unit
    reason: str


BOTH = (NATIVE, WINE)
_PACED = ("1080p", "2160p")

ROWS: Tuple[Row, ...] = (
    Row(
        1, "publish", "publish into the frame pool", "one memcpy, as cold", "us", Kind.RATIO, 1.03,
        where=BOTH, setup=20,
    ),
    Row(2, "consume", "consume into a warm buffer", "one memcpy", "us", Kind.RATIO, 1.05, where=BOTH, setup=20),
    Row(3, "pattern", "test pattern painted", "memset of the bytes", "us", Kind.RATIO, 1.15, where=BOTH, setup=20),
    Row(
        4, "request_own", "RequestSample, own time, p50", "", "us", Kind.PERCENTILE, 15,
        remark="beside it arming the wait {arm_us:.0f} us, allocation {allocation_us:.0f} us, fill {fill_us:.0f} us, "
        "log {log_us:.0f} us; inside it the platform's methods {platform_calls_us:.0f} us",
    ),
    Row(4, "request_own_awake", "RequestSample without a wait, p50", "", "us", Kind.SHOWN),
    Row(
        5, "receive", "pipe receive, frame rate", "bare reads, one memcpy", "us", Kind.RATE, 0.97,
        remark="{floor_frames_per_s:.0f} frames a second bare, {product_frames_per_s:.0f} through the camera's reader",
    ),
    Row(5, "receive_stoppable", "pipe receive, stoppable floor", "bare loop, stop event", "us", Kind.RATE),
    Row(6, "transport", "transport latency, paced", "bare reads, one memcpy", "us", Kind.RATIO, 1.10, _PACED),
    Row(
        6, "transport_stoppable", "transport, stoppable floor", "bare loop, stop event", "us", Kind.RATIO,
        sizes=_PACED,
    ),
    Row(
        7, "wake_up", "wake-up lateness, p99", "bare wait, same grid", "us", Kind.GAP, 200, share=0.99,
        remark="due before the wait began: {product_without_wait:.0f} samples, and {floor_without_wait:.0f} of the floor's",
    ),
    Row(7, "wake_up_p50", "wake-up lateness, p50", "bare wait, same grid", "us", Kind.GAP, source="wake_up"),
    Row(7, "delivery_lateness", "delivery lateness, p50", "bare wait, sample build", "us", Kind.GAP),
    Row(
        8, "end_to_end_pattern", "60 s: pattern while producing", "", "", Kind.FIGURE, 0, _PACED,
        remark="{samples:.0f} samples, from written to delivered {latency_p50_ms:.1f} ms at p50, "
        "{latency_p99_ms:.1f} ms at p99",
    ),
    Row(8, "end_to_end_torn", "60 s: torn samples", "", "", Kind.FIGURE, 0, _PACED),
    Row(8, "end_to_end_grid", "60 s: samples off the grid", "", "", Kind.FIGURE, 0, _PACED),
    Row(8, "end_to_end_clamps", "60 s: clamps of the clock", "", "", Kind.FIGURE, 0, _PACED),
    Row(9, "frame_cost", "processor time per frame", "bare loop, copies, lines", "us", Kind.RATIO, 1.15, ("1080p",)),
    Row(10, "trace_line", "one trace line", "open, append, close", "us", Kind.RATIO, 1.05, NO_SIZE, per="lines"),
    Row(10, "formatter", "formatter against snprintf", "snprintf", "us", Kind.RATE, 1.5, NO_SIZE, BOTH, setup=20),
    Row(11, "idle_wakeups", "idle camera, wake-ups", "", "1/s", Kind.FIGURE, 13, NO_SIZE),
    Row(11, "idle_core", "idle camera, share of a core", "", "%", Kind.FIGURE, 0.1, NO_SIZE, strict=True),
    Row(11, "idle_allocations", "idle camera, allocations", "", "", Kind.FIGURE, 0, NO_SIZE),
    Row(
        12, "cameras", "cost per camera of so many", "one camera alone", "us", Kind.RATIO, 1.10, ("2", "4", "8"),
        setup=2,
        remark="{fps_per_camera:.1f} of {fps_asked:.0f} frames a second each, {lateness_p99_ms:.1f} ms late at p99, "
        "the machine {machine_busy_percent:.0f} % busy",
    ),
    Row(
        12, "camera_limit", "cameras that the machine carries", "", "", Kind.FIGURE, sizes=NO_SIZE,
        remark="{too_many:.0f} are too many: {too_many_samples_per_camera:.1f} of {fps_asked:.0f} samples a second "
        "each, {too_many_pattern_samples:.0f} of the pattern, {too_many_lateness_p99_ms:.1f} ms late at p99, the "
        "machine {too_many_machine_busy_percent:.0f} % busy, Wine's server {too_many_server_core_percent:.0f} % of a "
        "core",
    ),
    Row(
        13, "first_sample", "activate to first sample, p95", "", "ms", Kind.PERCENTILE, 25,
        share=0.95, beyond="period_ms",
        remark="activate {activate_ms:.0f} ms, start {start_ms:.0f} ms, first request {request_ms:.0f} ms (medians)",
    ),
    Row(14, "dll_size", "the stripped DLL", "", "KiB", Kind.FIGURE, 400, NO_SIZE),
    Row(
        14, "dll_load", "warm load and unload", "empty DLL, same files", "us", Kind.RATIO, 1.3, NO_SIZE,
        remark="an empty DLL without the C and C++ runtime: {bare_us:.0f} us",
    ),
    Row(15, "memory", "private bytes of one camera", "what it must hold", "MB", Kind.DIFFERENCE, 4, ("1080p",)),
)  # fmt: skip

_BY_NAME: Dict[str, Row] = {row.name: row for row in ROWS}

#: Bars that cannot be met without changing what the camera does: (row, size) -> how far, and why.
LIMITS: Dict[Tuple[str, str], Limit] = {
    **{
        ("request_own", size): Limit(
            60,
            "where the thread has not slept before, the call's work takes less than 15 us (the row below); after a wait "
            "of a period the processor's caches and page tables are cold, for the camera's code and for the platform's "
            "methods inside the call alike",
        )
        for size in ("720p", "1080p")
    },
    ("request_own", "2160p"): Limit(
        60,
        "a fill of twelve megabytes leaves little of the code and of its tables in the processor's caches, after a wait "
        "or without one",
    ),
    ("consume", "2160p"): Limit(
        1.25,
        "natively, where the camera never runs, the heap begins a slot 16 bytes behind a line of the processor's "
        "caches; with slots at such lines, as they are under Wine, the same copy took 0.93 of a memcpy",
    ),
    **{
        ("receive", size): Limit(
            0.90,
            "a bare loop of blocking reads cannot be stopped and makes no call for it; the camera's three looks at the "
            "stop event, two events made and closed and one signal for each frame are eight more calls to Wine's "
            "server, which weigh most where frames are small, and wait longest where it is busy with large ones; the "
            "stoppable floor below makes the same calls",
        )
        for size in FRAME_SIZES
    },
    ("wake_up", "2160p"): Limit(
        math.inf,
        "moving 12 megabytes through its pipe 30 times a second keeps Wine's server busy for most of a period, so that "
        "many samples, and many of the floor's, are due before the wait for them begins",
    ),
}


def row_named(name: str) -> Row:
    """The row of this name; KeyError for any other."""
    return _BY_NAME[name]
