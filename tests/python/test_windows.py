"""The Windows file against a kernel made of Python: layouts, constants, and which call follows which."""

import ctypes
import gc
import unittest

import context  # noqa: F401 - finds the package
from kernel import USER, Kernel
from ravlo_producer import _windows as windows
from ravlo_producer import transport

PIPE = r"\\.\pipe\Ravlo.7"


class LayoutTest(unittest.TestCase):
    def test_types_have_their_sizes_of_64_bit_windows(self):
        self.assertEqual(ctypes.sizeof(windows.BOOL), 4)
        self.assertEqual(ctypes.sizeof(windows.DWORD), 4)
        self.assertEqual(ctypes.sizeof(windows.HANDLE), 8)
        self.assertEqual(ctypes.sizeof(windows.LPVOID), 8)

    def test_overlapped_is_laid_out_as_on_64_bit_windows(self):
        self.assertEqual(ctypes.sizeof(windows.Overlapped), 32)
        offsets = [getattr(windows.Overlapped, name).offset for name, _ in windows.Overlapped._fields_]
        self.assertEqual(offsets, [0, 8, 16, 20, 24])

    def test_constants_are_those_of_the_system(self):
        self.assertEqual(windows.GENERIC_READ, 0x80000000)
        self.assertEqual(windows.GENERIC_WRITE, 0x40000000)
        self.assertEqual(windows.OPEN_EXISTING, 3)
        self.assertEqual(windows.OPEN_FLAGS, 0x40110000)
        self.assertEqual(windows.INVALID_HANDLE_VALUE, 0xFFFFFFFFFFFFFFFF)
        self.assertEqual(windows.SE_KERNEL_OBJECT, 6)
        self.assertEqual(windows.OWNER_SECURITY_INFORMATION, 1)
        self.assertEqual((windows.ERROR_IO_INCOMPLETE, windows.ERROR_IO_PENDING), (996, 997))

    def test_every_function_declares_what_it_returns_and_takes(self):
        numbers = {name: len(arguments) for (_, name), (_, arguments) in windows.PROTOTYPES.items()}
        self.assertEqual(
            numbers,
            {
                "CreateFileW": 7,
                "CreateEventW": 4,
                "CloseHandle": 1,
                "WriteFile": 5,
                "ReadFile": 5,
                "GetOverlappedResult": 4,
                "CancelIoEx": 2,
                "WaitForSingleObject": 2,
                "LocalFree": 1,
                "GetSecurityInfo": 8,
                "ConvertSidToStringSidW": 2,
            },
        )
        for (_, name), (result, arguments) in windows.PROTOTYPES.items():
            for declared in (result, *arguments):
                # Whatever is a pointer or a handle must have 64 bits: an undeclared one is cut to 32.
                self.assertIn(ctypes.sizeof(declared), (4, 8), name)
        returns_pointer = {name for (_, name), (result, _) in windows.PROTOTYPES.items() if ctypes.sizeof(result) == 8}
        self.assertEqual(returns_pointer, {"CreateFileW", "CreateEventW", "LocalFree"})


class KernelTest(unittest.TestCase):
    def setUp(self):
        self.kernel = Kernel()
        self.transport = windows.WindowsTransport(self.kernel, lambda: USER)

    def count(self, name):
        return self.kernel.names().count(name)


class OpeningTest(KernelTest):
    def test_frame_pipe_is_opened_for_writing_and_gives_nothing_away(self):
        self.transport.open_frames(PIPE)
        self.assertEqual(self.kernel.calls[0], ("CreateFileW", PIPE, 0x40000000, 0, None, 3, 0x40110000, None))

    def test_demand_pipe_is_opened_for_reading(self):
        self.transport.open_gate(PIPE + ".gate")
        self.assertEqual(
            self.kernel.calls[0], ("CreateFileW", PIPE + ".gate", 0x80000000, 0, None, 3, 0x40110000, None)
        )

    def test_errors_have_their_meaning(self):
        for code, error in (
            (2, transport.CameraAbsentError),
            (231, transport.CameraAbsentError),
            (5, transport.AccessRefusedError),
            (1450, transport.CameraError),
        ):
            self.kernel.open_error = code
            with self.assertRaises(error) as caught:
                self.transport.open_frames(PIPE)
            self.assertIs(type(caught.exception), error)
        self.assertEqual(self.count("CloseHandle"), 0)

    def test_owner_is_read_before_anything_is_sent_and_memory_given_back(self):
        self.transport.open_frames(PIPE)
        self.assertEqual(self.kernel.calls[2][:4], ("GetSecurityInfo", 101, 6, 1))
        self.assertEqual(self.count("LocalFree"), 2)

    def test_wrong_owner_is_refused_and_the_handles_are_closed(self):
        self.kernel.owner = ctypes.create_unicode_buffer("S-1-5-21-9-9-9-1001")
        with self.assertRaisesRegex(transport.UntrustedOwnerError, "S-1-5-21-9-9-9-1001"):
            self.transport.open_frames(PIPE)
        self.assertEqual(self.kernel.calls[-2:], [("CloseHandle", 101), ("CloseHandle", 102)])
        self.assertEqual(self.count("WriteFile"), 0)

    def test_pipe_without_an_owner_is_refused(self):
        self.kernel.owner = None
        with self.assertRaises(transport.UntrustedOwnerError):
            self.transport.open_gate(PIPE + ".gate")

    def test_camera_that_hangs_up_while_its_owner_is_read_is_absent_and_no_stranger(self):
        for code in (109, 232, 233):
            self.kernel.owner_error = code
            with self.assertRaises(transport.CameraAbsentError):
                self.transport.open_frames(PIPE)
            self.assertEqual(self.kernel.calls[-2:], [("CloseHandle", 101), ("CloseHandle", 102)])

    def test_owner_that_cannot_be_read_for_another_reason_is_a_stranger(self):
        self.kernel.owner_error = 5
        with self.assertRaises(transport.UntrustedOwnerError):
            self.transport.open_frames(PIPE)

    def test_interrupt_while_opening_leaves_no_handle(self):
        for place in ("GetSecurityInfo", "CreateEventW"):
            kernel = Kernel()

            def interrupt(*arguments):
                raise KeyboardInterrupt

            setattr(kernel, "on_" + place, interrupt)
            with self.assertRaises(KeyboardInterrupt):
                windows.WindowsTransport(kernel, lambda: USER).open_frames(PIPE)
            self.assertIn(("CloseHandle", 101), kernel.calls)

    def test_pipe_is_closed_when_there_is_no_event(self):
        self.kernel.event_fails = True
        with self.assertRaises(transport.CameraError):
            self.transport.open_frames(PIPE)
        self.assertEqual(self.kernel.calls[-1], ("CloseHandle", 101))


class WritingTest(KernelTest):
    def setUp(self):
        super().setUp()
        self.pipe = self.transport.open_frames(PIPE)
        self.kernel.calls.clear()
        self.kernel.moved = 4

    def test_write_waits_for_its_end(self):
        self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.kernel.data, b"abcd")
        self.assertEqual(self.kernel.names(), ["WriteFile", "WaitForSingleObject", "GetOverlappedResult"])
        self.assertEqual(self.kernel.calls[1], ("WaitForSingleObject", 102, 250))

    def test_write_that_ends_at_once_counts(self):
        self.kernel.begin_error = 0
        self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.count("GetOverlappedResult"), 1)

    def test_write_that_takes_too_long_is_cancelled_and_waited_for(self):
        self.kernel.is_done = False
        with self.assertRaises(transport.ConnectionLostError):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(
            self.kernel.names(), ["WriteFile", "WaitForSingleObject", "CancelIoEx", "GetOverlappedResult"]
        )
        self.assertIs(self.kernel.calls[-1][4], True)

    def test_interrupted_write_is_cancelled(self):
        def interrupt(event, milliseconds):
            raise KeyboardInterrupt

        self.kernel.on_WaitForSingleObject = interrupt
        self.kernel.is_done = False
        with self.assertRaises(KeyboardInterrupt):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.kernel.names()[-2:], ["CancelIoEx", "GetOverlappedResult"])

    def test_write_that_is_interrupted_as_it_begins_is_cancelled(self):
        def interrupt(*arguments):
            raise KeyboardInterrupt

        self.kernel.on_WriteFile = interrupt
        self.kernel.is_done = False
        with self.assertRaises(KeyboardInterrupt):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.kernel.names(), ["WriteFile", "CancelIoEx", "GetOverlappedResult"])

    def test_write_that_there_is_nothing_to_cancel_of_is_not_waited_for_without_end(self):
        def interrupt(*arguments):
            raise KeyboardInterrupt

        self.kernel.on_WriteFile = interrupt
        self.kernel.cancel_error = 1168
        with self.assertRaises(KeyboardInterrupt):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.kernel.names(), ["WriteFile", "CancelIoEx", "WaitForSingleObject"])
        self.assertEqual(self.kernel.calls[-1], ("WaitForSingleObject", 102, 100))

    def test_write_that_does_not_begin_is_not_cancelled(self):
        self.kernel.begin_error = 232
        with self.assertRaisesRegex(transport.ConnectionLostError, "the camera has closed the connection .error 232"):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.kernel.begin_error = 1450
        with self.assertRaisesRegex(transport.ConnectionLostError, "the system has refused a transfer .*error 1450"):
            self.pipe.write(bytearray(b"abcd"), 0.25)
        self.assertEqual(self.kernel.names(), ["WriteFile", "WriteFile"])

    def test_pipe_that_nobody_holds_is_closed(self):
        del self.pipe
        gc.collect()
        self.assertEqual(self.kernel.calls, [("CloseHandle", 101), ("CloseHandle", 102)])

    def test_closed_connection_is_lost_at_the_begin_or_at_the_end(self):
        for code in (109, 232, 233):
            self.kernel.begin_error = code
            with self.assertRaises(transport.ConnectionLostError):
                self.pipe.write(bytearray(b"abcd"), 0.25)
            self.kernel.begin_error = 997
            self.kernel.result_error = code
            with self.assertRaises(transport.ConnectionLostError):
                self.pipe.write(bytearray(b"abcd"), 0.25)
            self.kernel.result_error = 0

    def test_part_of_a_picture_is_a_lost_connection(self):
        self.kernel.moved = 3
        with self.assertRaises(transport.ConnectionLostError):
            self.pipe.write(bytearray(b"abcd"), 0.25)

    def test_close_gives_both_handles_back_once(self):
        self.pipe.close()
        self.pipe.close()
        self.assertEqual(self.kernel.calls, [("CloseHandle", 101), ("CloseHandle", 102)])


class ReadingTest(KernelTest):
    def setUp(self):
        super().setUp()
        self.gate = self.transport.open_gate(PIPE + ".gate")
        self.kernel.calls.clear()

    def test_poll_does_not_wait_and_leaves_the_read_under_way(self):
        self.kernel.is_done = False
        self.assertIsNone(self.gate.poll())
        self.assertIsNone(self.gate.poll())
        self.assertEqual(self.kernel.names(), ["ReadFile", "GetOverlappedResult", "GetOverlappedResult"])
        self.assertEqual(self.kernel.calls[0][3], 32)

    def test_record_that_has_come_is_returned_once(self):
        self.kernel.is_done = False
        self.assertIsNone(self.gate.poll())
        self.kernel.is_done = True
        self.kernel.moved = 32
        self.kernel.buffer.raw = bytes(range(32))
        self.assertEqual(self.gate.poll(), bytes(range(32)))
        self.kernel.is_done = False
        self.assertIsNone(self.gate.poll())
        self.assertEqual(self.count("ReadFile"), 2)

    def test_close_cancels_a_read_before_the_handle_goes(self):
        self.kernel.is_done = False
        self.gate.poll()
        self.gate.close()
        self.assertEqual(
            self.kernel.names()[-4:], ["CancelIoEx", "GetOverlappedResult", "CloseHandle", "CloseHandle"]
        )

    def test_gate_that_nobody_holds_cancels_its_read_before_the_buffer_goes(self):
        self.kernel.is_done = False
        self.gate.poll()
        self.kernel.calls.clear()
        del self.gate
        gc.collect()
        self.assertEqual(self.kernel.names(), ["CancelIoEx", "GetOverlappedResult", "CloseHandle", "CloseHandle"])
        self.assertIs(self.kernel.calls[1][4], True)

    def test_read_that_is_interrupted_as_it_begins_is_cancelled_by_close(self):
        def interrupt(*arguments):
            raise KeyboardInterrupt

        self.kernel.on_ReadFile = interrupt
        self.kernel.is_done = False
        with self.assertRaises(KeyboardInterrupt):
            self.gate.poll()
        self.gate.close()
        self.assertEqual(
            self.kernel.names(), ["ReadFile", "CancelIoEx", "GetOverlappedResult", "CloseHandle", "CloseHandle"]
        )

    def test_read_that_does_not_begin_leaves_nothing_to_cancel(self):
        self.kernel.begin_error = 109
        with self.assertRaises(transport.ConnectionLostError):
            self.gate.poll()
        self.gate.close()
        self.assertEqual(self.count("CancelIoEx"), 0)

    def test_camera_that_goes_is_a_lost_connection_and_leaves_nothing_to_cancel(self):
        self.kernel.result_error = 109
        with self.assertRaises(transport.ConnectionLostError):
            self.gate.poll()
        self.gate.close()
        self.assertEqual(self.count("CancelIoEx"), 0)


class SystemTest(unittest.TestCase):
    def test_functions_are_taken_from_their_libraries_with_their_prototypes(self):
        class Function:
            restype = None
            argtypes = None

        class Library:
            def __getattr__(self, name):
                function = Function()
                setattr(self, name, function)
                return function

        libraries = {}

        def load(name, use_last_error):
            self.assertTrue(use_last_error)
            libraries[name] = Library()
            return libraries[name]

        system = windows.System(load, lambda: 0)
        self.assertEqual(set(libraries), {"kernel32", "advapi32"})
        self.assertIs(system.CreateFileW.restype, windows.HANDLE)
        self.assertEqual(system.CreateFileW.argtypes[0], windows.LPCWSTR)
        self.assertIs(system.GetSecurityInfo, libraries["advapi32"].GetSecurityInfo)
        with self.assertRaises(AttributeError):
            system.CreatePipe


if __name__ == "__main__":
    unittest.main()
