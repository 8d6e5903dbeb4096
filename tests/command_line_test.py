#!/usr/bin/env python3
"""The program's command line: its forms, exit statuses, and what goes where."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD = pathlib.Path(os.environ["BUILD_ROOT"])
SOURCE = pathlib.Path(os.environ["SOURCE_ROOT"])
VARNIX = BUILD / "bin" / "varnix"
MODULES = BUILD / "tests" / "modules"


class CommandLine(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="command-line-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(os.path.realpath(folder.name))

    def write(self, name, text):
        (self.folder / name).parent.mkdir(parents=True, exist_ok=True)
        (self.folder / name).write_text(text, encoding="utf-8")
        return name

    def varnix(self, *words, given="", **settings):
        return subprocess.run([str(VARNIX), *map(str, words)], cwd=self.folder, input=given,
                              capture_output=True, text=True, timeout=300, check=False, **settings)

    def check(self, done, out="", err="", status=0):
        self.assertEqual((done.stdout, done.stderr, done.returncode), (out, err, status))

    # ---- forms

    def test_runs_a_script(self):
        self.write("a.vx", 'disp("hello")\n')
        self.check(self.varnix("a.vx"), "hello\n")

    def test_script_gets_its_arguments(self):
        self.write("a.vx", 'a = args\nfor x = a\nprintf("<%s>", x)\nend\nprintf("\\n")\n')
        self.check(self.varnix("a.vx", "one", "--no-jit", "-e", "", "two words"),
                   "<one><--no-jit><-e><><two words>\n")

    def test_runs_code(self):
        self.check(self.varnix("-e", "disp(1 + 2)"), "3\n")

    def test_runs_empty_code(self):
        self.check(self.varnix("-e", ""))

    def test_code_that_begins_with_a_minus(self):
        self.check(self.varnix("-e", "-1;"))

    def test_code_gets_arguments(self):
        self.check(self.varnix("-e", 'printf("%s\\n", args{2})', "one", "two"), "two\n")

    def test_no_jit_is_accepted(self):
        self.check(self.varnix("--no-jit", "-e", "disp(1)"), "1\n")

    def test_code_echoes_no_values(self):
        self.check(self.varnix("-e", "x = 5\nx + 1"))

    def test_help_lists_every_option(self):
        done = self.varnix("--help")
        self.assertEqual((done.stderr, done.returncode), ("", 0))
        for word in ("-e CODE", "--modules DIR", "--no-modules", "--no-jit", "FILE.vx", "--version"):
            self.assertIn(word, done.stdout)

    def test_version(self):
        done = self.varnix("--version")
        self.assertRegex(done.stdout, r"^varnix \d+\.\d+\.\d+\n$")
        self.check(done, done.stdout)

    # ---- exit status

    def test_exit_gives_the_status(self):
        self.check(self.varnix("-e", "disp(1); exit(7); disp(2)"), "1\n", "", 7)
        self.check(self.varnix("-e", "exit"))

    def test_exit_passes_through_try(self):
        self.check(self.varnix("-e", "try\nexit(3)\ncatch err\ndisp(1)\nend"), "", "", 3)

    def test_uncaught_error(self):
        self.write("a.vx", 'disp("before")\nerror("bad %d", 5)\n')
        self.check(self.varnix("a.vx"), "before\n", "error: bad 5\n  at a.vx:2:1\n", 1)

    def test_uncaught_error_shows_every_place(self):
        self.write("a.vx", "function f(x)\n  g(x)\nend\nfunction g(x)\n  y = x + nothing\nend\n f(1)\n")
        done = self.varnix("a.vx")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^error: .*nothing.*\n  at a\.vx:5:\d+\n  at a\.vx:2:\d+\n"
                                      r"  at a\.vx:7:\d+\n$")

    def test_uncaught_error_in_code(self):
        self.check(self.varnix("-e", 'error("bad")'), "", "error: bad\n  at <command>:1:1\n", 1)

    def test_syntax_error_before_anything_ran(self):
        self.write("a.vx", "disp(1)\nx = (2\n")
        done = self.varnix("a.vx")
        self.assertEqual((done.stdout, done.returncode), ("", 1))
        self.assertRegex(done.stderr, r"^error: .+\n  at a\.vx:\d+:\d+\n$")

    def test_missing_script(self):
        done = self.varnix("absent.vx")
        self.assertEqual((done.stdout, done.returncode), ("", 1))
        self.assertIn("absent.vx", done.stderr)

    def test_wrong_usage(self):
        for words in (["--bogus"], ["-x"], ["-e"], ["--modules"], ["-e", "1", "-e", "2"],
                      ["--modules", "x", "--no-modules", "-e", ""], ["--bogus", "a.vx"]):
            with self.subTest(words):
                done = self.varnix(*words)
                self.assertEqual((done.stdout, done.returncode), ("", 2))
                self.assertRegex(done.stderr, r"^varnix: .+\nTry: varnix --help\n$")

    # ---- console

    def test_console_text_is_not_lost_on_exit(self):
        self.check(self.varnix("-e", 'printf("no line end"); exit(4)'), "no line end", "", 4)
        self.check(self.varnix("-e", 'printf("no line end"); error("bad")'), "no line end",
                   "error: bad\n  at <command>:1:24\n", 1)

    def test_console_text_and_errors_come_in_order(self):
        done = subprocess.run([VARNIX, "-e", 'disp("first"); error("second")'],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertTrue(done.stdout.startswith("first\nerror: second\n"), done.stdout)

    def test_text_that_cannot_be_written_is_an_error(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            done = subprocess.run([VARNIX, "-e", "disp(1)"], stdout=full, stderr=subprocess.PIPE,
                                  text=True, check=False)
        self.assertEqual(done.stderr, "error: standard output could not be written\n")
        self.assertEqual(done.returncode, 1)

    def test_a_reader_that_leaves_ends_the_script(self):
        with subprocess.Popen([VARNIX, "-e", "while true\ndisp(1)\nend"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as program:
            program.stdout.readline()
            program.stdout.close()
            self.assertNotEqual(program.wait(timeout=300), 0)

    # ---- Ctrl-C

    def interrupted(self, code, presses, after=0):
        with subprocess.Popen([VARNIX, "-e", code], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as program:
            self.assertEqual(program.stdout.readline(), "ready\n")
            time.sleep(after)
            for _ in range(presses):
                program.send_signal(signal.SIGINT)
            out, err = program.communicate(timeout=300)
        return out, err, program.returncode

    def test_interrupt_is_an_uncaught_error(self):
        # shell() sends the console text on its way before it starts another process.
        out, err, status = self.interrupted(
            'disp("ready"); shell("true");\nx = 0;\nwhile true\n  x = x + 1;\nend', 1)
        self.assertEqual((out, status), ("", 1))
        self.assertRegex(err, r"^error: .*interrupt.*\n  at <command>:[345]:\d+\n$")

    def test_interrupt_ends_compiled_code(self):
        # Most likely in the loop; the place is that of the call in any case.
        out, err, status = self.interrupted(
            'function f(x)\n  while x > 0\n    x = x + 1\n  end\n  return x\nend\n'
            'f(-1); disp("ready"); shell("true");\nf(1)', 1, after=0.5)
        self.assertEqual((out, status), ("", 1))
        self.assertRegex(err, r"^error: .*interrupt.*\n  at <command>:8:1\n$")

    # ---- modules

    def test_default_modules_are_loaded(self):
        self.check(self.varnix("-e", 'disp(exists("internal.quarn"))'),
                   self.varnix("-e", 'disp(exists("disp") != 0)').stdout)

    def test_no_modules(self):
        done = self.varnix("--no-modules", "-e", "internal.quarn.CollectStatistics")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^error: .*'quarn'\n  at <command>:1:\d+\n$")

    def folder_of(self, *names):
        for name in names:
            shutil.copy(MODULES / f"{name}.so", self.folder)
        return self.folder

    def test_modules_of_a_folder_in_name_order(self):
        self.check(self.varnix("--modules", self.folder_of("sound", "second"), "-e", "disp(1)"),
                   "second: initialize\nsound: initialize\n1\n"
                   "sound: terminate\nsecond: terminate\n")

    def test_the_host_goes_on_without_a_broken_module(self):
        folder = self.folder_of("no_terminate", "sound", "throws_host_error", "wrong_first_word")
        (self.folder / "empty.so").write_bytes(b"")
        done = self.varnix("--modules", folder, "-e", "p = internal.sound.Probe; disp(isvalid(p))")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stdout, "sound: initialize\nthrows_host_error: initialize\ntrue\n"
                                      "probe destroyed\nsound: terminate\n")
        lines = done.stderr.splitlines()
        self.assertEqual(len(lines), 4, done.stderr)
        for line, name in zip(lines, ("empty", "no_terminate", "throws_host_error",
                                      "wrong_first_word")):
            self.assertRegex(line, rf"^error: cannot load the module .*/{name}\.so: .+$")

    def test_a_missing_module_folder_is_reported(self):
        done = self.varnix("--modules", "absent", "-e", "disp(1)")
        self.assertEqual((done.stdout, done.returncode), ("1\n", 0))
        self.assertRegex(done.stderr, r"^error: cannot read the module folder absent: .+\n$")

    def test_varnix_root_moves_the_default_folder(self):
        (self.folder / "lib" / "varnix" / "modules").mkdir(parents=True)
        shutil.copy(MODULES / "sound.so", self.folder / "lib" / "varnix" / "modules")
        done = self.varnix("-e", "disp(1)", env={**os.environ, "VARNIX_ROOT": str(self.folder)})
        self.check(done, "sound: initialize\n1\nsound: terminate\n")

    def test_terminate_is_called_after_exit_and_after_an_error(self):
        folder = self.folder_of("sound")
        self.check(self.varnix("--modules", folder, "-e", "exit(2)"),
                   "sound: initialize\nsound: terminate\n", "", 2)
        self.check(self.varnix("--modules", folder, "-e", 'error("bad")'),
                   "sound: initialize\nsound: terminate\n",
                   "error: bad\n  at <command>:1:1\n", 1)

    # ---- the interactive form without a terminal

    def test_statements_from_a_pipe_echo_without_prompts(self):
        self.check(self.varnix(given="x = 5\nx + 1\ny = 2;\n"), "x = 5\nans = 6\n")

    def test_blocks_from_a_pipe(self):
        self.check(self.varnix(given="for i = 1:3\ndisp(i)\nend\nx = [1, ...\n2];\ndisp(sum(x))"),
                   "1\n2\n3\n3\n")

    def test_errors_from_a_pipe_do_not_end_the_session(self):
        done = self.varnix(given='x = 1;\nerror("bad")\ndisp(x)\n')
        self.assertEqual((done.stdout, done.returncode), ("1\n", 1))
        self.assertRegex(done.stderr, r"^error: bad\n  at .+:1:1\n$")

    def test_an_open_block_at_the_end_of_a_pipe_is_an_error(self):
        done = self.varnix(given="disp(1)\nif true\ndisp(2)\n")
        self.assertEqual((done.stdout, done.returncode), ("1\n", 1))
        self.assertRegex(done.stderr, r"^error: ")

    def test_exit_from_a_pipe(self):
        self.check(self.varnix(given="exit(5)\ndisp(1)\n"), "", "", 5)

    def test_help_from_a_pipe(self):
        done = self.varnix(given="help disp\n")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue(done.stdout.startswith("disp("), done.stdout)

    def test_errors_have_their_place_at_the_prompt(self):
        done = self.varnix(given="\n\nx = 1;\nif true\n  y = nothing\nend\n")
        self.assertRegex(done.stderr, r"^error: .*nothing.*\n  at .+:2:\d+\n$")


class Readme(unittest.TestCase):
    """What README.md shows of a first session is what happens."""

    def test_session_is_what_the_program_prints(self):
        text = (SOURCE / "README.md").read_text(encoding="utf-8")
        sessions = [block for block in re.findall(r"(?:^    .*\n|^\n)+", text, re.MULTILINE)
                    if "    >> " in block]
        self.assertTrue(sessions)
        for session in sessions:
            lines = [line[4:] for line in session.strip("\n").split("\n")]
            typed, shown = [], []
            for line in lines:
                if line.startswith((">> ", ".. ")):
                    typed.append(line[3:])
                else:
                    shown.append(line)
            done = subprocess.run([str(VARNIX)], input="\n".join(typed) + "\n", text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            self.assertEqual(done.stdout.rstrip("\n"), "\n".join(shown))


if __name__ == "__main__":
    sys.exit(unittest.main())
