"""Puts a file of results into a document, with the pictures in the folder named as the document.

``python3 -m ravlo_bench.document RESULTS DOCUMENT`` replaces what stands between the lines ``<!-- table -->`` and
``<!-- end -->``."""

from __future__ import annotations

import argparse
import pathlib
import sys
from typing import Dict, List, Optional, Sequence

from .results import read_results
from .runner import Result
from .table import markdown_table, remarks, sentences

BEGIN, END = "<!-- table -->", "<!-- end -->"

PICTURES = (
    ("lateness.png", "Lateness of wake-ups, RequestSample and a bare wait"),
    ("frame-cost.png", "Cost of a frame against its size"),
    ("cameras.png", "Cost per camera against the number of cameras"),
)


def with_table(document: str, results: Sequence[Result], about: Dict, pictures: Sequence[str] = ()) -> str:
    """The document with these results in it, and with these lines behind them; ValueError when it lacks the place."""
    before, begin, rest = document.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        raise ValueError(f"no place for the table: {BEGIN} and, behind it, {END}")
    beside = "\n".join(f"- {remark}" for remark in remarks(results))
    paragraphs = [BEGIN, _origin(about), markdown_table(results), beside, *sentences(results), *pictures, END]
    return before + "\n\n".join(filter(None, paragraphs)) + after


def _origin(about: Dict) -> str:
    machine = about["machine"]
    load = ", ".join(f"{value:.2f}" for value in about.get("load", []))
    lines = [
        f"- {about['date'][:10]}, version {about['commit']}"
        + (" (a quick run: the figures are worth little)" if about["options"]["quick"] else ""),
        f"- {machine['processor']}, {machine['cores']} cores, {machine['memory']} of memory",
        "- " + ", ".join(machine[key] for key in ("distribution", "kernel", "wine") if key in machine),
        f"- {machine['compiler']}",
        *([f"- natively {machine['native_compiler']}"] if "native_compiler" in machine else []),
        *([f"- load before the run (1, 5, 15 minutes): {load}"] if load else []),
    ]
    return "\n".join(lines)


def _refuse_partial(results: Sequence[Result], about: Dict) -> None:
    """ValueError for what would leave gaps in the document."""
    options = about.get("options", {})
    asked = " ".join(filter(None, (options.get("only"), options.get("size"))))
    if about.get("failures"):
        raise ValueError(f"the results are not complete: {about['failures'][0]}")
    if asked:
        raise ValueError(f"the results are for {asked} alone; a document wants all rows and sizes")
    if not results:
        raise ValueError("there are no results")


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m ravlo_bench.document", description=__doc__.splitlines()[0])
    parser.add_argument("results", type=pathlib.Path, help="a file that scripts/bench.sh --json wrote")
    parser.add_argument("document", type=pathlib.Path, help="such as docs/performance.md")
    options = parser.parse_args(arguments)
    try:
        results, about = read_results(options.results)
        _refuse_partial(results, about)
        folder = options.document.with_suffix("")
        pictures = [f"![{what}]({folder.name}/{name})" for name, what in PICTURES if (folder / name).exists()]
        written = with_table(options.document.read_text(encoding="utf-8"), results, about, pictures)
        options.document.write_text(written, encoding="utf-8")
    except KeyError as error:
        print(f"document: {options.results} does not say its {error}", file=sys.stderr)
        return 1
    except (OSError, ValueError) as error:
        print(f"document: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
