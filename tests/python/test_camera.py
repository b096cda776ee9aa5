import array
import sys
import unittest
from unittest import mock

import context  # noqa: F401 - finds the package
from ravlo_producer import camera as camera_module
from ravlo_producer import transport, wire
from ravlo_producer.camera import Camera, Demand

PIPE = r"\\.\pipe\Ravlo.7"
ABSENT = transport.CameraAbsentError("no camera serves it")
LOST = transport.ConnectionLostError("the camera has closed the connection")


class FakePipe:
    """A frame pipe that keeps what it is given, or a demand pipe that gives what it was told to."""

    def __init__(self):
        self.written = []
        self.timeouts = []
        self.failure = None
        self.records = []
        self.is_closed = False

    def write(self, data, timeout):
        self.timeouts.append(timeout)
        if self.failure:
            raise self.failure
        self.written.append(bytes(data))

    def poll(self):
        if self.failure:
            raise self.failure
        return self.records.pop(0) if self.records else None

    def close(self):
        self.is_closed = True


class FakeSystem:
    """Time and pipes. What cannot be opened is an error in the list, and the last entry stays."""

    def __init__(self):
        self.seconds = 50.0
        self.sleeps = []
        self.frames = []
        self.gates = [ABSENT]
        self.opened = []

    def now(self):
        return self.seconds

    def sleep(self, seconds):
        self.sleeps.append(seconds)
        self.seconds += seconds

    def open_frames(self, name):
        return self._open(name, self.frames)

    def open_gate(self, name):
        return self._open(name, self.gates)

    def _open(self, name, answers):
        self.opened.append(name)
        answer = answers.pop(0) if len(answers) > 1 else answers[0]
        if isinstance(answer, Exception):
            raise answer
        return answer


class CameraTest(unittest.TestCase):
    def setUp(self):
        self.system = FakeSystem()
        self.pipe = FakePipe()
        self.system.frames = [self.pipe]

    def camera(self, **options):
        options.setdefault("pipe", PIPE)
        return Camera(2, 2, 10, transport=self.system, now=self.system.now, sleep=self.system.sleep, **options)


class OpeningTest(CameraTest):
    def test_a_camera_that_comes_later_is_waited_for(self):
        self.system.frames = [ABSENT, ABSENT, ABSENT, self.pipe]
        with self.camera() as camera:
            self.assertTrue(camera.is_connected)
        self.assertEqual(self.system.opened, [PIPE] * 4)
        self.assertEqual(self.system.sleeps, [0.05] * 3)

    def test_waiting_ends_with_the_timeout(self):
        self.system.frames = [ABSENT]
        with self.assertRaises(transport.CameraAbsentError):
            self.camera(timeout=1.0).open()
        self.assertAlmostEqual(self.system.seconds, 51.0, places=3)

    def test_timeout_of_zero_tries_once(self):
        self.system.frames = [ABSENT]
        with self.assertRaises(transport.CameraAbsentError):
            self.camera(timeout=0).open()
        self.assertEqual(self.system.opened, [PIPE])
        self.assertEqual(self.system.sleeps, [])

    def test_what_does_not_change_by_itself_is_not_waited_for(self):
        for error in (transport.AccessRefusedError, transport.UntrustedOwnerError, transport.CameraError):
            self.system.frames = [error("x")]
            with self.assertRaises(error):
                self.camera().open()
        self.assertEqual(self.system.sleeps, [])

    def test_leaving_closes_both_pipes(self):
        gate = FakePipe()
        self.system.gates = [gate]
        with self.camera() as camera:
            self.assertIsNone(camera.demand)
        self.assertTrue(self.pipe.is_closed)
        self.assertTrue(gate.is_closed)
        self.assertFalse(camera.is_connected)

    def test_arguments_that_no_camera_can_have_are_refused(self):
        for arguments in ((3, 2, 30), (2, 0, 30), (16386, 2, 30), (2, 2, 0), (2.0, 2, 30), ("2", 2, 30)):
            with self.assertRaises(ValueError, msg=str(arguments)):
                Camera(*arguments, transport=self.system)
        for options in ({"pipe": "Ravlo"}, {"write_timeout": 0}, {"write_timeout": 61}, {"timeout": -1}):
            with self.assertRaises(ValueError, msg=str(options)):
                self.camera(**options)

    def test_other_systems_than_windows_say_so(self):
        with mock.patch.object(sys, "platform", "linux"):
            with self.assertRaisesRegex(transport.UnsupportedSystemError, "runs on Windows only"):
                Camera(2, 2, 30)


class SendingTest(CameraTest):
    def test_picture_goes_out_behind_its_header(self):
        with self.camera() as camera:
            self.assertTrue(camera.send(b"\x10\x20\x30\x40\x80\x81"))
            self.assertTrue(camera.send(b"\x11\x21\x31\x41\x82\x83"))
        first = wire.frame_header(2, 2, 1) + b"\x10\x20\x30\x40\x80\x81"
        second = wire.frame_header(2, 2, 2) + b"\x11\x21\x31\x41\x82\x83"
        self.assertEqual(self.pipe.written, [first, second])

    def test_rgb_is_known_by_its_length(self):
        with self.camera() as camera:
            self.assertTrue(camera.send(bytes((255, 0, 0)) * 4))
            self.assertTrue(camera.send(bytes((255, 0, 0)) * 4, "rgb24"))
        for sent in self.pipe.written:
            self.assertEqual(sent[40:], bytes((63, 63, 63, 63, 102, 240)))

    def test_any_buffer_is_taken(self):
        with self.camera() as camera:
            camera.send(bytearray(b"abcdef"))
            camera.send(memoryview(b"abcdef"))
            camera.send(array.array("H", b"abcdef"))
        self.assertEqual([sent[40:] for sent in self.pipe.written], [b"abcdef"] * 3)

    def test_other_buffers_and_formats_are_refused_before_anything_is_sent(self):
        with self.camera() as camera:
            for frame, pixel_format in ((b"", None), (bytes(5), None), (bytes(6), "rgb24"), (bytes(12), "nv12"),
                                        (bytes(6), "i420")):
                with self.assertRaises(ValueError):
                    camera.send(frame, pixel_format)
            self.assertTrue(camera.is_connected)
        self.assertEqual(self.pipe.timeouts, [])
        self.assertEqual(self.system.sleeps, [])

    def test_buffer_with_gaps_is_refused(self):
        with self.camera() as camera:
            with self.assertRaisesRegex(ValueError, "gaps"):
                camera.send(memoryview(bytes(12))[::2])
            self.assertTrue(camera.is_connected)
        self.assertEqual(self.pipe.written, [])

    def test_sending_keeps_the_pace(self):
        with self.camera() as camera:
            for _ in range(5):
                camera.send(bytes(6))
        self.assertAlmostEqual(self.system.seconds, 50.4)

    def test_write_has_a_deadline(self):
        with self.camera(write_timeout=0.25) as camera:
            camera.send(bytes(6))
        self.assertEqual(self.pipe.timeouts, [0.25])

    def test_lost_connection_is_made_again_by_the_next_send(self):
        second = FakePipe()
        self.system.frames = [self.pipe, ABSENT, second]
        with self.camera() as camera:
            self.assertTrue(camera.send(bytes(6)))
            self.pipe.failure = LOST
            self.assertFalse(camera.send(bytes(6)))
            self.assertTrue(self.pipe.is_closed)
            self.assertFalse(camera.is_connected)
            self.assertFalse(camera.send(bytes(6)), "the camera is still away")
            self.assertTrue(camera.send(bytes(6)))
        # The picture that was lost had a number; the one that was never sent had none.
        self.assertEqual(second.written, [wire.frame_header(2, 2, 3) + bytes(6)])

    def test_camera_that_stays_away_keeps_the_producer_s_pace(self):
        self.system.frames = [self.pipe, ABSENT]
        with self.camera() as camera:
            self.pipe.failure = LOST
            for _ in range(11):
                self.assertFalse(camera.send(bytes(6)))
        self.assertAlmostEqual(self.system.seconds, 51.0)
        self.assertEqual(len(self.system.opened), 11)

    def test_wrong_owner_on_the_way_back_is_an_error(self):
        self.system.frames = [self.pipe, transport.UntrustedOwnerError("S-1-5-21-9")]
        with self.camera() as camera:
            self.pipe.failure = LOST
            self.assertFalse(camera.send(bytes(6)))
            with self.assertRaises(transport.UntrustedOwnerError):
                camera.send(bytes(6))

    def test_interrupted_write_closes_the_connection(self):
        with self.camera() as camera:
            self.pipe.failure = KeyboardInterrupt()
            with self.assertRaises(KeyboardInterrupt):
                camera.send(bytes(6))
            self.assertTrue(self.pipe.is_closed)
            self.assertFalse(camera.is_connected)


class DemandTest(CameraTest):
    def setUp(self):
        super().setUp()
        self.gate = FakePipe()
        self.system.gates = [self.gate]

    def tell(self, sequence, idle_ms, requests):
        self.gate.records.append(wire.encode_demand(wire.DemandRecord(sequence, idle_ms, requests)))

    def test_newest_record_counts(self):
        self.tell(1, 3_600_000, 0)
        self.tell(2, 12, 5)
        with self.camera() as camera:
            self.assertEqual(camera.demand, Demand(0.012, 5))
        self.assertEqual(self.system.opened, [PIPE, PIPE + ".gate"])

    def test_record_is_good_for_two_seconds(self):
        self.tell(1, 12, 5)
        with self.camera() as camera:
            self.assertEqual(camera.demand, Demand(0.012, 5))
            self.system.seconds += 1.9
            self.assertEqual(camera.demand, Demand(0.012, 5))
            self.system.seconds += 0.2
            self.assertIsNone(camera.demand)
            self.tell(2, 7, 6)
            self.assertEqual(camera.demand, Demand(0.007, 6))

    def test_records_that_waited_longer_than_they_are_good_for_count_for_nothing(self):
        with self.camera() as camera:
            self.assertIsNone(camera.demand)
            self.tell(1, 3_600_000, 5)
            self.system.seconds += 2.0
            self.assertIsNone(camera.demand)
            self.tell(2, 7, 6)
            self.system.seconds += 1.9
            self.assertEqual(camera.demand, Demand(0.007, 6))
        self.assertFalse(self.gate.records, "they were taken all the same")

    def test_server_without_end_does_not_hold_its_reader(self):
        record = wire.encode_demand(wire.DemandRecord(1, 12, 5))
        asked = []
        self.gate.poll = lambda: asked.append(1) or record
        with self.camera() as camera:
            self.assertEqual(camera.demand, Demand(0.012, 5))
        self.assertEqual(len(asked), 256)

    def test_gate_is_left_to_the_producer_that_is_connected(self):
        camera = self.camera()
        self.assertIsNone(camera.demand)
        self.assertEqual(self.system.opened, [])
        self.tell(1, 12, 5)
        with camera:
            self.assertEqual(camera.demand, Demand(0.012, 5))
            self.pipe.failure = LOST
            self.assertFalse(camera.send(bytes(6)))
            self.assertTrue(self.gate.is_closed)
            self.assertIsNone(camera.demand)
        self.assertEqual(self.system.opened, [PIPE, PIPE + ".gate"])

    def test_record_does_not_outlive_its_connection(self):
        self.tell(1, 12, 5)
        with self.camera() as camera:
            self.assertEqual(camera.demand, Demand(0.012, 5))
            self.gate.failure = LOST
            self.assertIsNone(camera.demand)
            self.assertTrue(self.gate.is_closed)

    def test_lost_gate_is_asked_for_again_twice_a_second(self):
        second = FakePipe()
        second.records = [wire.encode_demand(wire.DemandRecord(1, 3, 4))]
        self.system.gates = [ABSENT, transport.UntrustedOwnerError("x"), second]
        with self.camera() as camera:
            for _ in range(9):
                self.assertIsNone(camera.demand)
                self.system.seconds += 0.1
            self.assertEqual(self.system.opened, [PIPE] + [PIPE + ".gate"] * 2)
            self.system.seconds += 0.2
            self.assertEqual(camera.demand, Demand(0.003, 4))

    def test_gate_that_carries_something_else_is_closed(self):
        self.gate.records = [bytes(32)]
        with self.camera() as camera:
            self.assertIsNone(camera.demand)
            self.assertTrue(self.gate.is_closed)

    def test_pictures_are_sent_whatever_the_gate_does(self):
        self.gate.failure = LOST
        with self.camera() as camera:
            self.assertIsNone(camera.demand)
            self.assertTrue(camera.send(bytes(6)))


class OwnerTest(unittest.TestCase):
    def test_system_accounts_and_the_authorized_user_may_host(self):
        for owner in ("S-1-5-18", "S-1-5-19", "S-1-5-21-1-2-3-1001"):
            self.assertTrue(transport.is_trusted_owner(owner, "S-1-5-21-1-2-3-1001"), owner)
        self.assertTrue(transport.is_trusted_owner("S-1-5-19", None))
        self.assertTrue(transport.is_trusted_owner("S-1-5-21-1-2-3-1001", "s-1-5-21-1-2-3-1001"))

    def test_nobody_else_may(self):
        for owner in (None, "", "S-1-5-20", "S-1-5-32-544", "S-1-5-21-1-2-3-1002", "S-1-5-21-1-2-3-10010"):
            self.assertFalse(transport.is_trusted_owner(owner, "S-1-5-21-1-2-3-1001"), owner)
        self.assertFalse(transport.is_trusted_owner("S-1-5-21-1-2-3-1001", None))
        self.assertFalse(transport.is_trusted_owner("S-1-5-21-1-2-3-1001", " S-1-5-21-1-2-3-1001 "))
        self.assertFalse(transport.is_trusted_owner("", ""))

    def test_a_group_is_nobody_whom_an_administrator_can_authorize(self):
        for group in ("S-1-1-0", "S-1-5-4", "S-1-5-7", "S-1-5-11", "S-1-5-32-544", "S-1-5-32-545", "s-1-5-32-544"):
            self.assertFalse(transport.is_trusted_owner(group, group), group)
        self.assertTrue(transport.is_trusted_owner("S-1-5-21-1-2-3-544", "S-1-5-21-1-2-3-544"))


class PublicNamesTest(unittest.TestCase):
    def test_everything_that_is_promised_exists(self):
        import ravlo_producer

        for name in ravlo_producer.__all__:
            self.assertTrue(hasattr(ravlo_producer, name), name)
        self.assertIs(ravlo_producer.Camera, camera_module.Camera)


if __name__ == "__main__":
    unittest.main()
