"""The table for people: on a terminal, and in Markdown."""

from __future__ import annotations

import math
import textwrap
from typing import Dict, List, Optional, Sequence

from .judge import known_limit
from .rows import BOTH, ROWS, Kind, Row
from .runner import Result

_HEADINGS = ("#", "what", "size", "where", "floor", "product", "ratio or figure", "bar", "met")
_RIGHT = {0, 4, 5}
_PURE = (Kind.RATIO, Kind.RATE)
UNSTABLE = "~"


def plain_table(results: Sequence[Result]) -> str:
    """Columns of fixed width; the first line of a row bears its number."""
    lines = [_HEADINGS] + _cells(results)
    widths = [max(len(line[column]) for line in lines) for column in range(len(_HEADINGS))]
    texts = ["  ".join(_padded(cell, widths[i], i) for i, cell in enumerate(line)).rstrip() for line in lines]
    texts.insert(1, "  ".join("-" * width for width in widths))
    return "\n".join(texts)


def row_list() -> str:
    """All rows that can be asked for, with their floors and bars."""
    lines = [("row", "what", "floor", "bar")]
    for row in ROWS:
        beyond = f" beyond {row.beyond}" if row.beyond else ""
        lines.append((row.name, row.title, row.floor or "-", _bar(row, row.bar) + beyond))
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)


def markdown_table(results: Sequence[Result]) -> str:
    """The same for a document, with the floors spelled out under their rows' names."""
    lines = [_line(_HEADINGS), _line("--:" if i in _RIGHT else "---" for i in range(len(_HEADINGS)))]
    for result, cells in zip(results, _cells(results)):
        floor = f"<br>beside: {result.row.floor}" if result.row.floor and cells[1] else ""
        lines.append(_line((cells[0], cells[1] + floor, *cells[2:])))
    return "\n".join(lines)


def floors(results: Sequence[Result]) -> str:
    """What each row is measured beside, for the table on a terminal, which has no room for it."""
    told = {result.row.title: result.row.floor for result in results if result.row.floor}
    text = "; ".join(f"{title} - {floor}" for title, floor in told.items())
    return _folded(f"Floors: {text}.") if told else ""


def sentences(results: Sequence[Result]) -> List[str]:
    """How many bars are met, which are not, and what is known of those."""
    barred = [result for result in results if result.judgement.met is not None]
    missed = [result for result in barred if not result.judgement.met]
    count = f"{len(barred) - len(missed)} of {len(barred)} bars are met."
    said = [count + (f" Not met: {_names(missed)}." if missed else "")]
    if any(result.judgement.unstable for result in results):
        said.append(f"{UNSTABLE} unstable: the interval is wider than 0.2, so the figure says little.")
    for runs in sorted({result.runs for result in results if result.runs > 1}):
        several = [result for result in results if result.runs == runs]
        said.append(f"With the values of {runs} runs, since one was unstable: {_names(several)}.")
    explained: Dict[str, List[Result]] = {}
    for result in missed:
        limit = known_limit(result.row, result.size, result.judgement)
        if limit:
            explained.setdefault(limit.reason, []).append(result)
    return said + [f"{_names(rows)}: {reason}." for reason, rows in explained.items()]


def remarks(results: Sequence[Result]) -> List[str]:
    """What stands beside the figures, for the rows that have something to say."""
    said = []
    for result in results:
        if not result.row.remark or result.measurement is None:
            continue
        try:
            said.append(f"{_name(result)}: {result.row.remark.format_map(result.measurement.context)}")
        except KeyError:
            # Nothing is judged by these values, and an incomplete sentence is none.
            continue
    return said


def summary(results: Sequence[Result]) -> str:
    """What stands under the table on a terminal."""
    lines = ([*remarks(results), ""] if remarks(results) else []) + sentences(results)
    return "\n".join(_folded(line) for line in lines)


def undocumented_misses(results: Sequence[Result]) -> List[Result]:
    """The results that miss their bar without a known limit, or by more than it explains."""
    return [
        result
        for result in results
        if result.judgement.met is False and not known_limit(result.row, result.size, result.judgement)
    ]


def value_text(value: Optional[float], unit: str) -> str:
    """Three to four digits and the unit; "-" for none."""
    if value is None or not math.isfinite(value):
        return "-"
    return f"{_digits(value)} {unit}".rstrip()


def _cells(results: Sequence[Result]) -> List[tuple]:
    lines = []
    last = None
    for result in results:
        row, judgement = result.row, result.judgement
        begins = (row.name, result.where) != last
        last = (row.name, result.where)
        lines.append((
            str(row.number) if begins else "",
            row.title if begins else "",
            result.size,
            result.where,
            value_text(judgement.floor, row.unit),
            value_text(judgement.product, row.unit),
            _figure(row, result),
            _bar(row, judgement.bar),
            _met(row, result),
        ))  # fmt: skip
    return lines


def _figure(row: Row, result: Result) -> str:
    judgement = result.judgement
    # At a size without a bar there may be no floor to compare with.
    pure = row.kind in _PURE and judgement.floor is not None
    digits = "{:.3f}".format if pure else _digits
    text = digits(judgement.figure) + ("" if pure or not row.unit else f" {row.unit}")
    if judgement.low == judgement.figure == judgement.high:
        return text
    ends = [digits(end) if math.isfinite(end) else "-" for end in (judgement.low, judgement.high)]
    return f"{text} [{ends[0]}, {ends[1]}]"


def _bar(row: Row, bar: Optional[float]) -> str:
    if bar is None:
        return "-"
    if row.kind in _PURE:
        return f"{'>=' if row.kind is Kind.RATE else '<='} {bar:.2f}"
    return f"{'<' if row.strict else '<='} {value_text(bar, row.unit)}"


def _met(row: Row, result: Result) -> str:
    word = {True: "yes", False: "NO", None: "-"}[result.judgement.met]
    if known_limit(row, result.size, result.judgement):
        word = "no, limit"
    return f"{word} {UNSTABLE}" if result.judgement.unstable else word


def _name(*results: Result) -> str:
    """As the table has one row, its sizes, and where, if that may be in more than one place."""
    row, where = results[0].row, results[0].where
    sizes = ", ".join(result.size for result in results)
    return " ".join(filter(None, (row.title, sizes, f"({where})" if row.where == BOTH else "")))


def _names(results: Sequence[Result]) -> str:
    """Apart by semicolons, since titles have commas."""
    together: Dict[tuple, List[Result]] = {}
    for result in results:
        together.setdefault((result.row.title, result.where), []).append(result)
    return "; ".join(_name(*same) for same in together.values())


def _folded(text: str) -> str:
    return textwrap.fill(text, 118, break_long_words=False)


def _digits(value: float) -> str:
    size = abs(value)
    if value == int(value) and size < 1e6:
        return str(int(value))
    for limit, form in ((1, ".3f"), (10, ".2f"), (1000, ".1f")):
        if size < limit:
            return format(value, form)
    return format(value, ".0f")


def _padded(cell: str, width: int, column: int) -> str:
    return cell.rjust(width) if column in _RIGHT else cell.ljust(width)


def _line(cells) -> str:
    return "| " + " | ".join(cells) + " |"
