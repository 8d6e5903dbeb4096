#!/usr/bin/env python3
"""The interactive command line on a terminal: editing, history, completion, Ctrl-C, blocks."""

import os
import pathlib
import signal
import stat
import sys
import tempfile
import unittest

from terminal import Terminal

VARNIX = str(pathlib.Path(os.environ["BUILD_ROOT"]) / "bin" / "varnix")
UP, LEFT, CTRL_A, CTRL_C, CTRL_D, CTRL_R = "\x1b[A", "\x1b[D", "\x01", "\x03", "\x04", "\x12"


class Prompt(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="prompt-test-")
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name)
        self.environment = {"HOME": str(self.home), "TERM": "xterm", "LANG": "C.UTF-8",
                            "PATH": os.environ["PATH"]}
        for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def start(self, *options):
        return Terminal([VARNIX, *options], self.environment, str(self.home))

    def enter(self, terminal, line, prompt=">> "):
        """Types a line; returns what is shown between it and the next prompt."""
        terminal.send(line + "\r")
        terminal.expect("\n")
        return terminal.expect(prompt)

    # ---- running

    def test_echoes_values_unless_a_semicolon_ends_the_line(self):
        with self.start() as t:
            t.expect(">> ")
            self.assertEqual(self.enter(t, "x = 6"), "x = 6\n")
            self.assertEqual(self.enter(t, "x * 7"), "ans = 42\n")
            self.assertEqual(self.enter(t, "y = 2;"), "")
            self.assertEqual(self.enter(t, ""), "")

    def test_errors_show_their_place_and_the_session_goes_on(self):
        with self.start() as t:
            t.expect(">> ")
            shown = self.enter(t, "x = 1 + nothing")
            self.assertRegex(shown, r"^error: .*nothing.*\n  at .+:1:9\n$")
            self.assertRegex(self.enter(t, "x = 1)"), r"^error: .+\n  at .+:1:6\n$")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")

    def test_blocks_continue_until_they_are_closed(self):
        with self.start() as t:
            t.expect(">> ")
            self.assertEqual(self.enter(t, "for i = 1:2", ".. "), "")
            self.assertEqual(self.enter(t, "printf(\"<%d>\", i)", ".. "), "")
            self.assertEqual(self.enter(t, "end"), "<1><2>\n")
            self.assertEqual(self.enter(t, "x = [1, ...", ".. "), "")
            self.assertEqual(self.enter(t, "2];"), "")
            self.assertEqual(self.enter(t, "sum(x)"), "ans = 3\n")

    def test_functions_can_be_typed(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "function twice(x)", ".. ")
            self.enter(t, "  return 2 * x", ".. ")
            self.assertEqual(self.enter(t, "end"), "")
            self.assertEqual(self.enter(t, "twice(4)"), "ans = 8\n")

    def test_text_without_line_end_does_not_touch_the_prompt(self):
        with self.start() as t:
            t.expect(">> ")
            self.assertEqual(self.enter(t, 'printf("abc")'), "abc\n")

    def test_help_needs_no_brackets_and_no_quotes(self):
        with self.start() as t:
            t.expect(">> ")
            shown = self.enter(t, "help internal.quarn.CollectStatistics")
            self.assertTrue(shown.startswith("internal.quarn.CollectStatistics: "), shown)
            self.assertIn("Enabled", shown)
            self.assertIn("near it", self.enter(t, "help prntf"))

    # ---- leaving

    def test_end_of_input_leaves(self):
        with self.start() as t:
            t.expect(">> ")
            t.send(CTRL_D)
            self.assertEqual(t.wait(), 0)

    def test_end_of_input_inside_a_block_leaves_the_block(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "if true", ".. ")
            t.send(CTRL_D)
            t.expect(">> ")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")
            t.send(CTRL_D)
            self.assertEqual(t.wait(), 0)

    def test_exit_leaves_with_its_status(self):
        with self.start() as t:
            t.expect(">> ")
            t.send("exit(3)\r")
            self.assertEqual(t.wait(), 3)
        with self.start() as t:
            t.expect(">> ")
            t.send("exit\r")
            self.assertEqual(t.wait(), 0)

    def test_a_closed_terminal_ends_the_session(self):
        with self.start() as t:
            t.expect(">> ")
            os.kill(t.pid, signal.SIGHUP)
            self.assertEqual(t.wait(), -signal.SIGHUP)

    # ---- Ctrl-C

    def test_interrupt_drops_the_line(self):
        with self.start() as t:
            t.expect(">> ")
            t.send("x = 77" + CTRL_C)
            t.expect("^C\n")
            t.expect(">> ")
            self.assertEqual(self.enter(t, "exists(\"x\")"),
                             self.enter(t, "exists(\"neverdefined\")"))

    def test_interrupt_drops_the_block(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "while true", ".. ")
            t.send("x = 1" + CTRL_C)
            t.expect(">> ")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")

    def test_interrupt_stops_a_running_script_and_keeps_its_variables(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "x = 0;")
            self.enter(t, "while true", ".. ")
            self.enter(t, "x = x + 1; if x == 1000 disp(\"running\"); end", ".. ")
            t.send("end\r")
            t.expect("running\n")
            t.send(CTRL_C)
            t.expect("error: ")
            t.expect(">> ")
            self.assertEqual(self.enter(t, "x >= 1000"), "ans = true\n")

    def test_interrupt_passes_through_try(self):
        with self.start() as t:
            t.expect(">> ")
            t.send("while true; try; disp(\"turn\"); while true; end; catch err; end; end\r")
            t.expect("\nturn\n")
            t.send(CTRL_C)
            t.expect(">> ")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")

    def test_interrupts_at_the_prompt_leave_nothing_behind(self):
        with self.start() as t:
            t.expect(">> ")
            for _ in range(5):
                os.kill(t.pid, signal.SIGINT)
            t.send("x = 5;" + CTRL_C + CTRL_C)
            t.expect(">> ")
            t.expect(">> ")
            self.assertEqual(self.enter(t, "for i = 1:3; end; i"), "i = 3\n")

    # ---- history

    def test_history_comes_back_with_the_arrow(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "x = 41;")
            self.enter(t, "y = 5;")
            t.send(UP + UP)
            t.expect("x = 41;")
            t.send("\x7f + 1\r")
            t.expect("x = 42\n")

    def test_history_outlives_the_session_and_is_private(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "remembered = 123;")
            t.send("exit\r")
            t.wait()
        file = self.home / ".local" / "state" / "varnix" / "history"
        self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o600)
        with self.start() as t:
            t.expect(">> ")
            t.send(UP + UP)
            t.expect("remembered = 123;")

    def test_history_follows_the_state_folder(self):
        self.environment["XDG_STATE_HOME"] = str(self.home / "elsewhere")
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "x = 1;")
        self.assertTrue((self.home / "elsewhere" / "varnix" / "history").is_file())

    def test_history_that_cannot_be_written_is_no_error(self):
        self.environment["XDG_STATE_HOME"] = "/proc/nowhere"
        with self.start() as t:
            t.expect(">> ")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")
            t.send(UP)
            t.expect("1 + 1")

    def test_history_that_is_damaged_is_no_error(self):
        file = self.home / ".local" / "state" / "varnix" / "history"
        file.parent.mkdir(parents=True)
        file.write_bytes(b"\x00\xff not a history \\x\n" * 100)
        with self.start() as t:
            t.expect(">> ")
            self.assertEqual(self.enter(t, "1 + 1"), "ans = 2\n")

    # ---- completion

    def completed(self, typed, expected):
        """Types a beginning and a tab: the rest must appear."""
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "d = internal.quarn.CollectStatistics; measured1 = 5; s = struct();")
            self.enter(t, "s.field = d;")
            t.send(typed + "\t")
            t.expect(expected)

    def test_completes_variables(self):
        self.completed("2 * measu", "2 * measured1")

    def test_completes_functions(self):
        self.completed("startsw", "startswith")

    def test_completes_packages_and_classes(self):
        self.completed("internal.quarn.CollectSt", "internal.quarn.CollectStatistics")
        self.completed("intern", "internal.")

    def test_completes_properties_of_a_variable(self):
        self.completed("d.Ena", "d.Enabled")

    def test_completes_through_a_struct(self):
        self.completed("s.field.Ena", "s.field.Enabled")

    def test_shows_the_choices(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "choice1 = 1; choice2 = 2;")
            t.send("choi\t")
            t.expect("choice")
            t.send("\t")
            t.expect("choice1")
            t.expect("choice2")
            t.expect(">> choice")
            t.send("2 + 5\r")
            t.expect("ans = 7\n")

    def test_indents_in_a_block(self):
        with self.start() as t:
            t.expect(">> ")
            self.enter(t, "if true", ".. ")
            t.send("\tx = 5\r")
            t.expect(".. ")
            self.assertEqual(self.enter(t, "end"), "x = 5\n")

    # ---- editing

    def test_cursor_keys_and_characters_of_other_alphabets(self):
        with self.start() as t:
            t.expect(">> ")
            t.send("x = \"äö\"" + LEFT + "ü\r")
            t.expect("\nx = \"äöü\"\n")


if __name__ == "__main__":
    sys.exit(unittest.main())
