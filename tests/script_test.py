#!/usr/bin/env python3
"""Runs script tests: NAME.vx, whose expected text stands beside it in NAME.out.

    script_test.py --varnix PROGRAM [--accept] NAME...

NAME is the path of a script below tests/script, without ".vx", or examples/NAME, whose expected
text is tests/examples/NAME.out. The expected text is what the script prints on the console. When it
also writes to standard error, or ends with another status than 0, these follow in this form:

    --- stderr
    error: no such variable or function: x
      at example.vx:3:1
    --- exit 1

A console text that does not end its last line is followed by a line "--- no newline".

Each script runs in a fresh, empty working folder. The folder of the script is left out of what it
prints, the working folder stands as <work>, and the process id in a path that `tempname` made as
<pid>, so that the expected text is the same on every machine. In the first lines, `# args: one two`
gives the script arguments; `# options: --no-modules` gives options to the program; what fits the
regular expression of `# varies: EXPRESSION`, such as a time, stands as <varies>. Functions may stand
in files beside the script, which are tests themselves only if they have an expected text.

--with=--no-jit and the like run the scripts under that option as well.

--accept writes the expected text instead of comparing it; read the difference before.
"""

import argparse
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

TIME_LIMIT = 300  # seconds: ends a test that hangs, says nothing about speed


def directives(source, word):
    """What stands after each `# WORD:` in the leading comment lines of a script."""
    for line in source.splitlines():
        if not line.startswith("#"):
            break
        found = re.match(rf"#\s*{word}:\s*(.*)$", line)
        if found:
            yield found.group(1)


def words(source, word):
    return shlex.split(" ".join(directives(source, word)))


def run(varnix, script, options=()):
    """What the script prints and how it ends, as one text in the form of a .out file."""
    source = script.read_text(encoding="utf-8", errors="surrogateescape")
    with tempfile.TemporaryDirectory(prefix="script-test-") as work:
        command = [varnix, *options, *words(source, "options"), str(script),
                   *words(source, "args")]
        # Settings of the person who runs the tests must not change what the scripts print.
        environment = {k: v for k, v in os.environ.items() if k != "ZQE_INSTALL"}
        environment["TMPDIR"] = work
        try:
            done = subprocess.run(command, cwd=work, env=environment, stdin=subprocess.DEVNULL,
                                  capture_output=True, timeout=TIME_LIMIT, check=False)
        except subprocess.TimeoutExpired as late:
            return f"--- still running after {late.timeout:.0f} s\n"

        def plain(text):
            text = text.decode("utf-8", errors="surrogateescape")
            text = text.replace(f"{script.parent}/", "")
            for name in (os.path.realpath(work), work):
                text = text.replace(name, "<work>")
            text = re.sub(r"<work>/varnix-\d+-", "<work>/varnix-<pid>-", text)
            for expression in directives(source, "varies"):
                text = re.sub(expression, "<varies>", text)
            return text

        out = plain(done.stdout)
        if out and not out.endswith("\n"):
            out += "\n--- no newline\n"
        if done.stderr:
            out += "--- stderr\n" + plain(done.stderr)
        if done.returncode < 0:
            out += f"--- killed by signal {-done.returncode}\n"
        elif done.returncode != 0:
            out += f"--- exit {done.returncode}\n"
        return out


def files_of(name):
    """The script of a test and the file of its expected text."""
    tests = pathlib.Path(__file__).resolve().parent
    name = re.sub(r"\.(vx|out)$", "", name)
    if name.startswith("examples/"):
        return tests.parent / f"{name}.vx", tests / f"{name}.out"
    name = name.removeprefix("tests/").removeprefix("script/")
    return tests / "script" / f"{name}.vx", tests / "script" / f"{name}.out"


def main():
    parser = argparse.ArgumentParser(add_help=True, description=__doc__.splitlines()[0])
    parser.add_argument("--varnix", required=True)
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("--with", dest="extra", action="append", default=[], metavar="OPTION",
                        help="an option for the program, before all others")
    parser.add_argument("names", nargs="+")
    options = parser.parse_args()

    failed = 0
    for name in options.names:
        script, expected_file = files_of(name)
        if not script.is_file():
            print(f"no such script test: {name} (no file {script})")
            failed += 1
            continue
        actual = run(os.path.abspath(options.varnix), script, options.extra)
        expected = ""
        if expected_file.is_file():
            expected = expected_file.read_text(encoding="utf-8", errors="surrogateescape")
        if actual == expected and expected_file.is_file():
            continue
        import difflib  # here: most tests pass, and each is a process of its own

        if options.accept:
            expected_file.parent.mkdir(parents=True, exist_ok=True)
            expected_file.write_text(actual, encoding="utf-8", errors="surrogateescape")
        difference = difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                          f"{name}.out (expected)", f"{name}.vx (printed)")
        sys.stdout.reconfigure(errors="backslashreplace")
        sys.stdout.writelines(difference)
        if options.accept:
            print(f"accepted: {expected_file}")
        else:
            failed += 1
            print(f"\nIf the new text is right:  ./test --accept {name}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
