"""What goes over the two pipes of a camera: names, frame headers and demand records.

Works on every system. All integers on the wire are little-endian.
"""

from __future__ import annotations

import re
import struct
from typing import NamedTuple, Optional

DEFAULT_PIPE = r"\\.\pipe\Ravlo"
_PIPE_NAME = re.compile(r"\\\\\.\\pipe\\Ravlo(?:\.[1-9][0-9]{0,9})?", re.ASCII)

FRAME_MAGIC = 0x4F4C5652  # the bytes "RVLO"
FRAME_VERSION = 2
FOURCC_NV12 = 0x3231564E  # the bytes "NV12"
MAX_DIMENSION = 16384
#: magic, version, width, height, bytes, format, seq, and 8 reserved bytes that are zero
_FRAME_HEADER = struct.Struct("<6IQ8x")
FRAME_HEADER_BYTES = _FRAME_HEADER.size

DEMAND_MAGIC = 0x45544147  # the bytes "GATE"
DEMAND_VERSION = 1
#: magic, version, sequence, idle, requests
_DEMAND_RECORD = struct.Struct("<2I3Q")
DEMAND_RECORD_BYTES = _DEMAND_RECORD.size
#: One hour in ms: nobody asks for samples.
DEMAND_IDLE_LIMIT_MS = 3_600_000


class DemandRecord(NamedTuple):
    """What the camera says about the demand for its pictures."""

    #: 1 for the first record of a camera, then one more for each; a gap is a record that was lost
    sequence: int
    #: ms since the last sample was asked for, at most DEMAND_IDLE_LIMIT_MS, which also means "never"
    idle_ms: int
    #: samples asked for since the camera was last started
    requests: int


def is_pipe_name(name: str) -> bool:
    r"""Whether a camera may serve this name: ``\\.\pipe\Ravlo``, or that with ``.N``."""
    return _PIPE_NAME.fullmatch(name) is not None


def gate_name(pipe: str) -> str:
    """The demand pipe that belongs to a frame pipe."""
    return pipe + ".gate"


def frame_bytes(width: int, height: int) -> int:
    """Bytes of a packed NV12 picture.

    Raises ValueError for a size that no frame header may name: odd, below 2, above 16384, or no whole number. A camera
    has at most as many bytes as 3840x2160.
    """
    for dimension in (width, height):
        if not isinstance(dimension, int) or not 2 <= dimension <= MAX_DIMENSION or dimension % 2:
            raise ValueError(f"{width}x{height}: width and height must be even and 2 to {MAX_DIMENSION}")
    return width * height * 3 // 2


def frame_header(width: int, height: int, seq: int) -> bytes:
    """The 40 bytes in front of a picture; ``seq`` is the producer's own frame number."""
    return _FRAME_HEADER.pack(
        FRAME_MAGIC, FRAME_VERSION, width, height, frame_bytes(width, height), FOURCC_NV12, seq
    )


def encode_demand(record: DemandRecord) -> bytes:
    """A demand record as the camera writes it; a longer idle time is cut to the limit."""
    idle = min(record.idle_ms, DEMAND_IDLE_LIMIT_MS)
    return _DEMAND_RECORD.pack(DEMAND_MAGIC, DEMAND_VERSION, record.sequence, idle, record.requests)


def decode_demand(data: bytes) -> Optional[DemandRecord]:
    """A demand record from its 32 bytes; None when they are no record of a version that is known here."""
    if len(data) != DEMAND_RECORD_BYTES:
        return None
    magic, version, sequence, idle, requests = _DEMAND_RECORD.unpack(data)
    if (magic, version) != (DEMAND_MAGIC, DEMAND_VERSION):
        return None
    return DemandRecord(sequence, idle, requests)
