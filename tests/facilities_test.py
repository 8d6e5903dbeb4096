#!/usr/bin/env python3
"""The facilities of internal.quarn as a user meets them: a script turns one on, the host compiles a
program of examples/, and what came out is looked at with tools that know nothing of the compiler:
parsers of JSON, CSV and HTML, diff, quarn-opt."""

import csv
import html.parser
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["BUILD_ROOT"])
EXAMPLES = pathlib.Path(os.environ["SOURCE_ROOT"]) / "examples"
VARNIX = BUILD / "bin" / "varnix"
QUARN_OPT = BUILD / "bin" / "quarn-opt"
SANITIZED = os.environ.get("SANITIZED", "")  # the sanitizers of this build
TIME_LIMIT = 300  # seconds: ends a test that hangs, says nothing about speed

# What each script begins with: the programs, and debug files in the folder LOG without process ids.
BEGIN = """
addpath("{examples}")
log = internal.quarn.DebugLogger
log.LogDirectory = "LOG"
log.UsePIDInName = false
"""


class Facility(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="facilities-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.log = self.folder / "LOG"

    def run_script(self, code, *options, begin=BEGIN, error="", environment=None, folder=None):
        """Runs a script in the test's folder; returns what it prints."""
        folder = folder or self.folder
        script = folder / "script.vx"
        script.write_text(begin.replace("{examples}", str(EXAMPLES)) + code, encoding="utf-8")
        variables = {k: v for k, v in os.environ.items() if k != "ZQE_INSTALL"}
        variables["TMPDIR"] = str(folder)
        variables.update(environment or {})
        done = subprocess.run([str(VARNIX), *options, str(script)], cwd=folder, env=variables,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=TIME_LIMIT, check=False)
        self.assertRegex(done.stderr, error or r"\A\Z")
        self.assertEqual(done.returncode, 1 if error else 0)
        return done.stdout

    def files(self, folder):
        self.assertTrue(folder.is_dir(), f"nothing was written: {sorted(self.log.glob('*'))}")
        return sorted(path for path in folder.iterdir() if path.is_file())

    def only_file(self, pattern):
        found = sorted(self.log.glob(pattern))
        self.assertEqual(len(found), 1, sorted(self.log.glob("*")))
        return found[0]

    def quarn_opt(self, *arguments):
        done = subprocess.run([str(QUARN_OPT), *map(str, arguments)], capture_output=True,
                              text=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual((done.stderr, done.returncode), ("", 0))
        return done.stdout


class PrettyPrinter(Facility):
    SETUP = """
p = internal.quarn.PrettyPrinter
p.OutputFormat = "{format}"
p.EnabledBefore = true
p.EnabledAfter = true
disp(primes(1000))
"""

    def dump(self, form, more=""):
        self.assertEqual(self.run_script(self.SETUP.replace("{format}", form) + more), "168\n")
        return self.files(self.log / "pretty-print")

    def test_every_run_leaves_a_file_for_each_side(self):
        names = [path.name for path in self.dump("text")]
        sides = {"before": [], "after": []}
        for name in names:
            found = re.fullmatch(r"\d{4,}-(before|after)-(.+)\.txt", name)
            self.assertTrue(found, name)
            sides[found[1]].append(found[2])
        self.assertEqual(sorted(sides["before"]), sorted(sides["after"]))
        self.assertIn("dead-code-fcn_primes", sides["before"])
        self.assertIn("inlining-scope_primes", sides["before"])

    def test_pages_stand_by_themselves_and_the_index_lists_them(self):
        class Page(html.parser.HTMLParser):
            def __init__(self):
                super().__init__()
                self.links, self.ids, self.loaded = [], set(), []

            def handle_starttag(self, tag, attributes):
                given = dict(attributes)
                if tag == "a":
                    self.links.append(given.get("href", ""))
                if tag in ("script", "img", "iframe", "link") and ("src" in given or
                                                                   "href" in given):
                    self.loaded.append(given)
                if "id" in given:
                    self.ids.add(given["id"])

        files = self.dump("html")
        pages = [path for path in files if path.name != "index.html"]
        self.assertEqual(len(pages) + 1, len(files))
        for path in pages:
            page = Page()
            page.feed(path.read_text(encoding="utf-8"))
            self.assertEqual(page.loaded, [], path.name)
            for link in page.links:
                if link.startswith("#"):
                    self.assertIn(link[1:], page.ids, path.name)
        index = Page()
        index.feed((self.log / "pretty-print" / "index.html").read_text(encoding="utf-8"))
        self.assertEqual(index.links, [path.name for path in pages])

    def test_qnel_reads_back_and_prints_the_same(self):
        for path in self.dump("qnel"):
            again = self.folder / "again.qnel"
            again.write_text(self.quarn_opt("--no-verify", path), encoding="utf-8")
            self.assertEqual(self.quarn_opt("--no-verify", again), again.read_text())
            self.assertIn("(function primes", again.read_text())

    def test_graphs_are_what_graphviz_draws(self):
        files = self.dump("dot", "")
        self.assertTrue(all(path.suffix == ".dot" for path in files))
        dot = shutil.which("dot")
        if not dot:
            self.skipTest("no dot in the path")
        done = subprocess.run([dot, "-Tcanon", str(files[0])], capture_output=True, text=True,
                              check=False)
        self.assertEqual((done.stderr, done.returncode), ("", 0))

    def test_filter_chooses_runs_and_a_bad_one_is_told_once(self):
        printed = self.run_script("""
p = internal.quarn.PrettyPrinter
p.FilterRegEx = "code-fcn_pri|^compaction"
p.EnabledAfter = true
primes(100);
p.FilterRegEx = "("
primes(100);
""")
        names = [path.name for path in self.files(self.log / "pretty-print")
                 if path.name != "index.html"]
        self.assertEqual([re.sub(r"^\d+-", "", name) for name in names],
                         ["after-dead-code-fcn_primes.html", "after-compaction-fcn_primes.html"])
        self.assertEqual(len(printed.splitlines()), 1, printed)

    def test_no_gaps_and_no_identical_files_when_asked(self):
        names = [path.name for path in self.dump("text")]
        self.assertEqual(self.run_script("""
p = internal.quarn.PrettyPrinter
log.LogDirectory = "SECOND"
p.GaplessNumbering = true
p.RemoveIdenticalFiles = true
p.OutputFormat = "text"
p.EnabledBefore = true
p.EnabledAfter = true
disp(primes(1000))
"""), "168\n")
        fewer = [path.name for path in self.files(self.folder / "SECOND" / "pretty-print")]
        self.assertLess(len(fewer), len(names))
        numbers = [int(name.split("-")[0]) for name in fewer]
        self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))


class StackTraces(Facility):
    def dump(self, switches):
        self.run_script(f"""
p = internal.quarn.PrettyPrinter
p.OutputFormat = "text"
p.FilterRegEx = "^control-flow-fcn_primes"
p.EnabledBefore = true
{switches}
primes(100);
""")
        return self.files(self.log / "pretty-print")[0].read_text(encoding="utf-8")

    def test_nodes_say_where_they_were_made(self):
        self.assertNotIn("codegen", self.dump(""))
        self.assertIn("varnix::codegen::", self.dump("p.StackTraces.TagNodes = true"))


class Serializer(Facility):
    def test_files_load_to_the_ir_that_was_printed(self):
        self.run_script("""
p = internal.quarn.PrettyPrinter
p.OutputFormat = "qnel"
p.GaplessNumbering = true
s = internal.quarn.SerializerFbtService
p.EnabledBefore = true; p.EnabledAfter = true
s.EnabledBefore = true; s.EnabledAfter = true
mandel(5);
""")
        texts = self.files(self.log / "pretty-print")
        binaries = self.files(self.log / "serialized-ir")
        self.assertEqual([path.stem for path in texts], [path.stem for path in binaries])
        self.assertGreater(len(texts), 20)
        for text, binary in zip(texts, binaries):
            with self.subTest(text.name):
                # A text of one function does not name the scope that it comes from.
                expected, loaded = (self.quarn_opt("--no-verify", path).split("\n", 1)[1]
                                    for path in (text, binary))
                self.assertEqual(loaded, expected)


class SanityChecker(Facility):
    """A module plays a broken transform (tests/modules/damage.cpp)."""

    def damaged(self, code, error="", nodes=1):
        modules = self.folder / "modules"
        modules.mkdir(exist_ok=True)
        for file in (BUILD / "lib" / "varnix" / "modules" / "quarn_vi.so",
                     BUILD / "tests" / "damage" / "damage.so"):
            link = modules / file.name
            if not link.exists():
                link.symlink_to(file)
        return self.run_script(code, "--modules", str(modules), error=error,
                               environment={"DAMAGED_NODES": str(nodes)})

    LOOP = """
for i = 1:length(c.Violations)
  v = c.Violations[i]
  printf("%s|%s|%s|%s|%s|%d\\n", v.Testpoint, v.Transform, v.FoundWhen, v.CheckId, v.Severity, ...
    v.NumFailingNodes)
end
"""

    def test_sound_compilations_have_no_violations(self):
        self.assertEqual(self.run_script("""
c = internal.quarn.SanityChecker
c.OutputType = "details_to_varnix"
c.InDataOutDataChecking = true
c.EnabledBefore = true
c.EnabledAfter = true
mandel(10); primes(100);
disp(length(c.Violations))
"""), "0\n")

    def test_violations_are_objects_that_a_script_loops_over(self):
        rows = [row.split("|") for row in self.damaged("""
c = internal.quarn.SanityChecker
c.OutputType = "none"
c.EnabledBefore = true
c.EnabledAfter = true
primes(100);
""" + self.LOOP, nodes=3).splitlines()]
        self.assertEqual(rows[0], ["dead-code-fcn_primes", "dead-code", "before", "node.line",
                                   "error", "3"])
        self.assertEqual(rows[1][:4], ["dead-code-fcn_primes", "dead-code", "after", "node.line"])
        self.assertEqual({row[3] for row in rows}, {"node.line"})

    def test_thresholds_decide_about_warning_error_and_silence(self):
        def severities(warning, error):
            return self.damaged(f"""
c = internal.quarn.SanityChecker
c.OutputType = "none"
c.WarningThreshold = {warning}
c.ErrorThreshold = {error}
c.FilterRegEx = "^dead-code"
c.EnabledBefore = true
primes(100);
""" + self.LOOP, nodes=3).splitlines()
        row = "dead-code-fcn_primes|dead-code|before|node.line|"
        self.assertEqual(severities(1, 3), [row + "error|3"])
        self.assertEqual(severities(3, 4), [row + "warning|3"])
        self.assertEqual(severities(4, 4), [])

    def test_details_go_to_the_console_with_the_fields_and_lines_chosen(self):
        begin = """
c = internal.quarn.SanityChecker
c.OutputType = "details_to_varnix"
c.SelectDetails = {"CheckId", "FoundWhen"}
c.FilterRegEx = "^dead-code"
c.EnabledBefore = true
c.EnabledAfter = true
"""
        everything = self.damaged(begin + "primes(100);", nodes=2).splitlines()
        before, after = "checkid=node.line  foundwhen=before", "checkid=node.line  foundwhen=after"
        self.assertEqual(everything, [before, before, after])  # one of the two nodes was dead
        chosen = self.damaged(begin + 'c.LineFilter = "after"\nprimes(100);', nodes=2)
        self.assertEqual(chosen.splitlines(), [after])

    def test_summary_is_one_line_for_a_run(self):
        printed = self.damaged("""
c = internal.quarn.SanityChecker
c.OutputType = "summary"
c.FilterRegEx = "^dead-code"
c.EnabledBefore = true
primes(100);
""")
        self.assertEqual(len(printed.splitlines()), 1, printed)
        self.assertIn("dead-code-fcn_primes", printed)

    def test_details_go_to_a_file(self):
        self.assertEqual(self.damaged("""
c = internal.quarn.SanityChecker
c.OutputType = "details_to_file"
c.FilterRegEx = "^dead-code"
c.EnabledBefore = true
primes(100);
"""), "")
        files = [path for path in self.log.iterdir() if path.is_file()]
        self.assertEqual(len(files), 1)
        self.assertIn("node.line", files[0].read_text(encoding="utf-8"))

    def test_asserting_stops_the_compilation_with_an_error(self):
        printed = self.damaged("""
c = internal.quarn.SanityChecker
c.OutputType = "none"
c.EnabledBefore = true
c.AssertOnRecordViolation = true
try
  primes(100);
catch err
  disp(err.identifier)
end
c.AssertOnRecordViolation = false
disp(primes(100))
disp(length(c.Violations) > 0)
c.clearViolations
disp(length(c.Violations))
""")
        self.assertEqual(printed, "varnix:compilationStopped\n25\ntrue\n0\n")

    def test_violation_that_was_deleted_is_a_host_error(self):
        printed = self.damaged("""
c = internal.quarn.SanityChecker
c.OutputType = "none"
c.EnabledBefore = true
primes(100);
v = c.Violations[1]
delete(v)
try
  disp(v.Message)
catch err
  disp(err.identifier)
end
""")
        self.assertEqual(printed, "varnix:invalidHandle\n")


class MemoryAnalyzer(Facility):
    def test_statistics_have_a_line_for_each_run_and_side(self):
        def lines(level):
            self.run_script(f"""
log.LogDirectory = "LOG{level}"
m = internal.quarn.MemoryAnalyzer
m.PoolMemStats = true
m.TraceLevel = {level}
m.EnabledBefore = true
m.EnabledAfter = true
primes(100);
""")
            files = self.files(self.folder / f"LOG{level}")
            self.assertEqual([path.name for path in files], ["pool-memory-0001.txt"])
            return files[0].read_text(encoding="utf-8").splitlines()
        totals = lines(1)
        self.assertTrue(all("before" in line or "after" in line for line in totals))
        self.assertGreater(len(lines(2)), 3 * len(totals))

    def test_high_water_mark_is_a_snapshot_that_the_next_one_ends(self):
        self.assertEqual(self.run_script("""
m = internal.quarn.MemoryAnalyzer
m.EnabledBefore = true
m.EnabledAfter = true
mandel(5);
first = m.PoolHighWaterMark
disp(first.ScopeFlavor)
disp(contains(first.When, " run "))
disp(first.PoolMaxAllocated > 0)
second = m.PoolHighWaterMark
disp(isvalid(first))
try
  disp(first.When)
catch err
  disp(err.identifier)
end
disp(isvalid(second))
m.ResetHighWaterMark
disp(isvalid(second))
disp(m.PoolHighWaterMark.PoolMaxAllocated)
"""), "unit\ntrue\ntrue\nfalse\nvarnix:invalidHandle\ntrue\nfalse\n0\n")

    def test_a_sound_compiler_leaks_and_overwrites_nothing(self):
        self.assertEqual(self.run_script("""
m = internal.quarn.MemoryAnalyzer
m.PoolInternalLeakDetect = true
m.CfgPoolInternalLeakDetect = true
m.PoolSanityChecks = true
m.EnabledBefore = true
m.EnabledAfter = true
function twice(x)        # goes into those who call it, and is removed then
  return 2 * x
end
function four(x)
  return twice(twice(x))
end
disp(mandel(10)); disp(primes(100)); disp(four(1))
"""), "22\n25\n4\n")


class Scrambler(Facility):
    RUN = """
p = internal.quarn.PrettyPrinter
p.OutputFormat = "text"
s = internal.quarn.Scrambler
s.RandomSeed({seed}u32)
s.IntroducePointers = true
s.ScalarVarPointerizationThreshold = 40
s.AggregateVarPointerizationThresh = 100
s.EnabledBefore = true
s.EnabledAfter = true
p.EnabledAfter = true
printf("%d %d\\n", mandel(20), primes(1000))
disp(s.ScrambleCount > 0)
"""

    def dumps(self, seed):
        shutil.rmtree(self.log, ignore_errors=True)
        self.assertEqual(self.run_script(self.RUN.replace("{seed}", str(seed))), "90 168\ntrue\n")
        return {path.name: path.read_text(encoding="utf-8")
                for path in self.files(self.log / "pretty-print")}

    def test_results_never_change_and_a_seed_gives_the_same_ir(self):
        plain = self.run_script('printf("%d %d\\n", mandel(20), primes(1000))')
        self.assertEqual(plain, "90 168\n")
        one = self.dumps(1)
        self.assertEqual(self.dumps(1), one)
        other = self.dumps(2)
        self.assertEqual(sorted(other), sorted(one))
        self.assertNotEqual(other, one)

    def test_verbose_tells_each_run_on_the_console(self):
        printed = self.run_script("""
s = internal.quarn.Scrambler
s.Verbose = true
s.FilterRegEx = "^dead-code"
s.EnabledBefore = true
primes(100);
""")
        self.assertEqual(len(printed.splitlines()), 1, printed)
        self.assertIn("dead-code-fcn_primes", printed)


class Examples(Facility):
    """All programs of examples/, watched from outside their scripts (tests/modules/watch.cpp)."""

    SETTINGS = range(1, 8)  # bits: nodes, locals, pointers
    EXPECTED = pathlib.Path(__file__).resolve().parent / "examples"

    def watched(self, script, *more_modules, scramble=None):
        """What the script prints, and what the module has seen."""
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        modules = folder / "modules"
        modules.mkdir()
        for file in (BUILD / "lib" / "varnix" / "modules" / "quarn_vi.so",
                     BUILD / "tests" / "watch" / "watch.so", *more_modules):
            (modules / file.name).symlink_to(file)
        environment = {k: v for k, v in os.environ.items() if k != "ZQE_INSTALL"}
        environment["TMPDIR"] = str(folder)
        environment["WATCH_REPORT"] = str(folder / "report")
        if scramble:
            environment["WATCH_SCRAMBLE"] = " ".join(map(str, scramble))
        done = subprocess.run([str(VARNIX), "--modules", str(modules), str(script)], cwd=folder,
                              env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual((done.stderr, done.returncode), ("", 0))
        report = (folder / "report").read_text(encoding="utf-8").splitlines()
        counts = {line.split()[0]: int(line.split()[1]) for line in report[:4]}
        return done.stdout, counts, report[4:]

    def examples(self):
        return [EXAMPLES / f"{path.stem}.vx" for path in sorted(self.EXPECTED.glob("*.out"))]

    def programs(self):
        """The examples that only compute."""
        return [path for path in self.examples()
                if "internal.quarn" not in path.read_text(encoding="utf-8")]

    @staticmethod
    def chosen(scripts):
        """All, or what the sanitizers, with which everything takes ten times as long, leave time
        for."""
        return scripts[::6] if SANITIZED else scripts

    def test_all_are_clean_under_all_checks_around_each_transform(self):
        silent = []
        for script in self.chosen(self.examples()):
            with self.subTest(script.stem):
                _, counts, failures = self.watched(script)
                self.assertEqual(failures, [])
                self.assertEqual((counts["violations"], counts["before"]), (0, counts["after"]))
                if counts["before"] == 0:
                    silent.append(script.stem)
        self.assertLessEqual(set(silent), {"debug_logger"})  # which calls no function

    def test_a_broken_transform_would_be_seen(self):
        damage = BUILD / "tests" / "damage" / "damage.so"
        _, counts, failures = self.watched(EXAMPLES / "sieve.vx", damage)
        self.assertGreater(counts["violations"], 0)
        self.assertIn("dead-code", failures[0])

    def test_results_stay_the_same_however_they_are_scrambled(self):
        programs = self.programs()
        self.assertGreater(len(programs), 8)
        for place, script in enumerate(self.chosen(programs)):
            expected = (self.EXPECTED / f"{script.stem}.out").read_text(encoding="utf-8")
            for setting in {7, self.SETTINGS[place % len(self.SETTINGS)]}:
                with self.subTest(f"{script.stem}, setting {setting}"):
                    printed, counts, failures = self.watched(script,
                                                             scramble=(place, setting, 50))
                    self.assertEqual(failures, [])
                    self.assertGreater(counts["scrambles"], 0)
                    self.assertEqual(printed, expected)


class TransformProfiler(Facility):
    def events(self, ending, settings=""):
        printed = self.run_script(f"""
t = internal.quarn.TransformProfiler
{settings}
t.EnabledBefore = true
t.EnabledAfter = true
mandel(10);
t.EnabledBefore = false
t.EnabledAfter = false
t.DumpDestination = "profile.{ending}"
t.dump
disp(t.EventCount)
""")
        return int(printed), (self.folder / f"profile.{ending}").read_text(encoding="utf-8")

    def test_trace_is_what_timeline_viewers_open(self):
        count, text = self.events("json")
        runs = [e for e in json.loads(text)["traceEvents"] if e["ph"] == "X"]
        self.assertEqual(len(runs), count)
        self.assertTrue(all(e["dur"] >= 0 and e["ts"] >= 0 for e in runs))
        self.assertIn(("dead-code", "mandel"), {(e["name"], e["args"]["target"]) for e in runs})
        self.assertEqual([e["args"]["record"] for e in runs], list(range(1, count + 1)))

    def test_values_are_a_table_for_other_programs(self):
        count, text = self.events("csv", "t.RecordNumbering = false\nt.TagFcnsWithLogId = true")
        rows = list(csv.DictReader(text.splitlines()))
        self.assertEqual(len(rows), count)
        self.assertNotIn("record", rows[0])
        for row in rows:
            self.assertGreaterEqual(float(row["time_us"]), 0)
            self.assertIn(row["outcome"], ("changed", "unchanged"))
            if row["kind"] == "function":
                self.assertTrue(row["target"].endswith("#" + row["run"]), row)

    def test_table_is_for_people(self):
        count, text = self.events("txt")
        self.assertEqual(len([line for line in text.splitlines() if "mandel" in line or
                              "turns" in line]), count)

    def test_console_and_the_log_are_destinations_too(self):
        printed = self.run_script("""
t = internal.quarn.TransformProfiler
t.EnabledAfter = true
primes(10);
t.EnabledAfter = false
t.DumpDestination = "console"
t.dump
t.DumpDestination = ""
t.dump
""")
        self.assertIn("dead-code", printed)
        self.assertEqual(self.only_file("transform-profile*").read_text(encoding="utf-8"), printed)

    def test_events_are_written_by_themselves_at_the_threshold(self):
        self.run_script("""
t = internal.quarn.TransformProfiler
t.DumpDestination = "part.csv"
t.EventEmitThreshold = 5
t.EnabledAfter = true
mandel(10);
""")
        for number in (1, 2):
            rows = (self.folder / f"part-{number}.csv").read_text(encoding="utf-8").splitlines()
            self.assertEqual(len(rows), 1 + 5)


class Logs(Facility):
    def test_transform_log_has_a_line_for_each_run(self):
        self.run_script("""
t = internal.quarn.TransformLogService
t.Enabled = true
mandel(5);
t.Enabled = false
primes(5);
""")
        lines = self.only_file("transform-log*").read_text(encoding="utf-8").splitlines()
        numbers = []
        for line in lines:
            found = re.fullmatch(r" *(\d+) (\S+) +[\d.]+ us +(\d+) -> +(\d+) (changed|unchanged)",
                                 line)
            self.assertTrue(found, line)
            numbers.append(int(found[1]))
            if found[5] == "unchanged":
                self.assertEqual(found[3], found[4], line)
            self.assertNotIn("primes", line)
        self.assertEqual(numbers, sorted(set(numbers)))

    def test_user_variables_are_listed_and_their_end_is_told(self):
        self.run_script("""
u = internal.quarn.UserVarLogging
u.EnabledBefore = true
u.EnabledAfter = true
primes(5);
""")
        text = self.only_file("user-variables*").read_text(encoding="utf-8")
        first = text.splitlines()[0]
        self.assertRegex(first, r"^ *1 before \S+-fcn_primes:")
        for name in ("struck", "count", "candidate", "multiple"):
            self.assertIn(f" {name}", first)

    def test_names_are_printed_in_step_with_the_script(self):
        printed = self.run_script("""
n = internal.quarn.NamePrinter
n.Enabled = true
disp("one")
primes(5);
disp("two")
primes(6);
disp("three")
n.Enabled = false
primes(7);
into = internal.quarn.NamePrinter("names.txt")
into.Enabled = true
primes(8);
into.Enabled = false
""").splitlines()
        self.assertEqual((printed[0], printed[-2:]), ("one", ["two", "three"]))
        names = printed[1:-2]
        self.assertIn("dead-code-fcn_primes", names)
        self.assertEqual((self.folder / "names.txt").read_text(encoding="utf-8").splitlines(), names)

    def test_statistics_are_a_table_of_what_each_transform_did(self):
        printed = self.run_script("""
s = internal.quarn.CollectStatistics
s.Enabled = true
mandel(5);
s.Enabled = false
""")
        rows = {line.split()[0]: line.split()[1:] for line in printed.splitlines()}
        self.assertEqual(rows["unused-functions"][0], "1")
        self.assertEqual(rows["dead-code"][0], "2")


class LlvmDebugger(Facility):
    POLY = """
function poly(x)
  return x * x + x / 3
end
l = internal.quarn.LlvmDebugger
"""

    def assembly(self, settings):
        """What the machine code of poly looks like under some settings, without constants."""
        shutil.rmtree(self.log, ignore_errors=True)
        printed = self.run_script(self.POLY + "l.dumpHostAssembly = true\n" + settings +
                                  "\ndisp(poly(3))\n")
        self.assertEqual(printed, "10\n")
        return self.only_file("poly*.s").read_text(encoding="utf-8")

    def test_ir_and_assembly_are_dumped_while_they_are_asked_for(self):
        self.run_script(self.POLY + "poly(1);")
        self.assertFalse(self.log.exists())
        self.run_script(self.POLY + """
l.dumpLlvmIR = true
poly(1);
l.dumpLlvmIR = false
l.dumpHostAssembly = true
poly(1);
l.dumpHostAssembly = false
poly(1);
""")
        names = sorted(path.name for path in self.log.iterdir())
        self.assertEqual(names, ["poly-0001.ll", "poly-0002.s"])
        self.assertIn("define ", (self.log / names[0]).read_text(encoding="utf-8"))
        self.assertRegex((self.log / names[1]).read_text(encoding="utf-8"), r"(?m)^poly:")

    def test_settings_show_in_the_machine_code(self):
        def differ(property, *values):
            texts = [self.assembly(f"l.{property} = {value}") for value in values]
            self.assertEqual(len(set(texts)), len(values), property)
            return texts
        differ("jitOptimizationLevel", '"None"', '"Aggressive"')
        if os.uname().machine == "x86_64":
            kept, gone = differ("framePointerPolicy", '"Preserve"', '"Eliminate"')
            self.assertIn("movq\t%rsp, %rbp", kept)
            self.assertNotIn("movq\t%rsp, %rbp", gone)
            soft, hard = differ("useSoftFloat", "true", "false")
            self.assertIn("__muldf3", soft)
            self.assertNotIn("mulsd", soft)
            self.assertIn("mulsd", hard)

    def test_no_setting_changes_a_result(self):
        self.assertEqual(self.run_script("""
l = internal.quarn.LlvmDebugger
for level = {"None", "Less", "Default", "Aggressive", "Accelerator", "Unspecified"}
  l.jitOptimizationLevel = level
  for i = 0:15
    l.enableFastISel = mod(i, 2) == 1
    l.deleteCoreFcnCfgAfterConversion = mod(floor(i / 2), 2) == 1
    l.jitEmitDebugInfo = mod(floor(i / 4), 2) == 1
    l.defaultCodeSlabSizeKBytes = 64 + 1000 * (i > 7)
    l.enabled = i == 3
    assert(mandel(20) == 90, level)
    assert(primes(1000) == 168, level)
  end
end
for policy = {"Preserve", "Eliminate", "Unspecified"}
  l.framePointerPolicy = policy
  l.useSoftFloat = true
  assert(mandel(10) == 22, policy)
  l.useSoftFloat = false
  assert(mandel(10) == 22, policy)
end
disp("all the same")
"""), "all the same\n")

    CHECKS = """
function ratio(x, y)
  return x / y
end
function small(x)
  return int8(x)
end
l = internal.quarn.LlvmDebugger
"""

    def test_failed_checks_are_reported_with_function_and_line(self):
        printed = self.run_script(self.CHECKS + """
disp(ratio(5i32, 0i32))
disp(small(300))
l.enabled = true
for f = {fn() ratio(5i32, 0i32), fn() small(300)}
  try
    f()
  catch err
    printf("%s: %s\\n", err.identifier, err.message)
  end
end
disp(ratio(6i32, 3i32))
l.enabled = false
disp(small(300))
""")
        self.assertEqual(printed, """2147483647
127
ratio: line 8: division by zero
varnix:runtimeCheck: division by zero
small: line 11: a conversion to an integer loses its value
varnix:runtimeCheck: a conversion to an integer loses its value
2
127
""")

    def test_failed_check_aborts_when_that_is_asked_for(self):
        script = self.folder / "abort.vx"
        script.write_text(self.CHECKS + "l.abortOnError = true\nratio(1i32, 0i32)\n",
                          encoding="utf-8")
        done = subprocess.run([str(VARNIX), str(script)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual(done.returncode, -signal.SIGABRT)
        self.assertIn("ratio: line 3: division by zero\n", done.stdout + done.stderr)

    def test_code_prints_what_it_executes(self):
        printed = self.run_script(self.POLY + """
l.instrumentIRDebugPrint = "Printf"
disp(poly(3))
l.instrumentIRVerbosityQUARN = false
l.instrumentIRVerbosityLLVMIR = true
disp(poly(3))
l.instrumentIRDebugPrint = "None"
disp(poly(3))
""")
        quarn, llvm, silent = re.split(r"(?m)^10\n", printed)[:3]
        self.assertRegex(quarn, r"(?m)^poly:8: %\d+: f64 = mul ")
        self.assertRegex(llvm, r"fmul double")
        self.assertEqual(silent, "")

    def test_code_prints_into_the_log_of_valgrind_and_nowhere_else(self):
        if not shutil.which("valgrind") or "ASAN_OPTIONS" in os.environ:
            self.skipTest("valgrind is not installed, or cannot run sanitized programs")
        code = self.POLY + """
l.jitOptimizationLevel = "None"
l.instrumentIRDebugPrint = "ValgrindPrint"
disp(poly(3))
"""
        self.assertEqual(self.run_script(code), "10\n")
        done = subprocess.run(["valgrind", "--tool=none", str(VARNIX), "script.vx"],
                              cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=TIME_LIMIT, check=False)
        self.assertEqual(done.stdout, "10\n")
        self.assertRegex(done.stderr, r"(?m)^(==|\*\*)\d+(==|\*\*) poly:8: %\d+: f64 = mul ")

    def test_code_lies_in_slabs_of_the_size_that_is_set(self):
        with subprocess.Popen([str(VARNIX)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True, cwd=self.folder) as session:
            self.addCleanup(session.kill)

            def slabs(kilobytes):
                session.stdin.write(f"l = internal.quarn.LlvmDebugger;\n"
                                    f"l.defaultCodeSlabSizeKBytes = {kilobytes};\n"
                                    f"disp(mandel(10))\n")
                session.stdin.flush()
                self.assertEqual(session.stdout.readline(), "22\n")
                maps = pathlib.Path(f"/proc/{session.pid}/maps").read_text(encoding="utf-8")
                found = re.findall(r"(?m)^(\w+)-(\w+) (\S+) .*quarn-code", maps)
                return sorted((mode, (int(end, 16) - int(begin, 16)) // 1024)
                              for begin, end, mode in found)

            session.stdin.write(f'addpath("{EXAMPLES}");\n')
            for size in (256, 1000, 3000):  # of each slab a side to write and a side to run
                self.assertEqual(slabs(size), [("r-xs", size), ("rw-s", size)])
            session.stdin.close()

    def test_debuggers_show_script_functions_with_their_lines(self):
        if not shutil.which("gdb"):
            self.skipTest("gdb is not installed")

        def debugged(debug_info):
            script = self.folder / "program.vx"
            script.write_text(f"""l = internal.quarn.LlvmDebugger
l.jitOptimizationLevel = "None"
l.jitEmitDebugInfo = {debug_info}
function deep(n)
  if n < 1
    return 0.5
  end
  below = deep(n - 1)
  return below * 2
end
disp(deep(2))
""", encoding="utf-8")
            commands = ["set breakpoint pending on", "set debuginfod enabled off",
                        "break program.vx:9", "run", "backtrace", "delete", "continue"]
            arguments = [word for command in commands for word in ("-ex", command)]
            done = subprocess.run(["gdb", "-nx", "-batch", *arguments, "--args", str(VARNIX),
                                   str(script)], stdin=subprocess.DEVNULL, capture_output=True,
                                  text=True, timeout=TIME_LIMIT, check=False,
                                  env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"})
            self.assertRegex(done.stdout, r"(?m)^2$", done.stderr)
            return done.stdout

        text = debugged("true")
        self.assertRegex(text, r"(?m)^#0 +deep \(\) at \S*program\.vx:9$")
        self.assertRegex(text, r"(?m)^#1 .* in deep \(\) at \S*program\.vx:8$")
        self.assertIn("  return below * 2\n", text)
        self.assertNotIn("deep ()", debugged("false"))

    def test_switch_of_profiling_leaves_no_instruction_behind(self):
        begin = "c = internal.quarn.ProfilingInstrumentation\n"
        never = self.assembly(begin)
        again = self.assembly(begin + """
l.dumpHostAssembly = false
c.Enabled = true
poly(1);
c.Enabled = false
l.dumpHostAssembly = true
""")
        self.assertEqual(again, never)
        self.assertNotEqual(self.assembly(begin + "c.Enabled = true"), never)


class RefusedFunctions(Facility):
    """A module makes LLVM refuse functions by their names (tests/modules/refuse.cpp)."""

    def refusing(self, code):
        modules = self.folder / "modules"
        modules.mkdir()
        for file in (BUILD / "lib" / "varnix" / "modules" / "quarn_vi.so",
                     BUILD / "tests" / "refuse" / "refuse.so"):
            (modules / file.name).symlink_to(file)
        # What LLVM held when it stopped in the middle is lost.
        leaks = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        return self.run_script(code, "--modules", str(modules), environment={"ASAN_OPTIONS": leaks})

    def expect_once(self, name, message):
        self.assertEqual(self.refusing(f"""
function {name}(n)
  s = 0
  for i = 1:n
    s = s + i * i
  end
  return s
end
function fine(x)
  return x * x + 1
end
disp(fine(2))
disp({name}(3))
disp({name}(4))
disp(fine(3))
disp(primes(100))
"""), f"5\nnot compiled, but interpreted: {name}: {message}\n14\n30\n10\n25\n")

    def test_fatal_error_is_told_once_and_the_function_interpreted(self):
        self.expect_once("fatal", "no way to schedule this")

    def test_diagnosed_error_is_told_once_and_the_function_interpreted(self):
        self.expect_once("unsupported", "no such instruction")


class ProfilingCounters(Facility):
    def counts(self, code):
        """By unit, the sum of the counts of each function and line."""
        self.run_script(code)
        found = json.loads(self.only_file("profile-counts*.json").read_text(encoding="utf-8"))
        table = self.only_file("profile-counts*.txt").read_text(encoding="utf-8")
        units = {}
        for unit in found["units"]:
            self.assertIn(f"unit {unit['unit']}\n", table)
            self.assertNotIn(unit["unit"], units)
            lines = units.setdefault(unit["unit"], {})
            for c in unit["counters"]:
                self.assertRegex(table, rf"(?m)^ +{c['count']} +{c['number']} +{c['line']}  "
                                        rf"{c['function']}$")
                place = (c["function"], c["line"])
                lines[place] = max(lines.get(place, 0), c["count"])
        return units

    def line(self, program, text):
        lines = (EXAMPLES / f"{program}.vx").read_text(encoding="utf-8").splitlines()
        return next(i for i, line in enumerate(lines, 1) if text in line)

    def expect_primes(self, lines, calls):
        sieve = [n for n in range(2, 32) if all(n % d for d in range(2, n))]
        struck = sum(len(range(p * p, 1001, p)) for p in sieve)
        self.assertEqual(lines["primes", self.line("primes", "count = count + 1")], 168 * calls)
        self.assertEqual(lines["primes", self.line("primes", "struck[multiple]")], struck * calls)

    def test_counts_are_written_when_the_code_is_made_anew(self):
        units = self.counts("""
c = internal.quarn.ProfilingInstrumentation
c.Enabled = true
primes(1000); primes(1000); primes(1000);
c.Enabled = false
primes(1000);
disp(isfile("LOG/profile-counts-0001.txt"))
primes(1000);
""")
        self.assertEqual(list(units), ["primes(f64)"])
        self.expect_primes(units["primes(f64)"], 3)

    def test_counts_are_written_at_the_end_of_the_process(self):
        units = self.counts("""
c = internal.quarn.ProfilingInstrumentation
c.Enabled = true
primes(1000); mandel(20);
if isfolder("LOG")
  error("too early")
end
""")
        self.assertEqual(sorted(units), ["mandel(f64)", "primes(f64)"])
        self.expect_primes(units["primes(f64)"], 1)
        self.assertEqual(units["mandel(f64)"]["turns", self.line("mandel", "return count")], 400)

    def test_off_nothing_counts(self):
        def final(code):
            shutil.rmtree(self.log, ignore_errors=True)
            self.run_script("""
p = internal.quarn.PrettyPrinter
p.OutputFormat = "qnel"
p.FilterRegEx = "^compaction"
c = internal.quarn.ProfilingInstrumentation
""" + code + "p.EnabledAfter = true\nprimes(1000);\n")
            return self.only_file("pretty-print/*").read_text(encoding="utf-8")
        never = final("")
        self.assertNotIn("(count ", never)
        self.assertEqual(final("c.Enabled = true; primes(1000); c.Enabled = false;\n"), never)
        self.assertIn("(count ", final("c.Enabled = true\n"))


class Output(Facility):
    """What is no plain file is not replaced by one: the program may well run as root."""

    def test_quarn_opt_keeps_links_and_writes_into_pipes(self):
        source = self.folder / "f.qnel"
        source.write_text("(function f f64 (block b0 (ret 1.0)))\n", encoding="utf-8")
        link, target = self.folder / "link", self.folder / "target"
        link.symlink_to(target)
        for _ in range(2):  # the target is there only the second time
            self.quarn_opt("-o", link, source)
            self.assertTrue(link.is_symlink())
            self.assertIn("(function f f64", target.read_text(encoding="utf-8"))
        pipe = self.folder / "pipe"
        os.mkfifo(pipe)
        reader = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.quarn_opt("-o", pipe, source)
        self.assertIn(b"(function f f64", os.read(reader, 10000))
        self.assertTrue(pipe.is_fifo())
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()),
                         ["f.qnel", "link", "pipe", "target"])


class CommandLine(Facility):
    def said(self, *arguments, status, output=subprocess.PIPE):
        """What quarn-opt says on standard error as it ends with a status."""
        done = subprocess.run([str(QUARN_OPT), *map(str, arguments)], stdin=subprocess.DEVNULL,
                              stdout=output, stderr=subprocess.PIPE, cwd=self.folder, text=True,
                              timeout=TIME_LIMIT, check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def setUp(self):
        super().setUp()
        (self.folder / "f.qnel").write_text("(function f f64 (block b0 (ret 1.0)))\n",
                                            encoding="utf-8")

    def test_a_file_may_stand_behind_a_list(self):
        text = self.quarn_opt(self.folder / "f.qnel")
        self.assertEqual(self.quarn_opt("--passes", "dead-code,compaction", "--passes",
                                        "control-flow", self.folder / "f.qnel"), text)
        adds = self.folder / "adds.qnel"
        adds.write_text("(function adds f64 (param $x f64) (param $y f64) (block b0 "
                        "(%1 f64 load $x) (%2 f64 load $y) (%3 f64 add %1 %2) (ret %3)))",
                        encoding="utf-8")
        self.assertEqual(self.quarn_opt("--run", "adds", "--args", "1,2", adds), "3\n")

    def test_every_number_is_a_seed(self):
        texts = [self.quarn_opt("--generate", seed) for seed in (0, 1, 4294967295)]
        self.assertEqual(len(set(texts)), 3)
        self.assertTrue(all("(function" in text for text in texts))

    def test_what_means_nothing_is_wrong_usage(self):
        self.assertIn("excludes", self.said("--generate=1", "f.qnel", status=2))
        for option in ("--args=1", "--engine=llvm", "--level=1", "--debug-info",
                       "--preserve-frames", "--valgrind-print"):
            self.assertIn("requires --run", self.said(option, "f.qnel", status=2))

    def test_folder_is_no_input(self):
        (self.folder / "d").mkdir()
        self.assertEqual(self.said("d", status=1),
                         "quarn-opt: cannot read 'd': Is a directory\n")

    def test_list_that_nobody_takes_is_an_error(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            self.assertIn("No space left", self.said("--list-passes", status=1, output=full))

    def test_no_file_of_somebody_else_is_touched(self):
        names = ["out.qnel.tmp", "out.qnel.part", "out.qnel~"]
        for name in names:
            (self.folder / name).write_text("mine", encoding="utf-8")
        self.said("f.qnel", "-o", "out.qnel", status=0)
        self.assertEqual({(self.folder / name).read_text() for name in names}, {"mine"})
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()),
                         sorted([*names, "f.qnel", "out.qnel"]))


class Timers(Facility):
    LINE = r"(?m)^.{32}: +\S+ +m?s / +\d+  = +\S+ +m?s/hit$"

    def test_the_compiler_times_its_phases(self):
        printed = self.run_script("""
p = internal.quarn.Profiler
primes(10); mandel(3);
for i = 1:length(p.timers)
  t = p.timers[i]
  printf("%s: %d, %s\\n", t.name, t.hits, text(t.elapsedTime > 0))
end
disp(p.timers)
p.resetAllTimers
for i = 1:length(p.timers)
  assert(p.timers[i].hits == 0, "a timer that was not reset")
end
""")
        lines = printed.splitlines()
        phases = [line for line in lines if re.fullmatch(r"codegen .+: 2, true", line)]
        self.assertGreaterEqual(len(phases), 3, printed)
        self.assertEqual(len(re.findall(self.LINE, printed)), len(lines) // 2, printed)

    def test_handles_of_registered_timers_never_touch_them(self):
        self.assertEqual(self.run_script("""
t = internal.quarn.Timer("ours")
t.start; t.stop
p = internal.quarn.Profiler
before = length(p.timers)
found = p.timers[end]
disp(found.name)
found.start
disp(t.isRunning)
delete(found)
disp(t.isRunning)
disp(length(p.timers) == before)
delete(t)
disp(length(p.timers) == before - 1)
"""), "ours\ntrue\ntrue\ntrue\ntrue\n")

    def test_probe_runs_its_four_trials(self):
        self.assertEqual(self.run_script("""
p = internal.quarn.TimerProbe
for trial = 0:5
  printf("%d ", p.probe(trial, 5))
end
printf("\\n")
disp(p.innerTime)
p.probe(2, 2);
disp(p.innerTime >= 0.001 && p.outerTime >= p.innerTime)
"""), "-1 0 0 0 31 -1 \n0\ntrue\n")


class DebugLog(Facility):
    def test_process_ids_keep_two_processes_apart_in_one_folder(self):
        for _ in range(2):
            self.run_script("""
log.UsePIDInName = true
t = internal.quarn.TransformLogService
t.Enabled = true
primes(5);
""")
        names = sorted(path.name for path in self.log.iterdir())
        self.assertEqual(len(names), 2)
        for name in names:
            self.assertRegex(name, r"\Atransform-log-\d+-0001\.txt\Z")

    def test_folder_that_cannot_be_made_is_told_and_the_program_goes_on(self):
        (self.folder / "file").write_text("in the way", encoding="utf-8")
        printed = self.run_script("""
log.LogDirectory = "file/folder"
t = internal.quarn.TransformLogService
t.Enabled = true
disp(primes(5))
""")
        lines = printed.splitlines()
        self.assertEqual(lines[-1], "3")
        self.assertEqual(len(lines), 2, printed)
        self.assertIn("file/folder", lines[0])


class Hub(Facility):
    TWO = """
internal.quarn.Debug.enable
d = internal.quarn.Debug
{setup}
d.DebugLogger.LogDirectory = "LOG"
d.PrettyPrinter.EnabledAfter = true
disp(mandel(20)); disp(primes(1000)); disp(mandel(21))
"""

    def two_processes(self, setup):
        """`diff -r` of the folders that two processes leave: its text and its status."""
        logs = []
        for name in ("one", "two"):
            folder = self.folder / name
            folder.mkdir(exist_ok=True)
            code = self.TWO.replace("{setup}", setup)
            begin = f'addpath("{EXAMPLES}");\n'
            self.assertEqual(self.run_script(code, begin=begin, folder=folder), "90\n168\n109\n")
            logs.append(folder / "LOG")
        files = [path for path in logs[0].rglob("*") if path.is_file()]
        self.assertGreater(len(files), 1)
        done = subprocess.run(["diff", "-r", *map(str, logs)], capture_output=True, text=True,
                              check=False)
        return done.stdout, done.returncode

    def test_dumps_of_two_processes_are_equal_after_the_set_up_for_diffs(self):
        self.assertEqual(self.two_processes("d.setUpForDiffs"), ("", 0))

    def test_without_the_set_up_they_differ(self):
        self.assertEqual(self.two_processes("")[1], 1)

    def test_closed_hub_says_whom_to_ask(self):
        support = "Please contact Corvane technical support for assistance.\n"
        self.assertEqual(self.run_script("internal.quarn.Debug;", begin=""), support)
        self.assertEqual(self.run_script("internal.quarn.Debug;", begin="",
                                         environment={"ZQE_INSTALL": ""}), support)
        printed = self.run_script("internal.quarn.Debug;", begin="",
                                  environment={"ZQE_INSTALL": "/opt/x"})
        self.assertTrue(printed.startswith(support + "Internal users - please see '"), printed)
        self.assertTrue(printed.endswith("' to learn how to enable it.\n"), printed)


if __name__ == "__main__":
    sys.exit(unittest.main())
