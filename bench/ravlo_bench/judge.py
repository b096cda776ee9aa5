"""Whether a row's values meet its bar."""

from __future__ import annotations

import math
from dataclasses import dataclass, replace
from statistics import median
from typing import Callable, Dict, List, Optional, Tuple

from .intervals import gap_interval, quantile, quantile_interval
from .measurements import MalformedOutput, Measurement, pairs, whole_setups
from .rows import LIMITS, WIDEST_INTERVAL, Kind, Limit, Row


@dataclass(frozen=True)
class Judgement:
    """A row's figure with the interval in which it lies with 95 %, and what floor and product typically are, in the
    row's unit. `met` is None where there is no bar to meet."""

    figure: float
    low: float
    high: float
    floor: Optional[float]
    product: Optional[float]
    bar: Optional[float] = None
    met: Optional[bool] = None
    unstable: bool = False

    @property
    def width(self) -> float:
        return self.high - self.low


def judge(row: Row, measurement: Measurement) -> Judgement:
    """MalformedOutput when the measurement has not what the row needs."""
    converted = measurement.in_unit(row.unit)
    barred = measurement.size in row.sizes
    if not barred and not measurement.floor:
        return _shown(row, converted, barred)
    return _JUDGES[row.kind](row, converted, barred)


def known_limit(row: Row, size: str, judgement: Judgement) -> Optional[Limit]:
    """What explains that the bar is not met; None when it is met, or missed by more than is explained."""
    limit = LIMITS.get((row.name, size))
    if judgement.met is not False or limit is None:
        return None
    explained = judgement.low >= limit.worst if row.kind is Kind.RATE else judgement.high <= limit.worst
    return limit if explained else None


def _ratio(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    ratios = _of_setups(row, measurement, [product / floor for floor, product in pairs(measurement)])
    return _marked(_at_most(row, barred, median(ratios), *quantile_interval(ratios), *_typical(row, measurement)))


def _rate(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    rates = _of_setups(row, measurement, [floor / product for floor, product in pairs(measurement)])
    low, high = quantile_interval(rates)
    bar = row.bar if barred else None
    met = None if bar is None else low >= bar
    return _marked(Judgement(median(rates), low, high, *_typical(row, measurement), bar, met))


def _percentile(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    figure = quantile(measurement.product, row.share)
    low, high = quantile_interval(measurement.product, row.share)
    beyond = _context(measurement, row.beyond) if row.beyond else 0.0
    return _at_most(row, barred, figure, low, high, None, figure, beyond)


def _gap(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    if not measurement.floor:
        raise MalformedOutput(f"{row.name}: no floor")
    floor, product = (quantile(values, row.share) for values in (measurement.floor, measurement.product))
    low, high = gap_interval(measurement.floor, measurement.product, row.share)
    if _is_hidden(measurement, "floor", row.share) or _is_hidden(measurement, "product", row.share):
        low, high = -math.inf, math.inf
    return _at_most(row, barred, product - floor, low, high, floor, product)


def _is_hidden(measurement: Measurement, side: str, share: float) -> bool:
    """Whether so many waits were over before they began that the percentile may lie among those: they are the late
    ones, and have no value."""
    lost = measurement.context.get(f"{side}_without_wait", 0.0)
    taken = len(getattr(measurement, side))
    return lost > (1 - share) * (taken + lost)


def _figure(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    largest = max(measurement.product)
    return _at_most(row, barred, largest, largest, largest, None, largest)


def _difference(row: Row, measurement: Measurement, barred: bool) -> Judgement:
    if not measurement.floor:
        raise MalformedOutput(f"{row.name}: no floor")
    floor, product = median(measurement.floor), median(measurement.product)
    largest = max(measurement.product) - min(measurement.floor)
    smallest = min(measurement.product) - max(measurement.floor)
    return _at_most(row, barred, product - floor, smallest, largest, floor, product)


def _shown(row: Row, measurement: Measurement, _: bool) -> Judgement:
    floor = quantile(measurement.floor, row.share) if measurement.floor else None
    product = quantile(measurement.product, row.share)
    return Judgement(product, *quantile_interval(measurement.product, row.share), floor, product)


def _at_most(
    row: Row,
    barred: bool,
    figure: float,
    low: float,
    high: float,
    floor: Optional[float],
    product: Optional[float],
    beyond: float = 0.0,
) -> Judgement:
    if not barred or row.bar is None:
        return Judgement(figure, low, high, floor, product)
    bar = row.bar + beyond
    return Judgement(figure, low, high, floor, product, bar, high < bar if row.strict else high <= bar)


def _marked(judgement: Judgement) -> Judgement:
    width = judgement.width
    unstable = not math.isfinite(width) or width > WIDEST_INTERVAL
    return replace(judgement, unstable=unstable)


def _of_setups(row: Row, measurement: Measurement, values: List[float]) -> List[float]:
    """The median of each setup's values: where buffers lie and how caches fall out is the same for all of these, so
    only setups tell how far the figure spreads."""
    each = row.values_of_a_setup(measurement.where)
    return [median(values[i : i + each]) for i in range(0, whole_setups(len(values), each), each)]


def _typical(row: Row, measurement: Measurement) -> Tuple[float, float]:
    """What floor and product cost for one piece of work."""
    pieces = _context(measurement, row.per) if row.per else 1.0
    return median(measurement.floor) / pieces, median(measurement.product) / pieces


def _context(measurement: Measurement, name: str) -> float:
    if name not in measurement.context:
        raise MalformedOutput(f"{measurement.row}: no {name} beside the values")
    return measurement.context[name]


_JUDGES: Dict[Kind, Callable[[Row, Measurement, bool], Judgement]] = {
    Kind.RATIO: _ratio,
    Kind.RATE: _rate,
    Kind.PERCENTILE: _percentile,
    Kind.GAP: _gap,
    Kind.FIGURE: _figure,
    Kind.DIFFERENCE: _difference,
    Kind.SHOWN: _shown,
}
