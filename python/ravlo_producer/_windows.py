"""The pipes of a camera on Windows, through ctypes: the only file that knows the system."""

from __future__ import annotations

import ctypes
from typing import Any, Callable, Dict, Optional, Tuple

from .transport import AccessRefusedError, CameraAbsentError, CameraError, ConnectionLostError, UntrustedOwnerError
from .transport import is_trusted_owner
from .wire import DEMAND_RECORD_BYTES

# The types of ctypes.wintypes have other sizes on other systems; these are the same everywhere.
BOOL = ctypes.c_int32
DWORD = ctypes.c_uint32
HANDLE = ctypes.c_void_p
LPVOID = ctypes.c_void_p
LPCWSTR = ctypes.c_wchar_p

GENERIC_READ = 0x80000000
GENERIC_WRITE = 0x40000000
READ_CONTROL = 0x00020000
OPEN_EXISTING = 3
FILE_FLAG_OVERLAPPED = 0x40000000
SECURITY_SQOS_PRESENT = 0x00100000
#: The server may find out who we are, but not act in our name.
SECURITY_IDENTIFICATION = 0x00010000
OPEN_FLAGS = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION
INVALID_HANDLE_VALUE = ctypes.c_void_p(-1).value

SE_KERNEL_OBJECT = 6
OWNER_SECURITY_INFORMATION = 1

ERROR_FILE_NOT_FOUND = 2
ERROR_ACCESS_DENIED = 5
ERROR_PIPE_BUSY = 231
#: How a pipe says that its other end is gone: ERROR_BROKEN_PIPE, ERROR_NO_DATA, ERROR_PIPE_NOT_CONNECTED.
PEER_GONE = (109, 232, 233)
ERROR_IO_INCOMPLETE = 996
ERROR_IO_PENDING = 997
WAIT_OBJECT_0 = 0

ANCHOR_KEY = r"SOFTWARE\Ravlo"
ANCHOR_VALUE = "AuthorizedUserSid"

#: A transfer that can no longer be cancelled tells its end within this time.
_END_SECONDS = 0.1


class Overlapped(ctypes.Structure):
    """OVERLAPPED: one read or write that is under way."""

    _fields_ = [
        ("internal", ctypes.c_size_t),
        ("internal_high", ctypes.c_size_t),
        ("offset", DWORD),
        ("offset_high", DWORD),
        ("event", HANDLE),
    ]


#: Library and function with what it returns and takes.
PROTOTYPES: Dict[Tuple[str, str], Tuple[Any, Tuple[Any, ...]]] = {
    ("kernel32", "CreateFileW"): (HANDLE, (LPCWSTR, DWORD, DWORD, LPVOID, DWORD, DWORD, HANDLE)),
    ("kernel32", "CreateEventW"): (HANDLE, (LPVOID, BOOL, BOOL, LPCWSTR)),
    ("kernel32", "CloseHandle"): (BOOL, (HANDLE,)),
    ("kernel32", "WriteFile"): (BOOL, (HANDLE, LPVOID, DWORD, ctypes.POINTER(DWORD), ctypes.POINTER(Overlapped))),
    ("kernel32", "ReadFile"): (BOOL, (HANDLE, LPVOID, DWORD, ctypes.POINTER(DWORD), ctypes.POINTER(Overlapped))),
    ("kernel32", "GetOverlappedResult"): (
        BOOL,
        (HANDLE, ctypes.POINTER(Overlapped), ctypes.POINTER(DWORD), BOOL),
    ),
    ("kernel32", "CancelIoEx"): (BOOL, (HANDLE, ctypes.POINTER(Overlapped))),
    ("kernel32", "WaitForSingleObject"): (DWORD, (HANDLE, DWORD)),
    ("kernel32", "LocalFree"): (LPVOID, (LPVOID,)),
    ("advapi32", "GetSecurityInfo"): (
        DWORD,
        (
            HANDLE,
            ctypes.c_int32,
            DWORD,
            ctypes.POINTER(LPVOID),
            ctypes.POINTER(LPVOID),
            ctypes.POINTER(LPVOID),
            ctypes.POINTER(LPVOID),
            ctypes.POINTER(LPVOID),
        ),
    ),
    ("advapi32", "ConvertSidToStringSidW"): (BOOL, (LPVOID, ctypes.POINTER(LPVOID))),
}


class System:
    """The functions of PROTOTYPES as attributes, and the error code of the last one that failed."""

    def __init__(self, load: Optional[Callable[..., Any]] = None, last_error: Optional[Callable[[], int]] = None):
        """``load`` opens a library by its name, ``last_error`` reads the thread's error code; both are for tests."""
        if load is None:
            load = ctypes.WinDLL  # type: ignore[attr-defined]
        self.last_error: Callable[[], int] = (
            ctypes.get_last_error if last_error is None else last_error  # type: ignore[attr-defined]
        )
        libraries = {name: load(name, use_last_error=True) for name, _ in PROTOTYPES}
        for (library, name), (result, arguments) in PROTOTYPES.items():
            function = getattr(libraries[library], name)
            function.restype = result
            function.argtypes = arguments
            setattr(self, name, function)

    def __getattr__(self, name: str) -> Any:
        raise AttributeError(f"{name} is not among the declared functions")


def authorized_user() -> Optional[str]:
    """The SID that an administrator has written into the registry; None without one."""
    import winreg

    access = winreg.KEY_READ | winreg.KEY_WOW64_64KEY  # type: ignore[attr-defined]
    try:
        with winreg.OpenKey(winreg.HKEY_LOCAL_MACHINE, ANCHOR_KEY, 0, access) as key:  # type: ignore[attr-defined]
            value, kind = winreg.QueryValueEx(key, ANCHOR_VALUE)  # type: ignore[attr-defined]
    except OSError:
        return None
    return value if kind == winreg.REG_SZ else None  # type: ignore[attr-defined]


def _loss(error: int) -> ConnectionLostError:
    if error in PEER_GONE:
        return ConnectionLostError(f"the camera has closed the connection (error {error})")
    return ConnectionLostError(f"the system has refused a transfer over the camera's pipe (error {error})")


class _Pipe:
    """An open pipe with one event, for one read or write at a time."""

    def __init__(self, system: System, handle: int) -> None:
        self._system = system
        self._handle: Optional[int] = handle
        self._event: Optional[int] = None
        self._overlapped = Overlapped()

    def prepare(self) -> None:
        """Makes the event. Raises CameraError when the system has none."""
        self._event = self._system.CreateEventW(None, True, False, None)
        if not self._event:
            raise CameraError(f"the system refused an event (error {self._system.last_error()})")

    def owner(self) -> Optional[str]:
        """The SID of the pipe's owner as text; None when it has none or cannot be read.

        Raises CameraAbsentError when the camera has hung up meanwhile: that pipe has no owner any more.
        """
        owner, descriptor, text = LPVOID(), LPVOID(), LPVOID()
        error = self._system.GetSecurityInfo(
            self._handle,
            SE_KERNEL_OBJECT,
            OWNER_SECURITY_INFORMATION,
            ctypes.byref(owner),
            None,
            None,
            None,
            ctypes.byref(descriptor),
        )
        if error in PEER_GONE:
            raise CameraAbsentError(f"the camera has closed its pipe (error {error}): it is restarting")
        if error:
            return None
        try:
            if not owner.value or not self._system.ConvertSidToStringSidW(owner, ctypes.byref(text)):
                return None
            try:
                return ctypes.wstring_at(text.value)
            finally:
                self._system.LocalFree(text)
        finally:
            self._system.LocalFree(descriptor)

    def begin(self, function: Any, buffer: Any, size: int) -> None:
        """Starts a read or write. The buffer must stay until ``finish`` or ``cancel``."""
        ctypes.memset(ctypes.byref(self._overlapped), 0, ctypes.sizeof(self._overlapped))
        self._overlapped.event = self._event
        if not function(self._handle, buffer, size, None, ctypes.byref(self._overlapped)):
            error = self._system.last_error()
            if error != ERROR_IO_PENDING:
                raise _loss(error)

    def wait(self, timeout: float) -> bool:
        """Whether what was begun is over after at most ``timeout`` seconds."""
        return bool(self._system.WaitForSingleObject(self._event, max(0, int(timeout * 1000))) == WAIT_OBJECT_0)

    def finish(self, wait: bool = False) -> Optional[int]:
        """How many bytes what was begun has moved; None while it is under way."""
        moved = DWORD()
        if self._system.GetOverlappedResult(
            self._handle, ctypes.byref(self._overlapped), ctypes.byref(moved), wait
        ):
            return moved.value
        error = self._system.last_error()
        if error == ERROR_IO_INCOMPLETE:
            return None
        raise _loss(error)

    def cancel(self) -> None:
        """Ends what was begun, if anything, and returns when the system no longer touches the buffer. Never raises."""
        if not self._system.CancelIoEx(self._handle, ctypes.byref(self._overlapped)):
            # Over, or never begun: then its end would be waited for without end.
            self.wait(_END_SECONDS)
            return
        try:
            self.finish(wait=True)
        except ConnectionLostError:
            pass  # this is how a cancelled transfer ends

    def close(self) -> None:
        """Nothing may be under way."""
        for handle in (self._handle, self._event):
            if handle:
                self._system.CloseHandle(handle)
        self._handle = self._event = None


class WindowsFramePipe:
    """See transport.FramePipe."""

    def __init__(self, system: System, pipe: _Pipe) -> None:
        self._system = system
        self._pipe = pipe

    def write(self, data: bytearray, timeout: float) -> None:
        buffer = (ctypes.c_char * len(data)).from_buffer(data)
        is_over = False
        try:
            self._pipe.begin(self._system.WriteFile, buffer, len(data))
            is_over = self._pipe.wait(timeout)
        except ConnectionLostError:
            is_over = True  # nothing was begun
            raise
        finally:
            # Also when the user interrupts: the buffer is the caller's again when this returns.
            if not is_over:
                self._pipe.cancel()
        if not is_over:
            raise ConnectionLostError(f"the camera did not take a picture within {timeout} s")
        if self._pipe.finish(wait=True) != len(data):
            raise ConnectionLostError("the camera took only a part of a picture")

    def close(self) -> None:
        self._pipe.close()

    def __del__(self) -> None:
        self.close()


class WindowsGatePipe:
    """See transport.GatePipe."""

    def __init__(self, system: System, pipe: _Pipe) -> None:
        self._system = system
        self._pipe = pipe
        self._buffer = ctypes.create_string_buffer(DEMAND_RECORD_BYTES)
        self._is_reading = False

    def poll(self) -> Optional[bytes]:
        try:
            if not self._is_reading:
                # Said before it is so: an interrupt in between must not leave a read that nobody knows of.
                self._is_reading = True
                self._pipe.begin(self._system.ReadFile, self._buffer, DEMAND_RECORD_BYTES)
            moved = self._pipe.finish()
        except ConnectionLostError:
            self._is_reading = False
            raise
        if moved is None:
            return None
        self._is_reading = False
        return self._buffer.raw[:moved]

    def close(self) -> None:
        if self._is_reading:
            self._pipe.cancel()
            self._is_reading = False
        self._pipe.close()

    def __del__(self) -> None:
        # The system writes into the buffer until the read is cancelled, also when nobody holds this object any more.
        self.close()


class WindowsTransport:
    """See transport.Transport."""

    def __init__(
        self, system: Optional[System] = None, authorized: Callable[[], Optional[str]] = authorized_user
    ) -> None:
        self._system = System() if system is None else system
        self._authorized = authorized

    def open_frames(self, name: str) -> WindowsFramePipe:
        return WindowsFramePipe(self._system, self._open(name, GENERIC_WRITE))

    def open_gate(self, name: str) -> WindowsGatePipe:
        return WindowsGatePipe(self._system, self._open(name, GENERIC_READ))

    def _open(self, name: str, access: int) -> _Pipe:
        handle = self._system.CreateFileW(name, access, 0, None, OPEN_EXISTING, OPEN_FLAGS, None)
        if handle is None or handle == INVALID_HANDLE_VALUE:
            raise self._refusal(name, self._system.last_error())
        pipe = _Pipe(self._system, handle)
        try:
            pipe.prepare()
            owner = pipe.owner()
            if not is_trusted_owner(owner, self._authorized()):
                raise UntrustedOwnerError(
                    f"{name} belongs to {owner or 'nobody known'}, who may not host a camera: nothing was sent. "
                    "End the program that serves this pipe, or have the right user authorized with rvsetup"
                )
        except BaseException:
            pipe.close()
            raise
        return pipe

    @staticmethod
    def _refusal(name: str, error: int) -> CameraError:
        if error == ERROR_FILE_NOT_FOUND:
            return CameraAbsentError(f"no camera serves {name}: start one, or check the pipe's name")
        if error == ERROR_PIPE_BUSY:
            return CameraAbsentError(f"another producer is connected to {name}: end it first")
        if error == ERROR_ACCESS_DENIED:
            return AccessRefusedError(f"{name} does not admit this account: authorize it with rvsetup install --me")
        return CameraError(f"{name} cannot be opened (error {error})")
