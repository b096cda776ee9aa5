"""What the measuring programs print: raw values of one figure at one size."""

from __future__ import annotations

import json
import math
from dataclasses import dataclass, field, replace
from typing import Dict, Iterable, List

from .rows import FRAME_SIZES, NATIVE

#: Unit -> the quantity it measures, and how many of the smallest unit it is.
_UNITS = {
    "ns": ("time", 1e-3), "us": ("time", 1.0), "ms": ("time", 1e3), "s": ("time", 1e6),
    "bytes": ("size", 1.0), "KiB": ("size", 1024.0), "MB": ("size", 1e6),
    "1/s": ("rate", 1.0), "%": ("share", 1.0),
    "": ("count", 1.0), "samples": ("count", 1.0), "allocations": ("count", 1.0),
}  # fmt: skip


class MalformedOutput(ValueError):
    """A program printed what is no measurement."""


@dataclass
class Measurement:
    """Values of `row` at `size`, measured natively or under Wine. Floor and product of a pair have the same
    index."""

    row: str
    size: str
    where: str
    unit: str
    floor: List[float]
    product: List[float]
    context: Dict[str, float] = field(default_factory=dict)

    @property
    def key(self):
        return self.row, self.size, self.where

    def in_unit(self, unit: str) -> "Measurement":
        """The same values in another unit of the same quantity."""
        quantity, factor = _unit(self.unit)
        wanted, divisor = _unit(unit)
        if quantity != wanted:
            raise MalformedOutput(f"{self.row}: values in {self.unit or 'counts'} where {unit or 'counts'} are due")

        def convert(values):
            return [value * factor / divisor for value in values]

        return replace(self, unit=unit, floor=convert(self.floor), product=convert(self.product))


def parse_line(line: str, where: str) -> Measurement:
    """One line of JSON as bench/harness/report.h writes it."""
    try:
        entry = json.loads(line)
        measurement = Measurement(
            row=_text(entry["row"]),
            size=_text(entry["size"]),
            where=where,
            unit=_text(entry["unit"]),
            floor=_numbers(entry["floor"]),
            product=_numbers(entry["product"]),
            context={str(key): _number(value) for key, value in entry.get("context", {}).items()},
        )
    except (ValueError, KeyError, TypeError, AttributeError) as error:
        raise MalformedOutput(f"no measurement: {line.strip():.80} ({error!r})") from None
    _unit(measurement.unit)
    if not measurement.product:
        raise MalformedOutput(f"{measurement.row}: no values")
    return measurement


def parse_google_benchmark(text: str) -> List[Measurement]:
    """The pairs in Google Benchmark's JSON: each repetition has the counters floor_us and product_us."""
    found: Dict[tuple, Measurement] = {}
    try:
        for entry in json.loads(text)["benchmarks"]:
            if entry.get("run_type", "iteration") != "iteration":
                continue
            row, *rest = entry["name"].split("/")
            size = rest[0] if rest and rest[0] in FRAME_SIZES else ""
            measurement = found.setdefault((row, size), Measurement(row, size, NATIVE, "us", [], []))
            measurement.floor.append(_number(entry["floor_us"]))
            measurement.product.append(_number(entry["product_us"]))
    except (ValueError, KeyError, TypeError, AttributeError) as error:
        raise MalformedOutput(f"no output of Google Benchmark ({error!r})") from None
    return list(found.values())


def pairs(measurement: Measurement) -> Iterable[tuple]:
    """Floor and product together; MalformedOutput when they are no pairs of positive values."""
    if len(measurement.floor) != len(measurement.product):
        raise MalformedOutput(
            f"{measurement.row}: {len(measurement.floor)} floors and {len(measurement.product)} products are no pairs"
        )
    if min(measurement.floor + measurement.product) <= 0:
        raise MalformedOutput(f"{measurement.row}: a cost that is not positive")
    return zip(measurement.floor, measurement.product)


def whole_setups(count: int, setup: int) -> int:
    """How many of the first values count: an incomplete last setup is left out unless it is the only one."""
    return count - count % setup or count


def pooled(first: Measurement, second: Measurement, setup: int) -> Measurement:
    """The pairs of both, with whole setups of `setup` pairs each; with the first's context."""
    runs = [run for run in (first, second) if len(run.product) >= setup] or [first, second]
    floor: List[float] = []
    product: List[float] = []
    for run in (one.in_unit(first.unit) for one in runs):
        count = whole_setups(len(run.product), setup)
        floor += run.floor[:count]
        product += run.product[:count]
    return replace(first, floor=floor, product=product)


def _unit(unit: str):
    if unit not in _UNITS:
        raise MalformedOutput(f"unknown unit {unit:.20}")
    return _UNITS[unit]


def _text(value) -> str:
    if not isinstance(value, str):
        raise TypeError(f"{value!r} is no text")
    return value


def _number(value) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise TypeError(f"{value!r:.40} is no number")
    try:
        number = float(value)
    except OverflowError:
        number = math.inf
    if not math.isfinite(number):
        raise TypeError("a number beyond all bounds")
    return number


def _numbers(values) -> List[float]:
    if not isinstance(values, list):
        raise TypeError("no list")
    return [_number(value) for value in values]
