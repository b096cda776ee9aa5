"""Draws the pictures of a file of results: ``python3 -m ravlo_bench.plots RESULTS FOLDER``. Needs matplotlib."""

from __future__ import annotations

import argparse
import math
import pathlib
import sys
from statistics import median
from typing import Dict, List, Optional, Sequence

from .intervals import quantile
from .results import read_results
from .rows import FRAME_SIZES, WINE, row_named
from .runner import Result

#: Told apart by people who see no red or green, and on grey paper.
_FLOOR, _PRODUCT = "#8c8c8c", "#0b5fa5"
_DPI = 125
_BIN_US = 25
_MEGABYTES = {"720p": 1.3824, "1080p": 3.1104, "2160p": 12.4416}
_COSTS = (
    ("publish", "publish into the pool"),
    ("consume", "consume into a buffer"),
    ("receive", "receive from the pipe"),
    ("frame_cost", "processor time, whole way"),
)


def draw_all(results: Sequence[Result], folder: pathlib.Path) -> List[pathlib.Path]:
    """The files written: one for each picture that the results have figures for."""
    pyplot = _pyplot()
    folder.mkdir(parents=True, exist_ok=True)
    written = []
    for name, draw in (("lateness", _lateness), ("frame-cost", _frame_cost), ("cameras", _cameras)):
        figure = draw(pyplot, results)
        if figure is None:
            continue
        path = folder / f"{name}.png"
        # Nothing in it but the picture: the same results give the same file.
        figure.savefig(path, dpi=_DPI, metadata={"Software": None})
        pyplot.close(figure)
        written.append(path)
    return written


def _pyplot():
    import matplotlib

    matplotlib.use("agg")
    matplotlib.rcParams.update({
        "font.family": "DejaVu Sans", "font.size": 10, "axes.grid": True,
        "axes.axisbelow": True, "grid.color": "#dddddd", "axes.spines.top": False, "axes.spines.right": False,
        "figure.constrained_layout.use": True,
    })  # fmt: skip
    from matplotlib import pyplot

    return pyplot


def _by_size(results: Sequence[Result], row: str) -> Dict[str, Result]:
    return {
        result.size: result
        for result in results
        if result.row.name == row and result.where == WINE and result.measurement is not None
    }


def _floor_ms(result: Result) -> List[float]:
    return result.measurement.in_unit("ms").floor


def _product_ms(result: Result) -> List[float]:
    return result.measurement.in_unit("ms").product


def _lateness(pyplot, results: Sequence[Result]):
    """How late a wait ends: the module's in RequestSample, and a bare one on the same grid."""
    sizes = {size: result for size, result in _by_size(results, "wake_up").items() if result.measurement.floor}
    if not sizes:
        return None
    figure, axes = pyplot.subplots(len(sizes), 1, figsize=(8, 1.2 + 2.2 * len(sizes)), squeeze=False)
    for axis, (size, result) in zip(axes[:, 0], sizes.items()):
        pair = (_floor_ms(result), _product_ms(result))
        # What few waits reach is counted in the last bin: the body of the histogram is what the eye needs. Each size has
        # a scale of its own, or the slowest would hide the others.
        last = max(quantile(values, 0.995) for values in pair)
        first = min(0.0, *(min(values) for values in pair))
        width = max((last - first) / 60, _BIN_US / 1e3)
        edges = [first + width * i for i in range(int((last - first) / width) + 2)]
        for values, colour, label, style in (
            (pair[0], _FLOOR, "bare wait", {"histtype": "stepfilled", "alpha": 0.75}),
            (pair[1], _PRODUCT, "RequestSample", {"histtype": "step", "linewidth": 1.8}),
        ):
            p50, p99 = quantile(values, 0.5), quantile(values, 0.99)
            axis.hist(
                [min(value, edges[-1]) for value in values], bins=edges, color=colour,
                weights=[100 / len(values)] * len(values),
                label=f"{label}: p50 {p50:.2f} ms, p99 {p99:.2f} ms", **style,
            )  # fmt: skip
        axis.set_title(size, loc="left", fontsize=10, fontweight="bold")
        axis.set_ylabel("% of waits")
        axis.set_xlabel(f"end of the wait after the due time, ms (bins of {width * 1e3:.0f} µs; the last takes the rest)")
        # Beside the title: wherever a legend lay on the axes, some histogram would lie under it.
        axis.legend(frameon=False, loc="lower right", bbox_to_anchor=(1, 1), ncol=2, borderaxespad=0.2)
    figure.suptitle("Wake-up against the grid")
    return figure


def _frame_cost(pyplot, results: Sequence[Result]):
    """What a frame costs at each size, product beside floor."""
    rows = [
        (label, {size: result for size, result in _by_size(results, row).items() if result.measurement.floor})
        for row, label in _COSTS
    ]
    rows = [(label, sizes) for label, sizes in rows if sizes]
    if not rows:
        return None
    lines = (len(rows) + 1) // 2
    figure, axes = pyplot.subplots(lines, 2, figsize=(8, 0.6 + 2.7 * lines), squeeze=False)
    for axis in axes.flat[len(rows) :]:
        axis.set_visible(False)
    for axis, (label, sizes) in zip(axes.flat, rows):
        present = [size for size in FRAME_SIZES if size in sizes]
        places = [_MEGABYTES[size] for size in present]
        # The floor's line is the wider one: it shows on both sides of a product that costs the same.
        for values_ms, name, style in (
            (_floor_ms, "floor", {"color": _FLOOR, "linewidth": 5, "alpha": 0.6, "marker": "s", "markersize": 11}),
            (_product_ms, "product", {"color": _PRODUCT, "linewidth": 1.6, "marker": "o", "markersize": 5}),
        ):
            costs = [median(values_ms(sizes[size])) for size in present]
            axis.plot(places, costs, label=name, **style)
        axis.set_title(label, loc="left", fontsize=10, fontweight="bold")
        axis.set_xticks(list(_MEGABYTES.values()), [f"{size}\n{size_mb:.1f}" for size, size_mb in _MEGABYTES.items()])
        axis.set_xlim(0, 13.5)
        axis.set_ylim(bottom=0)
        axis.set_ylabel("ms a frame")
        axis.set_xlabel("frame, MB")
        axis.legend(frameon=False, loc="upper left")
    figure.suptitle("Cost against frame size (medians)")
    return figure


def _cameras(pyplot, results: Sequence[Result]):
    """What each of several cameras costs, beside one camera alone in the same minutes."""
    sizes = {int(size): result for size, result in _by_size(results, "cameras").items() if size.isdigit()}
    if len(sizes) < 2:
        return None
    counts = sorted(sizes)
    figure, (left, right) = pyplot.subplots(1, 2, figsize=(8, 3.4))
    costs = [median(_product_ms(sizes[count])) for count in counts]
    left.plot(counts, costs, "o-", color=_PRODUCT, label="each of so many", linewidth=1.6)
    alone = [median(_floor_ms(sizes[count]) or _product_ms(sizes[count])) for count in counts]
    left.plot(counts, alone, "s--", color=_FLOOR, label="one alone, same minutes", linewidth=1.6)
    left.set_ylabel("processor time, ms a sample")
    left.set_title("Cost per camera", loc="left", fontsize=10, fontweight="bold")
    left.set_ylim(0, 1.35 * max(costs + alone))

    compared = [count for count in counts if sizes[count].measurement.floor]
    for count in compared:
        judgement = sizes[count].judgement
        if math.isfinite(judgement.width):
            right.plot([count, count], [judgement.low, judgement.high], color=_PRODUCT, linewidth=1.6)
    right.plot(
        compared, [sizes[count].judgement.figure for count in compared], "o", color=_PRODUCT,
        label="ratio, 95 % interval",
    )  # fmt: skip
    right.axhline(1, color=_FLOOR, linewidth=1)
    right.axhline(row_named("cameras").bar, color="#c24a00", linestyle=":", linewidth=1.6, label="bar")
    right.set_ylabel("cost beside one alone")
    right.set_title("Growth", loc="left", fontsize=10, fontweight="bold")
    lowest, highest = right.get_ylim()
    right.set_ylim(lowest, highest + 0.35 * (highest - lowest))
    for axis in (left, right):
        axis.set_xticks(counts)
        axis.set_xlabel("cameras at 640x360, 30 frames a second")
        axis.legend(frameon=False, loc="upper left")
    figure.suptitle("Cost against the number of cameras")
    return figure


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m ravlo_bench.plots", description=__doc__.splitlines()[0])
    parser.add_argument("results", type=pathlib.Path, help="a file that scripts/bench.sh --json wrote")
    parser.add_argument("folder", type=pathlib.Path, help="where the pictures go")
    options = parser.parse_args(arguments)
    try:
        results, _ = read_results(options.results)
        written = draw_all(results, options.folder)
    except ImportError:
        print("plots: matplotlib is missing; scripts/setup.sh --plots installs it", file=sys.stderr)
        return 1
    except (OSError, ValueError) as error:
        print(f"plots: {error}", file=sys.stderr)
        return 1
    for path in written:
        print(f"plots: {path}", file=sys.stderr)
    if not written:
        print(f"plots: {options.results} has no figures for a picture", file=sys.stderr)
    return 0 if written else 1


if __name__ == "__main__":
    sys.exit(main())
