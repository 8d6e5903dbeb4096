#!/usr/bin/env python3
"""Which house may include which.

    quarn_vi/     public headers of the other three, Boost
    varnix/       public headers of ts_services; those of quarn in varnix/codegen/ only
    quarn/        public headers of ts_services; LLVM in quarn/vmrt/ only
    ts_services/  nothing

A header outside a house's include/ folder is that house's own. Tests inside a house follow the
rules of their house. No file names anything of a house that it may not use.
"""

import os
import pathlib
import re
import sys
import tempfile
import unittest

HOUSES = ("ts_services", "quarn", "varnix", "quarn_vi")
PUBLIC = {  # house: first folder of its public headers as #include <...> names them
    "ts_services": {"ts"},
    "quarn": {"qn"},
    "varnix": {"objsys", "hv", "ut", "sv"},
    "quarn_vi": set(),
}
MAY_USE = {
    "ts_services": set(),
    "quarn": {"ts_services"},
    "varnix": {"ts_services"},
    "quarn_vi": {"ts_services", "quarn", "varnix"},
}
# Folders with a right of their own.
ALSO = {"varnix/codegen/": {"quarn"}}
# Libraries that only certain places may include.
LIBRARIES = {
    "llvm": ("quarn/vmrt/",),
    "llvm-c": ("quarn/vmrt/",),
    "boost": ("quarn_vi/", "quarn/"),
    "Eigen": ("varnix/",),
    "re2": ("varnix/", "quarn/"),
    "fmt": ("varnix/", "quarn/"),
    "CLI": ("varnix/", "quarn/tools/"),
    "histedit.h": ("varnix/shell/",),
    "gtest": HOUSES,
    "gmock": HOUSES,
}
# Words outside comments and texts that give away knowledge of a house above.
NAMES = {
    "ts_services": ("quarn", "varnix", "objsys"),
    "quarn": ("varnix", "objsys", "quarn_vi"),
    "varnix": ("quarn_vi",),
}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
TEXT = re.compile(r'"(?:[^"\\\n]|\\.)*"')
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)


def faults(root):
    """Every breach of the rules below a source root, as `FILE: what`."""
    found = []
    for house in HOUSES:
        for path in sorted((root / house).rglob("*")):
            if path.suffix in (".hpp", ".cpp", ".h", ".c"):
                found += faults_of_file(root, house, path)
    return found


def faults_of_file(root, house, path):
    name = path.relative_to(root).as_posix()
    source = path.read_text(encoding="utf-8")
    allowed = {house} | MAY_USE[house]
    for folder, more in ALSO.items():
        if name.startswith(folder):
            allowed = allowed | more
    public = name.startswith(f"{house}/include/")
    for kind, target in INCLUDE.findall(source):
        first = target.split("/")[0]
        if ".." in target.split("/"):
            yield f"{name}: includes {target} through a parent folder"
        for other, folders in PUBLIC.items():
            if first in folders and other not in allowed:
                yield f"{name}: includes <{target}> of {other}"
        if kind == '"':
            places = (path.parent / target, root / house / target, root / house / "src" / target)
            if not any(place.is_file() for place in places):
                yield f'{name}: includes "{target}", which is no header of {house}'
            if public:
                yield f'{name}: a public header includes "{target}"; it cannot once installed'
        elif not public and (root / house / target).is_file() and first not in PUBLIC[house]:
            yield f"{name}: includes its own house's <{target}> as if it were public"
        if kind == "<" and first in HOUSES and "/" in target:
            yield f"{name}: includes <{target}> from inside a house"
        if first in LIBRARIES and not name.startswith(
                tuple(p if p.endswith("/") else p + "/" for p in LIBRARIES[first])):
            yield f"{name}: includes <{target}>, which only {LIBRARIES[first]} may"
    if "/tests/" in name:
        return
    code = TEXT.sub('""', COMMENT.sub("", INCLUDE.sub("", source)))
    for word in NAMES.get(house, ()):
        granted = any(name.startswith(folder) and word in more for folder, more in ALSO.items())
        if not granted and re.search(rf"\b{word}\b", code):
            yield f"{name}: names {word}"


class IncludeRules(unittest.TestCase):
    def test_houses_include_only_what_they_may(self):
        root = pathlib.Path(os.environ["SOURCE_ROOT"])
        self.assertEqual(list(faults(root)), [])

    def test_breaches_are_found(self):
        breaches = {
            "varnix/value/a.cpp": ("#include <qn/service.hpp>\n", "of quarn"),
            "quarn/ir/b.cpp": ("#include <objsys/value.hpp>\n", "of varnix"),
            "ts_services/src/c.cpp": ("#include <qn/service.hpp>\n", "of quarn"),
            "quarn_vi/debug/d.cpp": ('#include "../../varnix/lang/x.hpp"\n', "parent folder"),
            "quarn_vi/debug/e.cpp": ('#include "lang/interpreter.hpp"\n', "no header of quarn_vi"),
            "quarn_vi/debug/f.cpp": ("#include <varnix/lang/x.hpp>\n", "inside a house"),
            "quarn/ir/g.cpp": ("#include <llvm/IR/Module.h>\n", "which only"),
            "varnix/include/hv/h.hpp": ('#include "value/value.hpp"\n', "once installed"),
            "varnix/lang/i.cpp": ("int f() { return quarn_vi::answer; }\n", "names quarn_vi"),
            "quarn/ir/j.cpp": ("namespace objsys {}\n", "names objsys"),
        }
        sound = {
            "varnix/codegen/k.cpp": "#include <qn/service.hpp>\n",
            "quarn_vi/debug/l.cpp": "#include <qn/service.hpp>\n#include <objsys/value.hpp>\n",
            "quarn/ir/m.cpp": "// for varnix, quarn_vi and others\n#include <ts/feature.hpp>\n",
        }
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name in HOUSES:
                (root / name).mkdir()
            for name, text in [(n, t) for n, (t, _) in breaches.items()] + list(sound.items()):
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text, encoding="utf-8")
            found = list(faults(root))
        for name, (_, reason) in breaches.items():
            self.assertTrue(any(f.startswith(name + ":") and reason in f for f in found),
                            f"{name} was not found among {found}")
        for name in sound:
            self.assertFalse([f for f in found if f.startswith(name + ":")])


if __name__ == "__main__":
    sys.exit(unittest.main())
