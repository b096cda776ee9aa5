import pathlib
import re
import unittest

import context  # noqa: F401 - finds the package
import ravlo_producer

_ROOT = pathlib.Path(__file__).resolve().parents[2]


class VersionTest(unittest.TestCase):
    def test_package_has_the_version_of_the_project(self):
        (version,) = re.findall(
            r"^project\(ravlo VERSION ([0-9.]+) ", (_ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.MULTILINE
        )
        self.assertEqual(ravlo_producer.__version__, version)

    def test_package_is_built_with_that_version(self):
        project = (_ROOT / "python" / "pyproject.toml").read_text(encoding="utf-8")
        self.assertIn('dynamic = ["version"]\n', project)
        self.assertIn('version = { attr = "ravlo_producer.__version__" }\n', project)


if __name__ == "__main__":
    unittest.main()
