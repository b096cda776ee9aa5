"""The measuring programs: which rows each has, how it is called, and how long it may take."""

from __future__ import annotations

import contextlib
import os
import pathlib
import signal
import subprocess
import time
from dataclasses import dataclass
from typing import Callable, Iterable, List, Sequence, Tuple

from .measurements import MalformedOutput, Measurement, parse_google_benchmark, parse_line
from .rows import FRAME_SIZES, NATIVE, NO_SIZE, WINE, row_named

_POLL_SECONDS = 1.0


class ProgramFailed(RuntimeError):
    """A program gave no measurements, or not all of them."""


@dataclass(frozen=True)
class Program:
    """`rows` in the order of the table."""

    name: str
    where: str
    rows: Tuple[str, ...]
    patience: int  #: seconds after which a whole run is given up


PROGRAMS: Tuple[Program, ...] = (
    Program("ravlo_kernels_benchmark", NATIVE, ("publish", "consume", "pattern", "formatter"), 900),
    Program("bench_kernels", WINE, ("publish", "consume", "pattern", "trace_line", "formatter"), 900),
    Program("bench_request", WINE, ("request_own", "request_own_awake", "wake_up", "delivery_lateness"), 900),
    Program("bench_pipe", WINE, ("receive", "receive_stoppable", "transport", "transport_stoppable"), 1200),
    Program(
        "bench_delivery",
        WINE,
        (
            "end_to_end_pattern",
            "end_to_end_torn",
            "end_to_end_grid",
            "end_to_end_clamps",
            "frame_cost",
        ),
        1800,
    ),
    Program("bench_footprint", WINE, ("idle_wakeups", "idle_core", "idle_allocations", "first_sample", "memory"), 900),
    Program("bench_cameras", WINE, ("cameras", "camera_limit"), 1200),
    Program("bench_load", WINE, ("dll_size", "dll_load"), 600),
)


class Runner:
    """Runs programs of the checkout at `root`; `loader` runs those for Windows. What they say goes to `logs`."""

    def __init__(self, root: pathlib.Path, loader: str, logs: pathlib.Path, quick: bool = False):
        self._root = root
        self._loader = loader
        self._logs = logs
        self._quick = quick

    def run(
        self, program: Program, row: str = "", size: str = "", seen: Callable[[Measurement], None] = lambda _: None
    ) -> List[Measurement]:
        """The measurements of one run, all rows and sizes or those asked for; `seen` gets each as soon as it is there.
        ProgramFailed when the program failed or has printed anything else; what `seen` got before is good."""
        self._logs.mkdir(parents=True, exist_ok=True)
        output = self._logs / f"{program.name}.out"
        found: List[Measurement] = []
        malformed: List[str] = []

        def take(measurement: Measurement) -> None:
            found.append(measurement)
            seen(measurement)

        with contextlib.ExitStack() as files:
            written = files.enter_context(output.open("wb"))
            said = files.enter_context((self._logs / f"{program.name}.log").open("wb"))
            read = files.enter_context(output.open("r", encoding="utf-8", errors="replace"))
            lines = _Lines(read)

            def poll() -> None:
                if program.where != NATIVE:
                    _take_lines(lines, program.where, take, malformed)

            code = _run(self.command(program, row, size), written, said, program.patience, poll)
            if program.where != NATIVE:
                _take_lines(lines.last(), program.where, take, malformed)
        if code != 0:
            raise ProgramFailed(f"{program.name} {_ending(code, program.patience)}{self._last_words(program)}")
        if program.where == NATIVE:
            try:
                for measurement in parse_google_benchmark(output.read_text(encoding="utf-8", errors="replace")):
                    take(measurement)
            except MalformedOutput as error:
                malformed.append(str(error))
        if malformed:
            raise ProgramFailed(f"{program.name} printed {malformed[0]}")
        return found

    def command(self, program: Program, row: str = "", size: str = "") -> List[str]:
        """The command line."""
        if program.where == NATIVE:
            # One pair a repetition: enough of them for an interval, and a second or two for each figure.
            repetitions, seconds = (6, 0.01) if self._quick else (48, 0.05)
            command = [
                str(self._root / "build/host/bin" / program.name),
                "--benchmark_format=json",
                f"--benchmark_repetitions={repetitions}",
                f"--benchmark_min_time={seconds}",
            ]
            if row or size:
                names = [name for name in program.rows if row in ("", name)]
                sized = [f"{name}/{size}" if size and row_named(name).sizes != NO_SIZE else name for name in names]
                # More stands behind these in a benchmark's name.
                command.append(f"--benchmark_filter=^({'|'.join(sized)})(/|$)")
            return command
        command = [self._loader, str(self._root / "build/windows/bin" / f"{program.name}.exe")]
        command += ["--only", row] if row else []
        command += ["--size", size] if size in FRAME_SIZES else []
        return command + (["--quick"] if self._quick else [])

    def _last_words(self, program: Program) -> str:
        said = (self._logs / f"{program.name}.log").read_text(encoding="utf-8", errors="replace")
        lines = [line.strip() for line in said.splitlines() if line.strip()]
        return f": {lines[-1]:.200}" if lines else ""


class _Lines:
    """Whole lines of a growing file."""

    def __init__(self, file):
        self._file = file
        self._rest = ""

    def __iter__(self):
        self._rest += self._file.read()
        *lines, self._rest = self._rest.split("\n")
        return iter(lines)

    def last(self) -> List[str]:
        """What is left when nobody writes any more, a line without an end too."""
        left = [*self, self._rest]
        self._rest = ""
        return left


def _take_lines(
    lines: Iterable[str], where: str, take: Callable[[Measurement], None], malformed: List[str]
) -> None:
    for line in lines:
        try:
            if line.strip():
                take(parse_line(line, where))
        except MalformedOutput as error:
            malformed.append(str(error))


def _run(command: Sequence[str], written, said, patience: float, poll: Callable[[], None]):
    """The exit code; None when the program was given up. Calls `poll` while it runs, also right before giving up."""
    # A group of its own: whoever gives it up ends the loader's children too.
    process = subprocess.Popen(
        command, stdin=subprocess.DEVNULL, stdout=written, stderr=said, start_new_session=True
    )
    deadline = time.monotonic() + patience
    try:
        while True:
            try:
                return process.wait(timeout=_POLL_SECONDS)
            except subprocess.TimeoutExpired:
                poll()
                if time.monotonic() >= deadline:
                    return None
    finally:
        if process.poll() is None:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()


def _ending(code, patience: int) -> str:
    return f"did not end within {patience} s" if code is None else f"ended with {code}"
