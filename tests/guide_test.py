#!/usr/bin/env python3
"""The guides say the truth: every ```vx block runs, and prints what its `#=` comments say; every
```console block of quarn-opt says what it says here, of the ```qnel blocks above it, each of which
names its file in its first line."""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

QUARN_OPT = pathlib.Path(os.environ["BUILD_ROOT"]) / "bin" / "quarn-opt"
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

    def test_commands_say_what_they_say(self):
        commands = 0
        for guide in sorted(DOCS.glob("guide/*.md")):
            text = guide.read_text(encoding="utf-8")
            with tempfile.TemporaryDirectory() as folder:
                for kind, block in re.findall(r"^```(qnel|console)\n(.*?)^```", text,
                                              re.MULTILINE | re.DOTALL):
                    if kind == "qnel":
                        name = re.match(r"; (\w+\.qnel)", block)[1]
                        (pathlib.Path(folder) / name).write_text(block, encoding="utf-8")
                        continue
                    for command, expected in re.findall(r"^\$ quarn-opt (.*)\n((?:(?!\$ ).*\n)*)",
                                                        block, re.MULTILINE):
                        with self.subTest(f"{guide.name}: {command}"):
                            done = subprocess.run([str(QUARN_OPT), *shlex.split(command)],
                                                  cwd=folder, stdin=subprocess.DEVNULL, text=True,
                                                  capture_output=True, check=False)
                            self.assertEqual(done.stdout + done.stderr, expected)
                        commands += 1
        self.assertGreater(commands, 0)


if __name__ == "__main__":
    sys.exit(unittest.main())
