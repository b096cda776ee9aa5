"""A kernel made of Python, for the file that calls the system."""

import ctypes

import context  # noqa: F401 - finds the package
from ravlo_producer import _windows as windows

#: Owns the pipes.
USER = "S-1-5-21-1-2-3-1001"


class Kernel:
    """Answers the declared functions. Handles are small numbers; one transfer is under way at a time."""

    def __init__(self):
        self.calls = []
        self.error = 0
        self.open_error = 0
        self.event_fails = False
        self.owner = ctypes.create_unicode_buffer(USER)
        self.owner_error = 0
        self.cancel_error = 0
        self.begin_error = 997  # pending
        self.is_done = True
        self.moved = 0
        self.result_error = 0
        self.data = b""
        self.buffer = None

    def __getattr__(self, name):
        for (_, declared), (result, arguments) in windows.PROTOTYPES.items():
            if name == declared:
                return self._function(name, arguments)
        raise AttributeError(name)

    def _function(self, name, declared):
        def call(*arguments):
            if len(arguments) != len(declared):
                raise TypeError(f"{name} takes {len(declared)} arguments, not {len(arguments)}")
            for kind, argument in zip(declared, arguments):
                kind.from_param(argument)  # raises when the prototype does not allow it
            self.calls.append((name, *arguments))
            return getattr(self, "on_" + name)(*arguments)

        return call

    def last_error(self):
        return self.error

    def names(self):
        return [call[0] for call in self.calls]

    def fail(self, error):
        self.error = error
        return 0

    def on_CreateFileW(self, *arguments):
        if self.open_error:
            self.error = self.open_error
            return windows.INVALID_HANDLE_VALUE
        return 101

    def on_CreateEventW(self, *arguments):
        return self.fail(8) if self.event_fails else 102

    def on_CloseHandle(self, handle):
        return 1

    def on_GetSecurityInfo(self, handle, kind, what, owner, group, dacl, sacl, descriptor):
        if self.owner_error:
            return self.owner_error
        owner._obj.value = 7000 if self.owner else None
        descriptor._obj.value = 8000
        return 0

    def on_ConvertSidToStringSidW(self, sid, text):
        text._obj.value = ctypes.addressof(self.owner)
        return 1

    def on_LocalFree(self, memory):
        return 0

    def on_WriteFile(self, handle, buffer, size, moved, overlapped):
        self.data = bytes(buffer)
        return 1 if self.begin_error == 0 else self.fail(self.begin_error)

    def on_ReadFile(self, handle, buffer, size, moved, overlapped):
        self.buffer = buffer
        return 1 if self.begin_error == 0 else self.fail(self.begin_error)

    def on_WaitForSingleObject(self, event, milliseconds):
        return 0 if self.is_done else 258

    def on_GetOverlappedResult(self, handle, overlapped, moved, wait):
        if self.result_error:
            return self.fail(self.result_error)
        if not self.is_done:
            return self.fail(995 if wait else 996)
        moved._obj.value = self.moved
        return 1

    def on_CancelIoEx(self, handle, overlapped):
        return self.fail(self.cancel_error) if self.cancel_error else 1
