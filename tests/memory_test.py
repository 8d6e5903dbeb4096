#!/usr/bin/env python3
"""What the program asks of the system's memory while a script runs."""

import os
import pathlib
import resource
import subprocess
import unittest

VARNIX = pathlib.Path(os.environ["BUILD_ROOT"]) / "bin" / "varnix"


class Memory(unittest.TestCase):
    def page_faults(self, turns):
        """Of a loop that makes three arrays of 2 MB in each turn and drops them together."""
        code = "\n".join([f"for i = 1:{turns}", *(f"{name} = ones(1, 250000);" for name in "abc"),
                          *(f"{name} = 0;" for name in "abc"), "end"])
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_minflt
        subprocess.run([VARNIX, "--no-modules", "-e", code], timeout=300, check=True)
        return resource.getrusage(resource.RUSAGE_CHILDREN).ru_minflt - before

    def test_memory_of_arrays_is_kept_for_the_next_ones(self):
        # Given back, it would come again with 1,460 pages in each of the hundred turns.
        self.assertLess(self.page_faults(110) - self.page_faults(10), 10_000)


if __name__ == "__main__":
    unittest.main()
