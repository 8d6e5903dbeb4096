#!/usr/bin/env python3
"""Functions at random, interpreted and compiled: the same results to the last bit, the same errors.

The functions are made by a small generator with fixed seeds (generate_functions.py). One script
calls each of them with numbers and arrays of several classes and prints what comes back: the class,
the size, and every element in the form that reads back the same; or the error with its places. The
texts that the interpreter, the evaluator of the IR and machine code give must not differ.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import generate_functions  # noqa: E402

VARNIX = pathlib.Path(os.environ.get("BUILD_ROOT", "build")) / "bin" / "varnix"


def run(options, script, folder):
    done = subprocess.run([VARNIX, "--no-modules", *options, script], cwd=folder, timeout=600,
                          stdin=subprocess.DEVNULL, capture_output=True, check=False)
    return done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")


class Compiled(unittest.TestCase):
    maxDiff = 2000

    def compare(self, engine, seeds, functions):
        calls = interpreted = 0
        for seed in seeds:
            with tempfile.TemporaryDirectory(prefix="differential-") as folder:
                source = generate_functions.script(seed, functions)
                pathlib.Path(folder, "functions.vx").write_text(source, encoding="utf-8")
                expected, errors = run(["--no-jit"], "functions.vx", folder)
                self.assertEqual(errors, "", f"seed {seed}: the script itself is wrong")
                actual, errors = run([f"--engine={engine}", "--report-interpreted"],
                                     "functions.vx", folder)
                reports = [line for line in errors.splitlines() if line.startswith("interpreted:")]
                rest = [line for line in errors.splitlines() if not line.startswith("interpreted:")]
                self.assertEqual(rest, [], f"seed {seed}")
                if actual != expected:
                    pathlib.Path(tempfile.gettempdir(), f"differs-{seed}.vx").write_text(
                        source, encoding="utf-8")
                self.assertMultiLineEqual(expected, actual, f"seed {seed}")
                calls += expected.count("call ")
                interpreted += len(reports)
        # A generator that makes nothing for the compiler would prove nothing.
        self.assertGreater(calls, 2 * len(seeds) * functions)
        self.assertLess(interpreted, calls / 2)

    def test_generated_functions_in_the_evaluator(self):
        self.compare("evaluator", range(1, 17), 30)

    def test_generated_functions_in_machine_code(self):
        self.compare("llvm", range(101, 103), 20)


if __name__ == "__main__":
    unittest.main()
