#!/usr/bin/env python3
"""The reference's tables are what the classes declare."""

import os
import pathlib
import subprocess
import sys
import unittest

ROOT = pathlib.Path(os.environ["SOURCE_ROOT"])
VARNIX = pathlib.Path(os.environ["BUILD_ROOT"]) / "bin" / "varnix"


class Reference(unittest.TestCase):
    def test_tables_are_what_the_classes_declare(self):
        done = subprocess.run([sys.executable, str(ROOT / "docs" / "make_reference.py"),
                               "--varnix", str(VARNIX), "--check"],
                              text=True, capture_output=True, check=False)
        self.assertEqual(done.stderr, "")
        self.assertEqual(done.returncode, 0)

    def test_every_page_has_a_worked_example(self):
        for page in (ROOT / "docs" / "reference").glob("*.md"):
            text = page.read_text(encoding="utf-8")
            if "<!-- declared:" in text:  # a page of a class
                self.assertIn("\n```vx\n", text, page.name)


if __name__ == "__main__":
    sys.exit(unittest.main())
