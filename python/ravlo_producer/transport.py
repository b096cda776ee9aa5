"""What a camera needs from the system that it runs on. The package's only implementation is for Windows."""

from __future__ import annotations

import re
import sys
from typing import Optional, Protocol

#: LOCAL SERVICE, which hosts cameras on Windows 11, and LOCAL SYSTEM.
_SYSTEM_OWNERS = ("S-1-5-19", "S-1-5-18")
#: Everyone, the interactive ones, the anonymous, everyone who has logged on, and the groups of every Windows: a user
#: is none of these, whatever the registry says.
_NO_USER = re.compile(r"S-1-1-0|S-1-5-(?:4|7|11|32-.*)", re.IGNORECASE)


class CameraError(Exception):
    """A camera cannot be served. Its text says what happened and what to do next."""


class UnsupportedSystemError(CameraError):
    """This system has no named pipes of the kind that a camera listens on."""


class CameraAbsentError(CameraError):
    """No camera serves this pipe, or another producer has it. It may come by itself."""


class AccessRefusedError(CameraError):
    """The camera does not admit this account."""


class UntrustedOwnerError(CameraError):
    """Somebody who may not own a camera's pipe serves one of its name. Nothing was sent."""


class ConnectionLostError(CameraError):
    """The camera has closed the connection, or a picture was not taken in time."""


class FramePipe(Protocol):
    """A connected frame pipe whose owner was found to be right."""

    def write(self, data: bytearray, timeout: float) -> None:
        """Sends all bytes within ``timeout`` seconds; raises ConnectionLostError and must then be closed."""

    def close(self) -> None:
        """Never raises."""


class GatePipe(Protocol):
    """A connected demand pipe whose owner was found to be right."""

    def poll(self) -> Optional[bytes]:
        """The next record that has come, 32 bytes, without waiting; None when none has.

        Raises ConnectionLostError and must then be closed.
        """

    def close(self) -> None:
        """Never raises."""


class Transport(Protocol):
    """Opens pipes. Both calls raise CameraAbsentError, AccessRefusedError, UntrustedOwnerError or CameraError."""

    def open_frames(self, name: str) -> FramePipe:
        """Tries once."""

    def open_gate(self, name: str) -> GatePipe:
        """Tries once."""


def is_trusted_owner(owner: Optional[str], authorized: Optional[str]) -> bool:
    """Whether the owner of a pipe, a SID as text, may host a camera.

    ``authorized`` is the SID that the administrator has written into the registry, if any.
    """
    if not owner or owner in _SYSTEM_OWNERS:
        return bool(owner)
    if authorized is None or _NO_USER.fullmatch(authorized):
        return False
    return owner.upper() == authorized.upper()


def system_transport() -> Transport:
    """The transport of this system; raises UnsupportedSystemError where there is none."""
    if sys.platform != "win32":
        raise UnsupportedSystemError(
            f"a Ravlo camera runs on Windows only, and this is {sys.platform}: run this program there"
        )
    from ._windows import WindowsTransport

    return WindowsTransport()
