#!/usr/bin/env python3
"""The guides say the truth: every ```vx block runs, and prints what its `#=` comments say."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

VARNIX = pathlib.Path(os.environ["BUILD_ROOT"]) / "bin" / "varnix"
DOCS = pathlib.Path(os.environ["SOURCE_ROOT"]) / "docs"


class Guide(unittest.TestCase):
    def test_examples_print_what_they_say(self):
        guides = sorted(DOCS.glob("guide/*.md")) + sorted(DOCS.glob("reference/*.md"))
        self.assertTrue(guides)
        for guide in guides:
            text = guide.read_text(encoding="utf-8")
            for match in re.finditer(r"^```vx\n(.*?)^```", text, re.MULTILINE | re.DOTALL):
                code = match.group(1)
                line = text.count("\n", 0, match.start()) + 2
                expected = re.findall(r"#= (.*)$", code, re.MULTILINE)
                with self.subTest(f"{guide.name}:{line}"), tempfile.TemporaryDirectory() as folder:
                    script = pathlib.Path(folder) / "example.vx"
                    script.write_text(code, encoding="utf-8")
                    done = subprocess.run([str(VARNIX), str(script)], cwd=folder, text=True,
                                          stdin=subprocess.DEVNULL, capture_output=True,
                                          check=False)
                    self.assertEqual(done.stderr, "")
                    self.assertEqual(done.stdout.splitlines(), expected)


if __name__ == "__main__":
    sys.exit(unittest.main())
