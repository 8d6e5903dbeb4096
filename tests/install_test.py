#!/usr/bin/env python3
"""The installed tree: it runs, and the extension module builds alone against it."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["SOURCE_ROOT"])
BUILD = pathlib.Path(os.environ["BUILD_ROOT"])
CMAKE = os.environ.get("CMAKE_COMMAND", "cmake")
CODE = 's = internal.quarn.CollectStatistics; s.Enabled = true; disp(s.Enabled)'


def run(*command, **settings):
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                          **settings)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class Run(unittest.TestCase):
    def test_run_builds_the_libraries_that_are_only_loaded(self):
        command = next(line for line in (SOURCE / "run").read_text(encoding="utf-8").splitlines()
                       if line.startswith("set_up "))
        targets = command.split('"$source_root/build"')[1].split()
        needed = run("ninja", "-C", BUILD, "-t", "inputs", *targets)
        for library in (BUILD / "lib").glob("*.so"):
            self.assertIn(f"lib/{library.name}\n", needed)


class Install(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="install-test-")
        self.addCleanup(self.folder.cleanup)
        self.prefix = pathlib.Path(self.folder.name) / "prefix"
        run(CMAKE, "--install", BUILD, "--prefix", self.prefix)

    def test_installed_tree_runs_with_its_module(self):
        self.assertEqual(run(self.prefix / "bin" / "varnix", "-e", CODE), "true\n")

    def test_nothing_installed_refers_to_the_build_tree(self):
        for path in self.prefix.rglob("*.cmake"):
            self.assertNotIn(str(SOURCE), path.read_text(encoding="utf-8"), path)
        for path in [self.prefix / "bin" / "varnix", *self.prefix.rglob("*.so")]:
            header = run("readelf", "-d", path)
            self.assertNotIn(str(BUILD), header, path)

    def test_module_builds_alone_against_the_installed_tree(self):
        # A copy of the module's folder and nothing else of the tree.
        source = pathlib.Path(self.folder.name) / "module"
        shutil.copytree(SOURCE / "quarn_vi", source)
        build = pathlib.Path(self.folder.name) / "build"
        run(CMAKE, "-S", source, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run(CMAKE, "--build", build)
        module = build / "lib" / "varnix" / "modules" / "quarn_vi.so"
        self.assertTrue(module.is_file())
        # The installed module is out of the way, so that only the new one can answer.
        shutil.rmtree(self.prefix / "lib" / "varnix" / "modules")
        varnix = self.prefix / "bin" / "varnix"
        self.assertEqual(run(varnix, "--modules", module.parent, "-e", CODE), "true\n")
        shutil.copytree(module.parent, self.prefix / "lib" / "varnix" / "modules")
        self.assertEqual(run(varnix, "-e", CODE), "true\n")


if __name__ == "__main__":
    sys.exit(unittest.main())
