#!/usr/bin/env python3
"""Runs IR tests: NAME.qnel with a command line in its first line, the expected text in NAME.out.

The first line is a comment such as "; quarn-opt --passes=dead-code --print=qnel"; the test file is
given as the input. What the command prints must equal NAME.out; errors come behind it, and an exit
status other than 0 as a last line "exit N". Before anything else, print, parse, print of the file
must be the identity (unless the file is meant not to parse).

    ir_test.py --quarn-opt PROGRAM FILE.qnel...             runs tests
    ir_test.py --quarn-opt PROGRAM --accept FILE.qnel...    takes the present output as expected
"""

import argparse
import difflib
import os
import pathlib
import shlex
import subprocess
import sys


def run(program, arguments, text):
    done = subprocess.run([program, *arguments], input=text, capture_output=True, timeout=300)
    output = done.stdout.decode(errors="replace") + done.stderr.decode(errors="replace")
    if done.returncode != 0:
        output += f"exit {done.returncode}\n"
    return done.returncode, output


def identity_failure(program, source):
    """Where printing, parsing and printing again does not give the same text."""
    status, once = run(program, ["--no-verify"], source)
    if status != 0:
        return None
    _, twice = run(program, ["--no-verify"], once.encode())
    if once == twice:
        return None
    return "".join(difflib.unified_diff(once.splitlines(True), twice.splitlines(True),
                                        "printed once", "printed twice"))


def command_of(source, path):
    first = source.decode(errors="replace").split("\n", 1)[0]
    words = shlex.split(first.lstrip("; "))
    if not first.startswith(";") or not words or words[0] != "quarn-opt":
        sys.exit(f"{path}: the first line must be '; quarn-opt OPTIONS'")
    return words[1:]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quarn-opt", required=True)
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("files", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    failed = False
    for path in options.files:
        source = path.read_bytes()
        expected_path = path.with_suffix(".out")
        difference = identity_failure(options.quarn_opt, source)
        if difference:
            print(f"{path}: print, parse, print is not the identity\n{difference}")
            failed = True
        _, output = run(options.quarn_opt, command_of(source, path), source)
        if options.accept:
            expected_path.write_text(output)
            continue
        expected = expected_path.read_text() if expected_path.exists() else ""
        if output != expected:
            failed = True
            sys.stdout.writelines(difflib.unified_diff(
                expected.splitlines(True), output.splitlines(True),
                str(expected_path), "what came out"))
            print("\nTo accept this output:\n  "
                  + shlex.join([sys.executable, os.path.abspath(__file__), "--quarn-opt",
                                options.quarn_opt, "--accept", str(path)]))
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
