#!/usr/bin/env python3
"""What the built module shows and needs: its symbols, seen with nm, and its instructions, seen with
objdump.

A host finds a module by exactly five symbols. Anything more in the dynamic table can clash with
another module or, as a unique symbol, keeps the library in the process for ever. The module is
called from one thread and takes no lock, so nothing in it may wait or use an atomic instruction;
the one exception is the sleep of a timer probe, which Boost makes interruptible with a mutex.
"""

import os
import pathlib
import platform
import re
import subprocess
import unittest

MODULE = pathlib.Path(os.environ["BUILD_ROOT"]) / "lib/varnix/modules/quarn_vi.so"

EXPORTS = {
    "VNInitialize_quarn_vi": "T",
    "VNTerminate_quarn_vi": "T",
    "QueryVNFcnTable_quarn_vi": "T",
    "quarn_vi_version": "D",
    "quarn_vi_build_date": "D",
}

# Names of functions that wait, lock or count atomically, in C and in C++.
SYNCHRONIZATION = re.compile(
    r"__cxa_guard_|^pthread_|^sem_|^thrd_|^mtx_|^cnd_|^call_once|^__atomic_|^__sync_|^futex"
    r"|std::(__1::)?(mutex|thread|condition_variable|__atomic|call_once|__once|future)"
    r"|boost::(mutex|detail::thread_data|condition_variable)")

# Whose calls to these functions are right: Boost's interruptible sleep and who calls it.
MAY_WAIT = re.compile(r"boost::|quarn_vi::debug::TimerProbe::")


def tool(*command):
    return subprocess.run([*command, str(MODULE)], check=True, capture_output=True,
                          text=True).stdout


def imports():
    """Undefined dynamic symbols, demangled, without their versions."""
    lines = tool("nm", "-D", "--undefined-only", "--demangle").splitlines()
    return [re.sub(r"@.*$", "", line.split(maxsplit=1)[1]) for line in lines]


def functions():
    """Pairs of a function's name and one of its instructions."""
    name = ""
    for line in tool("objdump", "-d", "--demangle", "--no-show-raw-insn").splitlines():
        if found := re.match(r"[0-9a-f]+ <(.*)>:$", line):
            name = found.group(1)
        elif found := re.match(r"\s*[0-9a-f]+:\s+(.*)$", line):
            yield name, found.group(1)


class Exports(unittest.TestCase):
    def test_are_the_five_symbols(self):
        shown = {}
        for line in tool("nm", "-D", "--defined-only").splitlines():
            _, kind, name = line.split()
            shown[name] = kind
        self.assertEqual(shown, EXPORTS)

    def test_no_symbol_is_unique(self):
        for table in ([], ["-D"]):
            unique = [line for line in tool("nm", "--demangle", *table).splitlines()
                      if re.match(r"[0-9a-f]* *u ", line)]
            self.assertEqual(unique, [])

    def test_library_may_be_unloaded(self):
        flags = tool("readelf", "--dynamic", "--wide")
        self.assertNotIn("NODELETE", flags)

    def test_library_carries_no_search_path_of_the_source_tree(self):
        paths = re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", tool("readelf", "-d", "-W"))
        for path in ":".join(paths).split(":"):
            self.assertTrue(path == "" or path.startswith("$ORIGIN"), path)


class Imports(unittest.TestCase):
    def test_imports_are_read(self):
        self.assertIn("objsys::COSPackage::addClass(objsys::COSClassInfo*)", imports())

    def test_no_guards_of_static_variables(self):
        self.assertEqual([name for name in imports() if "__cxa_guard" in name], [])

    def test_no_thread_is_started(self):
        starts = re.compile(r"^pthread_create|^thrd_create|^clone|^fork|std::thread|boost::thread::")
        self.assertEqual([name for name in imports() if starts.search(name)], [])

    def test_nothing_waits_but_the_sleep_of_a_timer_probe(self):
        callers = set()
        for function, instruction in functions():
            called = re.search(r"\b(?:call|jmp)\S*\s.*<(.*?)(?:@plt)?>$", instruction)
            if called and SYNCHRONIZATION.search(called.group(1)) \
                    and not called.group(1).startswith(function):
                callers.add((function, called.group(1)))
        wrong = {pair for pair in callers
                 if not MAY_WAIT.search(pair[0]) and not pair[0].endswith("@plt")}
        self.assertEqual(wrong, set())


@unittest.skipUnless(platform.machine() == "x86_64", "instructions of another processor")
class Instructions(unittest.TestCase):
    def test_instructions_are_read(self):
        names = {name for name, _ in functions()}
        self.assertIn("VNInitialize_quarn_vi", names)
        self.assertIn("quarn_vi::publishPackage()", names)

    def test_no_instruction_is_atomic(self):
        # An exchange with memory locks without saying so.
        atomic = re.compile(r"^lock\b|\block (add|sub|inc|dec|xadd|cmpxchg|or|and|xor|bts|btr)"
                            r"|^xchg\S*\s+.*\(")
        found = [(name, text) for name, text in functions() if atomic.search(text)]
        self.assertEqual(found, [])


if __name__ == "__main__":
    unittest.main()
