import unittest

import context
from ravlo_producer import wire


class FrameHeaderTest(unittest.TestCase):
    def test_headers_are_made_of_the_golden_bytes(self):
        entries = context.golden("FRAME_HEADER")
        self.assertEqual(len(entries), 4)
        for width, height, seq, *expected in entries:
            self.assertEqual(wire.frame_header(width, height, seq), bytes(expected), f"{width}x{height}")
            self.assertEqual(len(expected), 40)

    def test_sizes_that_no_camera_has_are_refused(self):
        for width, height in ((0, 2), (2, 0), (3, 2), (2, 3), (-2, 2), (16386, 2), (2, 16386)):
            with self.assertRaises(ValueError, msg=f"{width}x{height}"):
                wire.frame_header(width, height, 1)

    def test_picture_has_one_and_a_half_bytes_a_pixel(self):
        self.assertEqual(wire.frame_bytes(1920, 1080), 3110400)
        self.assertEqual(wire.frame_bytes(2, 2), 6)


class DemandRecordTest(unittest.TestCase):
    def test_records_are_written_and_read_as_the_golden_bytes(self):
        entries = context.golden("DEMAND_RECORD")
        self.assertEqual(len(entries), 3)
        for sequence, idle, requests, *data in entries:
            record = wire.DemandRecord(sequence, idle, requests)
            self.assertEqual(wire.encode_demand(record), bytes(data))
            self.assertEqual(wire.decode_demand(bytes(data)), record)

    def test_idle_times_above_the_limit_are_cut(self):
        ((sequence, idle, requests, *data),) = context.golden("DEMAND_RECORD_CUT")
        self.assertEqual(wire.encode_demand(wire.DemandRecord(sequence, idle, requests)), bytes(data))

    def test_bytes_of_another_magic_or_version_are_no_record(self):
        entries = context.golden("NO_DEMAND_RECORD")
        self.assertEqual(len(entries), 2)
        for data in entries:
            self.assertIsNone(wire.decode_demand(bytes(data)))

    def test_another_number_of_bytes_is_no_record(self):
        whole = wire.encode_demand(wire.DemandRecord(1, 2, 3))
        self.assertIsNone(wire.decode_demand(whole[:-1]))
        self.assertIsNone(wire.decode_demand(whole + b"\0"))
        self.assertIsNone(wire.decode_demand(b""))


class PipeNameTest(unittest.TestCase):
    def test_names_that_a_camera_may_serve(self):
        for number in ("", ".1", ".7", ".4711", ".9999999999"):
            self.assertTrue(wire.is_pipe_name(r"\\.\pipe\Ravlo" + number), number)

    def test_other_names_are_refused(self):
        for name in ("", "Ravlo", r"\\.\pipe\ravlo", r"\\.\pipe\Ravlo.", r"\\.\pipe\Ravlo.0", r"\\.\pipe\Ravlo.01",
                     r"\\.\pipe\Ravlo.12345678901", r"\\.\pipe\Ravlo.gate", "\\\\.\\pipe\\Ravlo.1\n",
                     "\\\\.\\pipe\\Ravlo.\u0661", r"\\host\pipe\Ravlo"):
            self.assertFalse(wire.is_pipe_name(name), name)

    def test_demand_pipe_has_the_frame_pipe_s_name_and_a_suffix(self):
        self.assertEqual(wire.gate_name(r"\\.\pipe\Ravlo.7"), r"\\.\pipe\Ravlo.7.gate")


if __name__ == "__main__":
    unittest.main()
