import unittest
from fractions import Fraction

import context  # noqa: F401 - finds the package
from ravlo_producer.clock import FrameClock


class Time:
    """A clock that only sleeping and the test move."""

    def __init__(self):
        self.seconds = 100.0
        self.slept = []

    def now(self):
        return self.seconds

    def sleep(self, seconds):
        self.slept.append(seconds)
        self.seconds += seconds


class FrameClockTest(unittest.TestCase):
    def setUp(self):
        self.time = Time()

    def clock(self, rate):
        return FrameClock(rate, self.time.now, self.time.sleep)

    def test_first_frame_is_due_at_once_and_the_others_a_period_apart(self):
        clock = self.clock(8)
        self.assertEqual([clock.wait() for _ in range(4)], [0, 0, 0, 0])
        self.assertEqual(self.time.slept, [0.125, 0.125, 0.125])

    def test_time_that_work_takes_is_not_added(self):
        clock = self.clock(8)
        clock.wait()
        self.time.seconds += 0.1
        clock.wait()
        self.assertEqual(self.time.seconds, 100.125)

    def test_late_frame_comes_at_once_and_the_next_is_on_the_grid_again(self):
        clock = self.clock(8)
        clock.wait()
        self.time.seconds += 0.2
        self.assertEqual(clock.wait(), 0)
        self.assertEqual(self.time.seconds, 100.2)
        clock.wait()
        self.assertEqual(self.time.seconds, 100.25)

    def test_standstill_is_not_followed_by_a_burst(self):
        clock = self.clock(8)
        clock.wait()
        self.time.seconds += 10.0625
        self.assertEqual(clock.wait(), 79)
        self.assertEqual(self.time.seconds, 110.0625)
        self.assertEqual(clock.wait(), 0)
        self.assertEqual(self.time.seconds, 110.125)

    def test_sleep_that_ends_early_is_continued(self):
        def sleep(seconds):
            self.time.sleep(seconds / 2 if seconds > 0.01 else seconds)

        clock = FrameClock(8, self.time.now, sleep)
        clock.wait()
        clock.wait()
        self.assertGreaterEqual(self.time.seconds, 100.125)

    def test_fractional_rates_do_not_drift(self):
        clock = self.clock(Fraction(30000, 1001))
        for _ in range(30001):
            clock.wait()
        self.assertAlmostEqual(self.time.seconds, 100 + 1001, places=6)

    def test_rates_that_are_none_are_refused(self):
        for rate in (0, -1, 1001, float("nan"), float("inf"), 1e-300, Fraction(1, 3601)):
            with self.assertRaises(ValueError, msg=str(rate)):
                FrameClock(rate)

    def test_slowest_clock_has_one_frame_an_hour(self):
        clock = self.clock(Fraction(1, 3600))
        clock.wait()
        clock.wait()
        self.assertEqual(self.time.seconds, 3700.0)


if __name__ == "__main__":
    unittest.main()
