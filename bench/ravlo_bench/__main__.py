"""Measures, judges and shows: ``python3 -m ravlo_bench``, as scripts/bench.sh calls it."""

from __future__ import annotations

import argparse
import datetime
import os
import pathlib
import sys
from typing import Dict, List, Optional

from .machine import describe_commit, describe_machine
from .programs import Runner
from .results import write_results
from .rows import FRAME_SIZES, ROWS
from .runner import Outcome, anything_wanted, measure, say
from .table import floors, plain_table, row_list, summary, undocumented_misses

_ROOT = pathlib.Path(__file__).resolve().parents[2]
_QUICK = "A quick run: it shows that everything can be measured. Its figures are worth little."
_INTERRUPTED = 130  # as a shell has it for a program that Ctrl+C ended


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="scripts/bench.sh",
        usage="%(prog)s [--quick] [--json FILE] [--only ROW] [--size SIZE] [--plots FOLDER] [--list]",
        description="Measures the camera beside the least that its work can cost.",
    )
    parser.add_argument("--quick", action="store_true", help="show that it runs; the figures are worth little")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE", help="write the raw values and judgements there")
    parser.add_argument("--only", choices=[row.name for row in ROWS], metavar="ROW", default="", help="this row alone")
    parser.add_argument("--size", choices=FRAME_SIZES, default="", help="this frame size alone")
    parser.add_argument("--list", action="store_true", help="show the rows and do nothing else")
    # What runs programs for Windows, and judging the arguments only: for the script.
    parser.add_argument("--loader", default="wine", help=argparse.SUPPRESS)
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    return parser


def main(arguments: Optional[List[str]] = None) -> int:
    parser = _parser()
    options = parser.parse_args(arguments)
    if options.list:
        print(row_list())
        return 0
    if not anything_wanted(options.only, options.size):
        parser.error(f"{options.only} is not measured at {options.size}")
    if options.check:
        return 0
    about = {
        "date": datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds"),
        "commit": describe_commit(_ROOT),
        "load": list(os.getloadavg()),
        "machine": describe_machine(options.loader),
        "options": {"quick": options.quick, "only": options.only, "size": options.size},
    }
    runner = Runner(_ROOT, options.loader, _ROOT / "build" / "bench-logs", options.quick)
    outcome = measure(runner, options.only, options.size, repeat=not options.quick)
    _show(outcome, options.quick)
    written = not options.json or _write(options.json, outcome, about)
    if outcome.interrupted:
        return _INTERRUPTED
    if outcome.failures or not written:
        return 1
    return 1 if undocumented_misses(outcome.results) and not options.quick else 0


def _show(outcome: Outcome, quick: bool) -> None:
    parts = [plain_table(outcome.results), floors(outcome.results), summary(outcome.results)]
    if quick:
        parts = [_QUICK, *parts, _QUICK]
    print("\n\n".join(filter(None, parts)), flush=True)
    for failure in outcome.failures:
        say(failure)


def _write(path: pathlib.Path, outcome: Outcome, about: Dict) -> bool:
    try:
        write_results(path, outcome, about)
    except OSError as error:
        say(f"the raw values cannot be written to {path}: {error.strerror}")
        return False
    return True


if __name__ == "__main__":
    sys.exit(main())
