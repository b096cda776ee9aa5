import math
import unittest

import context  # noqa: F401 - finds the package
from ravlo_bench.intervals import gap_interval, quantile, quantile_interval

# Ranks that books on order statistics list for the median: sample size -> the two members, at least 95 % sure.
MEDIAN_RANKS = {6: (1, 6), 7: (1, 7), 8: (1, 8), 9: (2, 8), 10: (2, 9), 15: (4, 12), 20: (6, 15), 25: (8, 18),
                30: (10, 21), 50: (18, 33), 100: (40, 61)}  # fmt: skip


class QuantileTest(unittest.TestCase):
    def test_median_of_odd_and_even_samples(self):
        self.assertEqual(quantile([9, 1, 5], 0.5), 5)
        self.assertEqual(quantile([4, 1, 3, 2], 0.5), 2.5)

    def test_percentile_lies_on_the_line_between_its_neighbours(self):
        self.assertAlmostEqual(quantile([10, 20, 30, 40, 50], 0.95), 48)
        self.assertAlmostEqual(quantile(range(101), 0.99), 99)

    def test_ends_of_the_sample_and_a_single_value(self):
        self.assertEqual(quantile([3, 1, 2], 0.0), 1)
        self.assertEqual(quantile([3, 1, 2], 1.0), 3)
        self.assertEqual(quantile([7], 0.99), 7)


class QuantileIntervalTest(unittest.TestCase):
    def test_median_has_the_ranks_of_the_books(self):
        for size, ranks in MEDIAN_RANKS.items():
            with self.subTest(size=size):
                self.assertEqual(quantile_interval(range(1, size + 1)), ranks)

    def test_less_than_six_values_do_not_bound_a_median(self):
        self.assertEqual(quantile_interval([1, 2, 3, 4, 5]), (-math.inf, math.inf))

    def test_order_of_the_values_does_not_matter(self):
        self.assertEqual(quantile_interval([10, 1, 9, 2, 8, 3, 7, 4, 6, 5]), (2, 9))

    def test_p95_of_200_values(self):
        # P(B <= 183) = 0.0238 <= 0.025 < P(B <= 184), P(B <= 195) = 0.9736 < 0.975 <= P(B <= 196), B of 200 and 0.95.
        self.assertEqual(quantile_interval(range(1, 201), 0.95), (184, 197))

    def test_p99_of_100_values_has_no_upper_bound(self):
        low, high = quantile_interval(range(1, 101), 0.99)
        self.assertEqual((low, high), (97, math.inf))

    def test_large_samples_do_not_underflow(self):
        low, high = quantile_interval(range(1, 20001), 0.5)
        # 10000.5 -+ 1.96 * sqrt(20000) / 2, outwards.
        self.assertEqual((low, high), (9861, 10140))


class GapIntervalTest(unittest.TestCase):
    def test_distances_to_the_ends_of_both_intervals_add_as_errors_do(self):
        # Medians 5.5 and 100, intervals [2, 9] and [96, 104]: the gap goes down with the product's low and the floor's
        # high end.
        floor = [1, 2, 3, 4, 5, 6, 7, 8, 9, 10]
        product = [90, 96, 97, 98, 99, 101, 102, 103, 104, 110]
        self.assertEqual(quantile_interval(floor), (2, 9))
        self.assertEqual(quantile_interval(product), (96, 104))
        low, high = gap_interval(floor, product, 0.5)
        self.assertAlmostEqual(low, 94.5 - 5.3150729)
        self.assertAlmostEqual(high, 94.5 + 5.3150729)

    def test_each_end_takes_the_unfavourable_distances(self):
        # Floor 10 [6, 10], product 50 [47, 50]: 3 and 0 down, 0 and 4 up.
        floor = [5, 6, 10, 10, 10, 10, 10, 10, 10, 10]
        product = [40, 47, 50, 50, 50, 50, 50, 50, 50, 50]
        self.assertEqual(gap_interval(floor, product, 0.5), (37.0, 44.0))

    def test_constant_samples_have_an_exact_gap(self):
        self.assertEqual(gap_interval([2.0] * 500, [7.0] * 400, 0.99), (5.0, 5.0))

    def test_sample_too_small_for_a_bound_leaves_the_gap_without_one(self):
        self.assertEqual(gap_interval([2.0] * 100, [7.0] * 500, 0.99), (-math.inf, 5.0))
        self.assertEqual(gap_interval([2.0] * 500, [7.0] * 100, 0.99), (5.0, math.inf))
        self.assertEqual(gap_interval([2.0] * 5, [7.0] * 10, 0.5), (-math.inf, math.inf))


if __name__ == "__main__":
    unittest.main()
