import contextlib
import io
import sys
import unittest
from unittest import mock

import context  # noqa: F401 - finds the package
from ravlo_producer import __main__ as program
from ravlo_producer import transport


class Transport:
    """Takes everything, and raises what it is given to raise."""

    def __init__(self, opening=None, writing=None):
        self.opening = opening
        self.writing = writing
        self.pictures = 0

    def open_frames(self, name):
        if self.opening:
            raise self.opening
        return self

    def write(self, data, timeout):
        self.pictures += 1
        if self.pictures == 3 and self.writing:
            raise self.writing

    def close(self):
        pass


def run(transport_or_error, *arguments):
    """The exit code and what was said on standard error."""
    said = io.StringIO()
    with contextlib.redirect_stderr(said):
        try:
            with mock.patch("ravlo_producer.camera.system_transport", return_value=transport_or_error):
                code = program.main(list(arguments))
        except SystemExit as ending:
            code = ending.code
    return code, said.getvalue()


class ProgramTest(unittest.TestCase):
    def test_wrong_arguments_end_with_2_and_a_reason(self):
        for arguments, reason in (
            ([], "required: --test"),
            (["--test", "--size", "1280"], "1280 is no size such as 1280x720"),
            (["--test", "--size", "1281x720"], "must be even"),
            (["--test", "--size", "0x0"], "must be even and 2 to 16384"),
            (["--test", "--size", "20000x2"], "2 to 16384"),
            (["--test", "--rate", "fast"], "fast is no rate"),
            (["--test", "--rate", "30/0"], "30/0 is no rate"),
            (["--test", "--rate", "0"], "must be from one frame an hour (1/3600) to 1000"),
            (["--test", "--rate", "1001"], "(1/3600) to 1000"),
            (["--test", "--rate", "1/3601"], "(1/3600) to 1000"),
            (["--test", "--rate", "1e999999999"], "1e999999999 is no rate"),
            (["--test", "--rate", "9" * 100], "9" * 40 + " is no rate"),
            (["--test", "--rate", "-1"], "no rate"),
            (["--test", "--seconds", "-1"], "no number of seconds"),
            (["--test", "--seconds", "nan"], "no number of seconds"),
            (["--test", "--timeout", "soon"], "soon is no number of seconds"),
            (["--test", "--pipe", "Ravlo"], "Ravlo is no pipe of a camera"),
            (["--test", "--unknown"], "unrecognized arguments: --unknown"),
            (["--test", "file.png"], "unrecognized arguments: file.png"),
        ):
            code, said = run(Transport(), *arguments)
            self.assertEqual(code, 2, arguments)
            self.assertIn(reason, said)

    def test_run_ends_after_its_time_with_a_summary(self):
        taker = Transport()
        code, said = run(taker, "--test", "--size", "16x16", "--rate", "200", "--seconds", "0.1")
        self.assertEqual(code, 0)
        self.assertGreater(taker.pictures, 1)
        self.assertIn(f"{taker.pictures} pictures taken, 0 lost", said)

    def test_failures_have_their_codes(self):
        for error, code in (
            (transport.AccessRefusedError("no"), 4),
            (transport.CameraAbsentError("none"), 5),
            (transport.UntrustedOwnerError("who"), 1),
        ):
            result, said = run(Transport(opening=error), "--test", "--timeout", "0")
            self.assertEqual(result, code)
            self.assertIn(str(error), said)

    def test_interrupt_ends_with_130_and_a_summary(self):
        code, said = run(Transport(writing=KeyboardInterrupt()), "--test", "--size", "16x16", "--rate", "1000")
        self.assertEqual(code, 130)
        self.assertIn("2 pictures taken, 0 lost", said)

    def test_other_systems_are_told_so(self):
        said = io.StringIO()
        with mock.patch.object(sys, "platform", "linux"), contextlib.redirect_stderr(said):
            self.assertEqual(program.main(["--test"]), 6)
        self.assertIn("runs on Windows only", said.getvalue())

    def test_pictures_have_their_size_and_move(self):
        pictures = program.test_pictures(16, 4)
        first, second = next(pictures), next(pictures)
        self.assertEqual(len(first), 16 * 4 * 3 // 2)
        self.assertEqual(first[:4], bytes((180, 180, 168, 168)))
        self.assertEqual(second[:4], bytes((145, 145, 133, 133)))
        self.assertEqual(first[64:68], bytes((128, 128, 44, 136)))
        self.assertEqual(second[64:68], bytes((147, 44, 63, 52)))


if __name__ == "__main__":
    unittest.main()
