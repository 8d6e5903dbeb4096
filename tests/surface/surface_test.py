#!/usr/bin/env python3
"""Compares the published surface of the module to the golden text.

    surface_test.py --golden FILE [--accept] [--accept-command TEXT] -- PROGRAM ARG...

The program prints the surface. --accept writes it to the golden file instead of failing; read the
difference before: every line of it is a change that users of the module see.
"""

import argparse
import difflib
import pathlib
import subprocess
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--golden", required=True, type=pathlib.Path)
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("--accept-command", default="")
    parser.add_argument("command", nargs="+")
    options = parser.parse_args()

    done = subprocess.run(options.command, capture_output=True, text=True, check=False)
    if done.returncode != 0 or done.stderr:
        sys.stdout.write(done.stderr)
        print(f"{options.command[0]} ended with status {done.returncode}")
        return 1
    golden = options.golden.read_text(encoding="utf-8") if options.golden.is_file() else ""
    if done.stdout == golden and golden:
        return 0
    sys.stdout.writelines(difflib.unified_diff(
        golden.splitlines(True), done.stdout.splitlines(True),
        options.golden.name, "what the classes declare"))
    if options.accept:
        options.golden.write_text(done.stdout, encoding="utf-8")
        print(f"accepted: {options.golden}")
        return 0
    print(f"\nIf the new surface is right:  {options.accept_command}")
    return 1


if __name__ == "__main__":
    sys.exit(main())
