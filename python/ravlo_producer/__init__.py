"""Sends pictures to a Ravlo camera. Windows only; needs nothing but Python's standard library.

::

    from ravlo_producer import Camera

    with Camera(1280, 720, 30) as camera:
        while True:
            camera.send(next_picture())  # packed NV12 or RGB24
"""

from .camera import Camera, Demand
from .clock import FrameClock
from .nv12 import rgb24_to_nv12
from .transport import (
    AccessRefusedError,
    CameraAbsentError,
    CameraError,
    ConnectionLostError,
    UnsupportedSystemError,
    UntrustedOwnerError,
)
from .wire import DEFAULT_PIPE

__all__ = [
    "AccessRefusedError",
    "Camera",
    "CameraAbsentError",
    "CameraError",
    "ConnectionLostError",
    "DEFAULT_PIPE",
    "Demand",
    "FrameClock",
    "UnsupportedSystemError",
    "UntrustedOwnerError",
    "rgb24_to_nv12",
]
__version__ = "1.0.0"
