"""The camera as a program with pictures sees it."""

from __future__ import annotations

import time
from types import TracebackType
from typing import Callable, NamedTuple, Optional, Type

from .clock import FrameClock, Rate
from .nv12 import Buffer, rgb24_to_nv12_into
from .transport import CameraAbsentError, CameraError, ConnectionLostError, FramePipe, GatePipe, Transport
from .transport import system_transport
from .wire import DEFAULT_PIPE, FRAME_HEADER_BYTES, decode_demand, frame_bytes, frame_header, gate_name, is_pipe_name

_RETRY_SECONDS = 0.05
#: A camera is asked for its demand pipe again after this time.
_GATE_RETRY_SECONDS = 0.5
#: Records come about every 0.5 s; when they stop for this long, nothing is known any more.
_LEASE_SECONDS = 2.0
#: Records of one look. A camera's pipe holds 128; a server without end must not hold its reader.
_RECORDS_A_LOOK = 256


class Demand(NamedTuple):
    """Whether anybody looks, as the camera said less than two seconds ago."""

    #: seconds since the camera was last asked for a picture, at most 3600, which also means "never"
    idle: float
    #: pictures asked for since the camera was last started
    requests: int


class Camera:
    """Sends pictures to a camera, at the camera's pace and over interruptions.

    ::

        with Camera(1280, 720, 30) as camera:
            while True:
                camera.send(next_picture())

    Size and rate are those of the camera, which neither scales nor tells them. One thread uses a camera.
    """

    def __init__(
        self,
        width: int,
        height: int,
        fps: Rate = 30,
        *,
        pipe: str = DEFAULT_PIPE,
        timeout: Optional[float] = None,
        write_timeout: float = 0.5,
        transport: Optional[Transport] = None,
        now: Callable[[], float] = time.perf_counter,
        sleep: Callable[[float], None] = time.sleep,
    ) -> None:
        """Does not connect yet; ``open``, or a ``with`` statement, does.

        ``timeout`` is how many seconds ``open`` waits for the camera, None meaning for ever. ``write_timeout`` is how
        long one picture may take to send. ``transport``, ``now`` and ``sleep`` are for tests. Raises ValueError for a
        size, rate, time or pipe name that no camera can have, UnsupportedSystemError on other systems than Windows.
        """
        self._header_and_picture = bytearray(FRAME_HEADER_BYTES + frame_bytes(width, height))
        if not is_pipe_name(pipe):
            raise ValueError(f"{pipe} is no pipe of a camera: they are called {DEFAULT_PIPE} and {DEFAULT_PIPE}.NUMBER")
        if not 0 < write_timeout <= 60:
            raise ValueError(f"a write timeout of {write_timeout} s: must be above 0 and at most 60")
        if timeout is not None and not timeout >= 0:
            raise ValueError(f"a timeout of {timeout} s: must not be negative")
        self.width = width
        self.height = height
        self.pipe = pipe
        self._clock = FrameClock(fps, now, sleep)
        self._timeout = timeout
        self._write_timeout = write_timeout
        self._now = now
        self._sleep = sleep
        self._transport = system_transport() if transport is None else transport
        self._frames: Optional[FramePipe] = None
        self._next_seq = 1
        self._gate: Optional[GatePipe] = None
        self._gate_due = float("-inf")
        self._gate_seen = float("-inf")
        self._demand: Optional[Demand] = None
        self._demand_ends = float("-inf")

    def __enter__(self) -> Camera:
        self.open()
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    @property
    def is_connected(self) -> bool:
        """A camera that has gone away is noticed by the next send, not by this."""
        return self._frames is not None

    def open(self) -> None:
        """Connects, and tries again every 50 ms while there is no camera or another producer has it.

        Raises CameraAbsentError when the timeout has passed, AccessRefusedError and UntrustedOwnerError at once.
        """
        end = None if self._timeout is None else self._now() + self._timeout
        while self._frames is None:
            try:
                self._frames = self._transport.open_frames(self.pipe)
            except CameraAbsentError:
                left = _RETRY_SECONDS if end is None else min(_RETRY_SECONDS, end - self._now())
                if left <= 0:
                    raise
                self._sleep(left)

    def close(self) -> None:
        """Ends both connections. The camera can be opened again."""
        self._close_frames()

    def send(self, frame: Buffer, pixel_format: Optional[str] = None) -> bool:
        """Waits until the next frame is due, then sends one picture. True when the camera's pipe has all of it.

        The camera may read the last MiB a little later.

        ``frame`` is anything with the buffer protocol: packed NV12 with studio levels in BT.709, or packed RGB24,
        which is converted. Its length tells which, unless ``pixel_format`` is "nv12" or "rgb24". While there is no
        connection each call tries once to make one, so a camera that comes back is served again. Raises ValueError for
        a buffer of another size; AccessRefusedError or UntrustedOwnerError as ``open`` does.
        """
        self._load(frame, pixel_format)
        self._clock.wait()
        if self._frames is None:
            try:
                self._frames = self._transport.open_frames(self.pipe)
            except CameraAbsentError:
                return False
        header = frame_header(self.width, self.height, self._next_seq)
        self._header_and_picture[:FRAME_HEADER_BYTES] = header
        self._next_seq += 1
        try:
            self._frames.write(self._header_and_picture, self._write_timeout)
        except ConnectionLostError:
            self._close_frames()
            return False
        except BaseException:
            # A picture that was cut short cannot be taken back.
            self._close_frames()
            raise
        return True

    @property
    def demand(self) -> Optional[Demand]:
        """What the camera last said about its demand; None when it has said nothing for two seconds.

        With None every picture is wanted. Never waits; ask a few times a second: records that have waited for two
        seconds before they were asked for count for nothing. None also while not connected: the camera tells its
        demand to one program alone, which should be the one that sends.
        """
        if self._frames is None:
            self._close_gate()
            return None
        now = self._now()
        self._take_records(now)
        return self._demand if now < self._demand_ends else None

    def _load(self, frame: Buffer, pixel_format: Optional[str]) -> None:
        """Puts the picture behind the header that is to come."""
        nv12_bytes = frame_bytes(self.width, self.height)
        sizes = {"nv12": nv12_bytes, "rgb24": 2 * nv12_bytes}
        with memoryview(frame) as given:
            size = given.nbytes
            if not given.c_contiguous:
                raise ValueError("the picture has gaps between its bytes: pack it first")
            if pixel_format is None:
                pixel_format = next((name for name, wanted in sizes.items() if wanted == size), None)
            elif pixel_format not in sizes:
                raise ValueError(f"pixel format {pixel_format}: must be nv12 or rgb24")
            if pixel_format is None or sizes[pixel_format] != size:
                raise ValueError(
                    f"{size} bytes are no {self.width}x{self.height} picture: "
                    f"that has {sizes['nv12']} bytes of NV12 or {sizes['rgb24']} of RGB24"
                )
            with memoryview(self._header_and_picture) as whole, whole[FRAME_HEADER_BYTES:] as picture:
                if pixel_format == "rgb24":
                    rgb24_to_nv12_into(given, self.width, self.height, picture)
                else:
                    with given.cast("B") as source:
                        picture[:] = source

    def _take_records(self, now: float) -> None:
        if self._gate is None and now >= self._gate_due:
            self._gate_due = now + _GATE_RETRY_SECONDS
            try:
                self._gate = self._transport.open_gate(gate_name(self.pipe))
            except CameraError:
                return  # a camera without a gate works as well
            self._gate_seen = now
        if self._gate is None:
            return
        # What has waited in the pipe for longer than the lease may be as old.
        is_late = now - self._gate_seen >= _LEASE_SECONDS
        self._gate_seen = now
        try:
            for _ in range(_RECORDS_A_LOOK):
                data = self._gate.poll()
                if data is None:
                    break
                record = decode_demand(data)
                if record is None:
                    raise ConnectionLostError("the demand pipe carries something else")
                if not is_late:
                    self._demand = Demand(record.idle_ms / 1000, record.requests)
                    self._demand_ends = now + _LEASE_SECONDS
        except CameraError:
            self._close_gate()
            self._gate_due = now + _GATE_RETRY_SECONDS

    def _close_frames(self) -> None:
        if self._frames is not None:
            self._frames.close()
            self._frames = None
        self._close_gate()

    def _close_gate(self) -> None:
        if self._gate is not None:
            self._gate.close()
            self._gate = None
        # A record does not outlive the connection it came by.
        self._demand_ends = float("-inf")
