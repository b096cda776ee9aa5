import random
import unittest

import context  # noqa: F401 - finds the package
from ravlo_producer.nv12 import rgb24_to_nv12


def exact(red, green, blue):
    """The definition of limited-range BT.709, before rounding: luma, Cb, Cr."""
    r, g, b = red / 255, green / 255, blue / 255
    y = 0.2126 * r + 0.7152 * g + 0.0722 * b
    return 16 + 219 * y, 128 + 224 * (b - y) / 1.8556, 128 + 224 * (r - y) / 1.5748


def plain(red, green, blue):
    """Luma, Cb and Cr of a picture of one colour."""
    nv12 = rgb24_to_nv12(bytes((red, green, blue)) * 4, 2, 2)
    return nv12[0], nv12[4], nv12[5]


class Nv12Test(unittest.TestCase):
    def test_pure_colours_have_their_studio_levels(self):
        self.assertEqual(plain(0, 0, 0), (16, 128, 128))
        self.assertEqual(plain(255, 255, 255), (235, 128, 128))
        self.assertEqual(plain(255, 0, 0), (63, 102, 240))
        self.assertEqual(plain(0, 255, 0), (173, 42, 26))
        self.assertEqual(plain(0, 0, 255), (32, 240, 118))

    def test_every_colour_of_a_grid_is_within_one_step(self):
        levels = range(0, 256, 15)
        for red in levels:
            for green in levels:
                for blue in levels:
                    for value, wanted in zip(plain(red, green, blue), exact(red, green, blue)):
                        self.assertLess(abs(value - wanted), 0.51, (red, green, blue))

    def test_chroma_is_the_mean_of_four_pixels_and_luma_each_pixel_s_own(self):
        width, height = 34, 18
        rgb = random.Random(20261120).randbytes(width * height * 3)
        nv12 = rgb24_to_nv12(rgb, width, height)

        def pixel(x, y):
            return exact(*rgb[(y * width + x) * 3 : (y * width + x) * 3 + 3])

        for y in range(height):
            for x in range(width):
                self.assertLess(abs(nv12[y * width + x] - pixel(x, y)[0]), 0.51)
        for y in range(0, height, 2):
            for x in range(0, width, 2):
                block = [pixel(x, y), pixel(x + 1, y), pixel(x, y + 1), pixel(x + 1, y + 1)]
                at = width * height + y // 2 * width + x
                for offset in range(2):
                    mean = sum(colour[1 + offset] for colour in block) / 4
                    self.assertLess(abs(nv12[at + offset] - mean), 0.52)

    def test_any_buffer_is_taken(self):
        rgb = bytes(range(24))
        expected = rgb24_to_nv12(rgb, 4, 2)
        self.assertEqual(rgb24_to_nv12(bytearray(rgb), 4, 2), expected)
        self.assertEqual(rgb24_to_nv12(memoryview(rgb).cast("B", (2, 4, 3)), 4, 2), expected)

    def test_buffers_of_another_size_are_refused(self):
        for size in (0, 11, 13):
            with self.assertRaises(ValueError):
                rgb24_to_nv12(bytes(size), 2, 2)
        with self.assertRaises(ValueError):
            rgb24_to_nv12(bytes(18), 3, 2)


if __name__ == "__main__":
    unittest.main()
