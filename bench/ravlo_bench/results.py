"""The file of results: machine, options, and every row with its raw values and its judgement."""

from __future__ import annotations

import contextlib
import json
import math
import pathlib
from dataclasses import asdict
from typing import Dict, List, Tuple

from .judge import Judgement
from .measurements import Measurement
from .rows import row_named
from .runner import Outcome, Result


def write_results(path: pathlib.Path, outcome: Outcome, about: Dict) -> None:
    """`about` says when, where and how it was measured; texts and numbers. OSError when it cannot be written."""
    content = {**about, "failures": outcome.failures, "rows": [_row(result) for result in outcome.results]}
    path.parent.mkdir(parents=True, exist_ok=True)
    # An earlier file stays whole until this one is.
    new = path.with_name(path.name + ".new")
    try:
        new.write_text(json.dumps(content, indent=1) + "\n", encoding="utf-8")
        new.replace(path)
    except OSError:
        with contextlib.suppress(OSError):
            new.unlink()
        raise


def read_results(path: pathlib.Path) -> Tuple[List[Result], Dict]:
    """The results of a file that write_results wrote, and all that it says beside them. ValueError when it is none."""
    content = json.loads(path.read_text(encoding="utf-8"))
    try:
        return [_result(entry) for entry in content.pop("rows")], content
    except (KeyError, TypeError, AttributeError) as error:
        raise ValueError(f"{path} holds no results ({error!r})") from None


def _row(result: Result) -> Dict:
    judgement = {key: _finite(value) for key, value in asdict(result.judgement).items()}
    return {
        "number": result.row.number,
        "row": result.row.name,
        "title": result.row.title,
        "size": result.size,
        "where": result.where,
        "runs": result.runs,
        "judgement": {"kind": result.row.kind.value, "unit": result.row.unit, **judgement},
        "measurement": result.measurement
        and {
            "unit": result.measurement.unit,
            "floor": result.measurement.floor,
            "product": result.measurement.product,
            "context": result.measurement.context,
        },
    }


def _result(entry: Dict) -> Result:
    name, size, where = entry["row"], entry["size"], entry["where"]
    told = {key: value for key, value in entry["judgement"].items() if key not in ("kind", "unit")}
    # Bounds that a sample was too small for.
    told["low"] = -math.inf if told["low"] is None else told["low"]
    told["high"] = math.inf if told["high"] is None else told["high"]
    measured = entry["measurement"]
    measurement = Measurement(name, size, where, **measured) if measured else None
    return Result(row_named(name), size, where, measurement, Judgement(**told), entry["runs"])


def _finite(value):
    return None if isinstance(value, float) and not math.isfinite(value) else value
