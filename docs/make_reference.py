#!/usr/bin/env python3
"""Keeps docs/reference/ true: one page per class of internal.quarn, whose tables are made from what
the class itself declares, and functions.md, made from the help texts of the built-in functions.

    make_reference.py --varnix build/bin/varnix            rewrites the tables
    make_reference.py --varnix build/bin/varnix --check    says what differs, exit status 1 if anything

A page is written by hand but for the lines between the two markers. A class without a page gets one
with its tables only; what the class is for, and a worked example, are then written around them.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import textwrap

BEGIN = "<!-- declared: made by docs/make_reference.py -->"
END = "<!-- end of declared -->"
FOLDER = pathlib.Path(__file__).resolve().parent / "reference"


def ask(varnix, code):
    done = subprocess.run([varnix, "-e", code], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, check=True)
    return done.stdout


def declared(help_text):
    """The tables of one class, from what `help` prints of it."""
    lines = help_text.splitlines()
    full_name, description = lines[0].split(": ", 1)
    facts, tables, rows = [], [], None
    for line in lines[1:]:
        if line.startswith("  "):
            rows.append(line.strip())
        elif line in ("Properties:", "Methods:"):
            rows = []
            tables.append((line[:-1], rows))
        else:
            facts.append(line)
    text = [f"`{full_name}`: {description}", ""]
    text += [f"- {fact}" for fact in facts]
    for title, rows in tables:
        text.append("")
        if title == "Properties":
            text += ["| property | type | access |", "| --- | --- | --- |"]
            for row in rows:
                name, rest = row.split(None, 1)
                access = "read-only" if rest.endswith("read-only") else "read and write"
                kind = rest.removesuffix("read-only").strip().rstrip(",")
                text.append(f"| `{name}` | {kind} | {access} |")
        else:
            text += ["| method |", "| --- |"]
            text += [f"| `{row}` |" for row in rows]
    return "\n".join(text)


def page(old, class_name, tables):
    block = f"{BEGIN}\n{tables}\n{END}"
    if old is None:
        return f"# {class_name}\n\n{block}\n"
    return re.sub(re.escape(BEGIN) + ".*?" + re.escape(END), lambda _: block, old, flags=re.DOTALL)


def functions(varnix):
    """The page of built-in functions, from what `functions` lists and `help` prints."""
    listed = ask(varnix, "names, families = functions;\n"
                         "for i = 1:length(names)\n"
                         "printf(\"\\x01%s\\n\", families{i}); disp(help(names{i}))\nend")
    lines = ["# Built-in functions", "",
             "Made by docs/make_reference.py from the help texts; `help(\"NAME\")` shows the same."]
    last = None
    for entry in listed.split("\x01")[1:]:
        family, signature, text = entry.strip("\n").split("\n", 2)
        if family != last:
            lines += ["", f"## {family}"]
            last = family
        lines += ["", f"### `{signature}`", ""]
        words = " ".join(line.strip() for line in text.split("\n") if line.strip())  # unwrapped
        description, _, example = words.partition("Example: ")
        lines += textwrap.wrap(description.strip(), 100)
        if example:
            code, result = example.split(" gives ", 1)
            lines += ["", f"Example: `{code}` gives `{result}`"]
    return "\n".join(lines) + "\n"


def index(pages):
    lines = ["# Reference", "",
             "One page per class of `internal.quarn`, in the order in which the module publishes "
             "them. The tables are made from what the classes declare. The functions of the script "
             "language are in [functions.md](functions.md).", "",
             "| class | is |", "| --- | --- |"]
    for name, description in pages:
        lines.append(f"| [{name}]({name}.md) | {description} |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--varnix", required=True, help="the program to ask")
    parser.add_argument("--check", action="store_true", help="write nothing")
    options = parser.parse_args()

    names = ask(options.varnix, 'for c = transpose(classes("internal.quarn"))\n'
                                'printf("%s\\n", c)\nend').split()
    wanted, pages = {}, []
    for full_name in names:
        short = full_name.rsplit(".", 1)[1]
        text = ask(options.varnix, f'help("{full_name}")')
        path = FOLDER / f"{short}.md"
        old = path.read_text(encoding="utf-8") if path.exists() else None
        wanted[path] = page(old, short, declared(text))
        pages.append((short, text.splitlines()[0].split(": ", 1)[1]))
    wanted[FOLDER / "README.md"] = index(pages)
    wanted[FOLDER / "functions.md"] = functions(options.varnix)

    different = 0
    for path, text in wanted.items():
        if path.exists() and path.read_text(encoding="utf-8") == text:
            continue
        different += 1
        if options.check:
            print(f"{path.name} differs from what the classes declare; "
                  "run docs/make_reference.py and read the difference", file=sys.stderr)
        else:
            path.parent.mkdir(exist_ok=True)
            path.write_text(text, encoding="utf-8")
            print(f"wrote {path.name}")
    return 1 if options.check and different else 0


if __name__ == "__main__":
    sys.exit(main())
