"""Sends a moving test picture: ``python -m ravlo_producer --test``."""

from __future__ import annotations

import argparse
import re
import sys
import time
from fractions import Fraction
from typing import Iterator, List, Optional, Tuple

from . import __version__
from .camera import Camera
from .clock import FASTEST_RATE, SLOWEST_RATE
from .transport import AccessRefusedError, CameraAbsentError, CameraError, UnsupportedSystemError
from .wire import DEFAULT_PIPE, frame_bytes

# The exit codes of all programs around the camera.
_FAILURE, _ACCESS_DENIED, _ABSENT, _UNSUPPORTED, _INTERRUPTED = 1, 4, 5, 6, 130

#: Luma, Cb and Cr of bars at three quarters of full level.
_BARS = (
    (180, 128, 128), (168, 44, 136), (145, 147, 44), (133, 63, 52),
    (63, 193, 204), (51, 109, 212), (28, 212, 120), (16, 128, 128),
)  # fmt: skip


def _size(text: str) -> Tuple[int, int]:
    match = re.fullmatch(r"([0-9]{1,5})x([0-9]{1,5})", text, re.ASCII)
    if not match:
        raise argparse.ArgumentTypeError(f"{text} is no size such as 1280x720")
    width, height = int(match[1]), int(match[2])
    try:
        frame_bytes(width, height)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None
    return width, height


def _rate(text: str) -> Fraction:
    # Without a bound and exponents: 1e999999999 would take all memory.
    match = re.fullmatch(r"[0-9]{1,9}(?:/[0-9]{1,9}|\.[0-9]{1,9})?", text, re.ASCII)
    try:
        rate = Fraction(text) if match else None
    except ZeroDivisionError:
        rate = None
    if rate is None:
        raise argparse.ArgumentTypeError(f"{text:.40} is no rate such as 30, 29.97 or 30000/1001")
    if not SLOWEST_RATE <= rate <= FASTEST_RATE:
        raise argparse.ArgumentTypeError(f"{text}: the rate must be from one frame an hour (1/3600) to {FASTEST_RATE}")
    return rate


def _seconds(text: str) -> float:
    try:
        seconds = float(text)
    except ValueError:
        seconds = -1.0
    if not 0 <= seconds <= 1e9:
        raise argparse.ArgumentTypeError(f"{text} is no number of seconds")
    return seconds


def test_pictures(width: int, height: int) -> Iterator[bytes]:
    """Colour bars that move to the left by four pixels a picture, as NV12."""
    luma = bytearray()
    chroma = bytearray()
    for x in range(0, width, 2):
        y, cb, cr = _BARS[x * len(_BARS) // width]
        luma += bytes((y, y))
        chroma += bytes((cb, cr))
    shift = 0
    while True:
        yield (luma[shift:] + luma[:shift]) * height + (chroma[shift:] + chroma[:shift]) * (height // 2)
        shift = (shift + 4) % width


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python -m ravlo_producer",
        description="Sends a moving test picture to a Ravlo camera.",
        epilog="example: python -m ravlo_producer --test --size 1280x720 --rate 30 --seconds 60",
    )
    parser.add_argument("--version", action="version", version=f"%(prog)s {__version__}")
    parser.add_argument("--test", action="store_true", required=True, help="send the test picture")
    parser.add_argument("--size", type=_size, default=(1920, 1080), metavar="WxH", help="the camera's (1920x1080)")
    parser.add_argument("--rate", type=_rate, default=Fraction(30), metavar="N/D", help="frames a second (30)")
    parser.add_argument("--pipe", default=DEFAULT_PIPE, metavar="NAME", help=f"the camera's pipe ({DEFAULT_PIPE})")
    parser.add_argument("--seconds", type=_seconds, help="end after this time (never)")
    parser.add_argument("--timeout", type=_seconds, metavar="SECONDS", help="wait this long for a camera (for ever)")
    return parser


def _say(text: str) -> None:
    print(f"ravlo_producer: {text}", file=sys.stderr)


def _run(options: argparse.Namespace, camera: Camera) -> int:
    width, height = options.size
    taken = lost = 0
    code = 0
    try:
        with camera:
            _say(f"connected to {options.pipe}")
            end = None if options.seconds is None else time.perf_counter() + options.seconds
            for picture in test_pictures(width, height):
                if end is not None and time.perf_counter() >= end:
                    break
                if camera.send(picture):
                    taken += 1
                else:
                    lost += 1
    except KeyboardInterrupt:
        code = _INTERRUPTED
    _say(f"{taken} pictures taken, {lost} lost")
    return code


def main(arguments: Optional[List[str]] = None) -> int:
    """Runs the program with these arguments, by default those of the process, and returns its exit code."""
    parser = _parser()
    options = parser.parse_args(arguments)
    try:
        camera = Camera(*options.size, options.rate, pipe=options.pipe, timeout=options.timeout)
    except ValueError as error:
        parser.error(str(error))
    except UnsupportedSystemError as error:
        _say(str(error))
        return _UNSUPPORTED
    try:
        return _run(options, camera)
    except AccessRefusedError as error:
        _say(str(error))
        return _ACCESS_DENIED
    except CameraAbsentError as error:
        _say(str(error))
        return _ABSENT
    except CameraError as error:
        _say(str(error))
        return _FAILURE


if __name__ == "__main__":
    sys.exit(main())
