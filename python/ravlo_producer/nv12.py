"""RGB24 to NV12 with studio levels in BT.709, in plain Python.

Right to one step, but slow: see the package's README for measured times. Whoever needs more speed converts with a
library of their own and sends NV12.
"""

from __future__ import annotations

from typing import List, Tuple, Union

from .wire import frame_bytes

Buffer = Union[bytes, bytearray, memoryview]

# Kr = 0.2126, Kb = 0.0722; luma spans 219 steps from 16, chroma 224 steps around 128. Sums are in units of 1 / 65536,
# rounded by the half step that the constant term holds.
_KR, _KB = 0.2126, 0.0722
_KG = 1 - _KR - _KB
_ONE = 1 << 16


def _table(step: float) -> List[int]:
    return [round(value * step * _ONE) for value in range(256)]


_LUMA_STEP = 219 / 255
_LUMA_RED = _table(_KR * _LUMA_STEP)
_LUMA_GREEN = _table(_KG * _LUMA_STEP)
_LUMA_BLUE = [value + 16 * _ONE + _ONE // 2 for value in _table(_KB * _LUMA_STEP)]

_CB_STEP = 224 / 255 / (2 * (1 - _KB))
_CR_STEP = 224 / 255 / (2 * (1 - _KR))


def _factors(red: float, green: float, blue: float, step: float) -> Tuple[int, int, int]:
    """For sums of four pixels, whence the quarter."""
    return (round(red * step * _ONE / 4), round(green * step * _ONE / 4), round(blue * step * _ONE / 4))


_CB = _factors(-_KR, -_KG, 1 - _KB, _CB_STEP)
_CR = _factors(1 - _KR, -_KG, -_KB, _CR_STEP)
_CHROMA_BASE = 128 * _ONE + _ONE // 2


def _luma(rgb: memoryview) -> bytes:
    red, green, blue = _LUMA_RED, _LUMA_GREEN, _LUMA_BLUE
    pixels = zip(bytes(rgb[0::3]), bytes(rgb[1::3]), bytes(rgb[2::3]))
    return bytes([(red[r] + green[g] + blue[b]) >> 16 for r, g, b in pixels])


def _sums(upper: memoryview, lower: memoryview, component: int) -> List[int]:
    """One component of two rows, added up over each 2 x 2 pixels."""
    return [
        a + b + c + d
        for a, b, c, d in zip(
            bytes(upper[component::6]),
            bytes(upper[component + 3 :: 6]),
            bytes(lower[component::6]),
            bytes(lower[component + 3 :: 6]),
        )
    ]


def _chroma(upper: memoryview, lower: memoryview) -> bytes:
    red, green, blue = (_sums(upper, lower, component) for component in range(3))
    row = bytearray(2 * len(red))
    for offset, (from_red, from_green, from_blue) in enumerate((_CB, _CR)):
        row[offset::2] = bytes(
            [
                (_CHROMA_BASE + from_red * r + from_green * g + from_blue * b) >> 16
                for r, g, b in zip(red, green, blue)
            ]
        )
    return bytes(row)


def rgb24_to_nv12_into(rgb: Buffer, width: int, height: int, target: memoryview) -> None:
    """Converts packed RGB24, rows top-down, into ``target``, a writable view of the size of the NV12 picture.

    Chroma is the mean of each 2 x 2 pixels. Raises ValueError when a buffer has another size than the picture.
    """
    pixels = width * height
    size = frame_bytes(width, height)
    with memoryview(rgb) as given, given.cast("B") as source:
        if len(source) != pixels * 3 or len(target) != size:
            raise ValueError(f"a {width}x{height} picture has {pixels * 3} bytes of RGB24 and {size} of NV12")
        stride = 3 * width
        target[:pixels] = _luma(source)
        for row in range(0, height, 2):
            upper = source[row * stride : (row + 1) * stride]
            lower = source[(row + 1) * stride : (row + 2) * stride]
            begin = pixels + row // 2 * width
            target[begin : begin + width] = _chroma(upper, lower)


def rgb24_to_nv12(rgb: Buffer, width: int, height: int) -> bytearray:
    """Packed RGB24 as a new NV12 picture; see rgb24_to_nv12_into."""
    nv12 = bytearray(frame_bytes(width, height))
    with memoryview(nv12) as target:
        rgb24_to_nv12_into(rgb, width, height, target)
    return nv12
