"""Measures the wanted rows, with more pairs while one is unstable, and gathers what could not be measured."""

from __future__ import annotations

import sys
from dataclasses import dataclass, field
from typing import Callable, Dict, List, Optional, Sequence, Tuple

from .judge import Judgement, judge
from .measurements import MalformedOutput, Measurement, pooled
from .programs import PROGRAMS, Program, ProgramFailed
from .rows import FRAME_SIZES, ROWS, Row, row_named

#: So often an unstable row is measured again.
_REPEATS = 2


@dataclass
class Result:
    """One line of the table. A row that judges another's measurements has none of its own."""

    row: Row
    size: str
    where: str
    measurement: Optional[Measurement]
    judgement: Judgement
    runs: int = 1  #: whose values are in the measurement


@dataclass
class Outcome:
    results: List[Result] = field(default_factory=list)  #: in the order of the table
    failures: List[str] = field(default_factory=list)  #: sentences; empty when every wanted row has its figures
    interrupted: bool = False  #: by the user; there are the results until then


#: Results by row, size and where.
_Found = Dict[Tuple[str, str, str], Result]


def say(text: str) -> None:
    print(f"bench: {text}", file=sys.stderr, flush=True)


def measure(
    runner, only: str = "", size: str = "", repeat: bool = True, programs: Sequence[Program] = PROGRAMS,
    progress: Callable[[str], None] = say,
) -> Outcome:
    """Runs every program that has a wanted row. `only` is a row, `size` a frame size; empty means all."""
    outcome = Outcome()
    results: _Found = {}
    try:
        for program in programs:
            _measure_wanted(runner, program, _measured_for(only), size, repeat, results, outcome, progress)
    except KeyboardInterrupt:
        outcome.interrupted = True
        outcome.failures.append("interrupted")
    _add_derived(results, outcome)
    order = {row.name: place for place, row in enumerate(ROWS)}
    outcome.results = sorted(results.values(), key=lambda result: order[result.row.name])
    if only:
        outcome.results = [result for result in outcome.results if result.row.name == only]
    if not outcome.results and not outcome.failures:
        outcome.failures.append(f"nothing is measured for {' '.join(filter(None, (only, size)))}")
    return outcome


def anything_wanted(only: str, size: str) -> bool:
    """Whether some program measures this row at this size."""
    return any(_wanted(program, _measured_for(only), size) for program in PROGRAMS)


def _measured_for(only: str) -> str:
    """The row whose measurements `only` is judged by; empty for all."""
    return row_named(only).source or only if only else ""


def _measure_wanted(
    runner, program: Program, only: str, size: str, repeat: bool, results: _Found, outcome: Outcome, progress
) -> None:
    wanted = _wanted(program, only, size)
    if not wanted:
        return
    progress(f"{program.name} ({program.where})")
    own: _Found = {}
    try:
        _measure_program(runner, program, only, size, own, outcome, progress)
        for _ in range(_REPEATS if repeat else 0):
            _measure_unstable_again(runner, program, own, outcome, progress)
    finally:
        results.update(own)
    missing = [name for name in wanted if name not in own]
    if missing:
        outcome.failures.append(f"{program.name} has not measured {', '.join(_spoken(key) for key in missing)}")


def _wanted(program: Program, only: str, size: str) -> List[Tuple[str, str, str]]:
    """What the table wants of the program: row, size, where."""
    return [
        (name, row_size, program.where)
        for name in program.rows
        if only in ("", name)
        for row_size in row_named(name).sizes
        if not size or row_size == size or not _has_frame_sizes(row_named(name))
    ]


def _has_frame_sizes(row: Row) -> bool:
    return any(size.endswith("p") for size in row.sizes)


def _asked_for(measurement: Measurement, only: str, size: str) -> bool:
    """Programs may print beside the row that was asked for others that come with it."""
    return only in ("", measurement.row) and (size in ("", measurement.size) or measurement.size not in FRAME_SIZES)


def _measure_program(
    runner, program: Program, only: str, size: str, own: _Found, outcome: Outcome, progress
) -> None:
    """Judges into `own` what one run measures, once it is over: judging takes a while, and a core."""
    taken: List[Measurement] = []

    def take(measurement: Measurement) -> None:
        if measurement.row not in program.rows:
            outcome.failures.append(f"{program.name} printed the unknown row {measurement.row:.40}")
        elif _asked_for(measurement, only, size):
            taken.append(measurement)
            progress(f"  {_spoken(measurement.key)}: {len(measurement.product)} values")

    try:
        runner.run(program, only, size, take)
    except ProgramFailed as failure:
        outcome.failures.append(str(failure))
    except OSError as failure:
        outcome.failures.append(f"{program.name} cannot be run: {failure.strerror}")
    finally:
        for measurement in taken:
            _judge_into(own, measurement, 1, program, outcome)


def _judge_into(own: _Found, measurement: Measurement, runs: int, program: Program, outcome: Outcome) -> None:
    row = row_named(measurement.row)
    try:
        judgement = judge(row, measurement)
    except MalformedOutput as failure:
        outcome.failures.append(f"{program.name} printed {failure}")
        return
    own[measurement.key] = Result(row, measurement.size, measurement.where, measurement, judgement, runs)


def _measure_unstable_again(runner, program: Program, own: _Found, outcome: Outcome, progress) -> None:
    """Judges the pairs of each unstable result and of a further run together. Keeping the run with the narrowest
    interval would choose among the runs, and no longer be a fair sample of them."""
    unstable = [key for key, result in own.items() if result.judgement.unstable]
    # A run is for one row and one frame size; other sizes of a row, as numbers of cameras, come all in one run.
    runs = {(key[0], key[1] if _has_frame_sizes(own[key].row) else "") for key in unstable}
    for row, size in sorted(runs):
        progress(f"  {row} {size}".rstrip() + ": unstable, once more")
        again: _Found = {}
        _measure_program(runner, program, row, size, again, outcome, lambda _: None)
        for key in unstable:
            if key in again:
                before = own[key]
                both = pooled(before.measurement, again[key].measurement, before.row.values_of_a_setup(key[2]))
                _judge_into(own, both, before.runs + 1, program, outcome)


def _add_derived(results: _Found, outcome: Outcome) -> None:
    """The rows that judge another row's measurements. That those are missing has been said."""
    for row in ROWS:
        for where in row.where if row.source else ():
            for key in [key for key in results if (key[0], key[2]) == (row.source, where)]:
                try:
                    judgement = judge(row, results[key].measurement)
                except MalformedOutput as failure:
                    outcome.failures.append(str(failure))
                    continue
                results[(row.name, key[1], where)] = Result(row, key[1], where, None, judgement, results[key].runs)


def _spoken(key: Tuple[str, str, str]) -> str:
    name, size, where = key
    return f"{name} {size} ({where})" if size else f"{name} ({where})"
