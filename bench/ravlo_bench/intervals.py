"""What a sample says about a quantile, and how sure it is: 95 % intervals without an assumed distribution."""

from __future__ import annotations

import math
from typing import Iterable, Sequence, Tuple

_TAIL = 0.025  # on each side of an interval


def quantile(values: Sequence[float], share: float) -> float:
    """The value below which `share` of the sample lies, on the line between its neighbours: for 0.5 the median."""
    ordered = sorted(values)
    place = (len(ordered) - 1) * share
    below = math.floor(place)
    above = min(below + 1, len(ordered) - 1)
    return ordered[below] + (ordered[above] - ordered[below]) * (place - below)


def quantile_interval(values: Iterable[float], share: float = 0.5) -> Tuple[float, float]:
    """The two members of the sample between which the quantile lies with at least 95 %.

    How many members fall below the quantile follows a binomial distribution, whatever the values follow. A sample too
    small for a bound on one side gives infinity there; for the median that is one of less than six.
    """
    ordered = sorted(values)
    count = len(ordered)
    # Of members 1 to `count`: the last that is above the quantile too rarely to matter, and the first that is often
    # enough.
    lower, upper, below = 0, count + 1, 0.0
    for member in range(count):
        below += _binomial(count, member, share)
        if below <= _TAIL:
            lower = member + 1
        if below >= 1 - _TAIL:
            upper = member + 1
            break
    return (
        ordered[lower - 1] if lower > 0 else -math.inf,
        ordered[upper - 1] if upper <= count else math.inf,
    )


def gap_interval(floor: Sequence[float], product: Sequence[float], share: float) -> Tuple[float, float]:
    """Where the product's quantile less the floor's lies with 95 %.

    The distances from the two quantiles to the ends of their intervals add as errors of independent samples do: the
    root of their squares' sum. A bound that either sample is too small for is missing here too.
    """
    floor_at, at = quantile(floor, share), quantile(product, share)
    floor_low, floor_high = quantile_interval(floor, share)
    low, high = quantile_interval(product, share)
    gap = at - floor_at
    return gap - math.hypot(at - low, floor_high - floor_at), gap + math.hypot(high - at, floor_at - floor_low)


def _binomial(count: int, hits: int, share: float) -> float:
    """The probability of exactly so many hits, also where its factors are too small for a number."""
    ways = math.lgamma(count + 1) - math.lgamma(hits + 1) - math.lgamma(count - hits + 1)
    return math.exp(ways + hits * math.log(share) + (count - hits) * math.log1p(-share))
