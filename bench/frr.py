#!/usr/bin/python3
"""Show and apply through the shell beside FRR's own tool, in one run: seconds
and their ratio. Each figure is the median of so many runs; the two take turns.
Called by scripts/bench-frr.sh."""

import pathlib
import statistics
import sys
import tempfile
import time

sys.path[:0] = [str(pathlib.Path(__file__).parents[1] / "tests" / each)
                for each in ("frr", "agent", "hostile")]
import routers  # noqa: E402

RUNS = 3
CONFIGURATIONS = [
    ("10 routes", "".join(f"ip route 20.0.{n}.0/24 blackhole\n"
                          for n in range(10))),
    ("10,000 routes", "".join(
        f"ip route 20.{n // 250}.{n % 250}.0/24 blackhole\n"
        for n in range(10_000))),
    ("1,000 neighbours", "router bgp 65001\n" + "".join(
        f" neighbor 10.1.{n // 250}.{n % 250 + 1} remote-as 65002\n"
        for n in range(1_000)) + "exit\n")]


def seconds(call):
    began = time.monotonic()
    call()
    return time.monotonic() - began


def measured(folder, text):
    """Two new routers: apply the text and show it, through us and without."""
    ours, theirs = (routers.Router(pathlib.Path(tempfile.mkdtemp(dir=folder)))
                    for _ in range(2))
    try:
        given = theirs.folder / "given.cfg"
        given.write_text(text)
        applied = (seconds(lambda: ours.apply(text)),
                   seconds(lambda: theirs.vtysh("-f", str(given))))
        shown = (seconds(ours.show), seconds(theirs.own_show))
        assert ours.show() == theirs.own_show()
        return applied, shown
    finally:
        ours.close()
        theirs.close()


def row(name, what, pairs):
    us, them = (statistics.median(column) for column in zip(*pairs))
    spread = [a / b for a, b in pairs]
    print(f"| {what} {name} | {us:.2f} | {them:.2f} | {us / them:.2f} "
          f"({min(spread):.2f} to {max(spread):.2f}) |")


def main():
    print("| | through the shell, s | vtysh, s | ratio |\n|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        for name, text in CONFIGURATIONS:
            runs = [measured(folder, text) for _ in range(RUNS)]
            row(name, "apply", [applied for applied, _ in runs])
            row(name, "show", [shown for _, shown in runs])


if __name__ == "__main__":
    main()
