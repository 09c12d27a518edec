#!/usr/bin/python3
"""Runs benches, prints their tables and writes docs/performance.md.

A bench is a module of this folder with one function, tables(quick), that
measures and returns a list of tables.Table; its docstring is what a reader is
told before them. To add one: the file, and its name in BENCHES. Called by
scripts/bench.sh."""

import argparse
import importlib
import pathlib
import sys
import time

import machine

TOP = pathlib.Path(__file__).parents[1]
# Where the benches find what the tests have: agents, servers, the tools.
sys.path[:0] = [str(TOP / "tests" / each) for each in ("agent", "hostile")]

# In the order of the document.
BENCHES = ["rows", "answers", "copies", "fabric"]


def measured(name, quick):
    bench = importlib.import_module(name)
    began = time.monotonic()
    sections = [bench.__doc__.strip()]
    sections += [table.text() for table in bench.tables(quick)]
    print(f"{name}: {time.monotonic() - began:.0f} s", file=sys.stderr)
    return "\n\n".join(sections)


def document(names, quick):
    yield "# Performance\n\n" + machine.shape()
    for name in names:
        yield measured(name, quick)
    yield (TOP / "bench" / "left.md").read_text().strip()


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench.sh")
    parser.add_argument("--quick", action="store_true",
                        help="fewer rows and runs; the document stays")
    parser.add_argument("bench", nargs="*",
                        help=f"of {', '.join(BENCHES)}; the document stays")
    options = parser.parse_args()
    if not set(options.bench) <= set(BENCHES):
        parser.error(f"there are {', '.join(BENCHES)}")
    parts = []
    for part in document(options.bench or BENCHES, options.quick):
        print(part + "\n", flush=True)
        parts.append(part)
    if not options.quick and not options.bench:
        (TOP / "docs" / "performance.md").write_text("\n\n".join(parts) + "\n")


if __name__ == "__main__":
    main()
