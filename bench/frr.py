#!/usr/bin/python3
"""Show and apply through the shell beside FRR's own tool, in one run: seconds
and their ratio. The two take turns, and each other time the other one begins.
The figures are medians; behind the ratio of the medians stand the smallest and
the largest ratio of one turn. Called by scripts/bench-frr.sh."""

import pathlib
import statistics
import sys
import tempfile
import time

sys.path[:0] = [str(pathlib.Path(__file__).parents[1] / "tests" / each)
                for each in ("frr", "agent", "hostile")]
import routers  # noqa: E402

RUNS = 5  # each with two new routers
SHOWS = 3  # of each run
CONFIGURATIONS = [
    ("10 routes", "".join(f"ip route 20.0.{n}.0/24 blackhole\n"
                          for n in range(10))),
    ("10,000 routes", "".join(
        f"ip route 20.{n // 250}.{n % 250}.0/24 blackhole\n"
        for n in range(10_000))),
    ("1,000 neighbours, a line each", "router bgp 65001\n" + "".join(
        f" neighbor 10.1.{n // 250}.{n % 250 + 1} remote-as 65002\n"
        for n in range(1_000)) + "exit\n"),
    ("1,000 neighbours, three lines each", "router bgp 65001\n" + "".join(
        f" neighbor {each} remote-as 65002\n"
        f" neighbor {each} description {each}\n"
        f" neighbor {each} timers 30 90\n" for each in (
            f"10.1.{n // 250}.{n % 250 + 1}" for n in range(1_000))) +
     "exit\n")]


def seconds(call):
    began = time.monotonic()
    call()
    return time.monotonic() - began


def in_turns(turns, us, them):
    """A pair of seconds for each turn; we begin with the even ones."""
    pairs = []
    for turn in turns:
        if turn % 2:
            theirs, ours = seconds(them), seconds(us)
        else:
            ours, theirs = seconds(us), seconds(them)
        pairs.append((ours, theirs))
    return pairs


def measured(folder, text, turn):
    """Two new routers: apply the text and show it, through us and without."""
    ours, theirs = (routers.Router(pathlib.Path(tempfile.mkdtemp(dir=folder)))
                    for _ in range(2))
    try:
        given = theirs.folder / "given.cfg"
        given.write_text(text)
        applied = in_turns([turn], lambda: ours.apply(text),
                           lambda: theirs.vtysh("-f", str(given)))
        shown = in_turns(range(SHOWS), ours.show, theirs.own_show)
        assert ours.show() == theirs.own_show()
        return applied, shown
    finally:
        ours.close()
        theirs.close()


def row(name, what, pairs):
    us, them = (statistics.median(column) for column in zip(*pairs))
    spread = [a / b for a, b in pairs]
    print(f"| {what} {name} | {us:.3f} | {them:.3f} | {us / them:.2f} "
          f"({min(spread):.2f} to {max(spread):.2f}) |")


def main():
    print("| | through the shell, s | vtysh, s | ratio |\n|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        for name, text in CONFIGURATIONS:
            runs = [measured(folder, text, turn) for turn in range(RUNS)]
            for which, what in enumerate(("apply", "show")):
                row(name, what, [pair for run in runs for pair in run[which]])


if __name__ == "__main__":
    main()
