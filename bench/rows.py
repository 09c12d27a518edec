"""## Rows: reads and writes beside Net-SNMP's own helpers

One agent holds the module's table and its peers: the same columns and rows on
`table_container` and `table_tdata`, written as Net-SNMP's generator writes them
(`bench/peers.cpp`), and the floor, a constant for every instance by the
interface that the module has. All of it is asked over loopback by one client.
The module alone traces each step of a SET, and accounts for each activation."""

import dataclasses
import tempfile
import typing

import bed
from bed import ACTIVE, CREATE_AND_WAIT, DESTROY, FILLED, request, status
from tables import Table, median, number, ratio

COLUMNS = range(2, 18)
FILE_NAME = (6, "s", "switch-17.cfg")
# A pair that validation lets through and for which no copy is started.
NOTHING_TO_DO = [(3, "i", 6), (4, "i", 3), FILE_NAME]


@dataclasses.dataclass
class Operation:
    """What is measured, and how often in one slice."""
    name: str
    times: int
    requests: typing.Callable  # of the subject
    on_spare_row: bool = False  # one behind the others
    refused: bool = False
    without: typing.Callable = None  # requests that are not to be counted

    def cost(self, where, subject, rows, times):
        row = {"first": rows + 2} if self.on_spare_row or self.without else {}
        if self.refused:
            row = {"first": rows + 1}
        spent = where.cost(times, 1 if row else rows, self.requests(subject),
                           refused=self.refused, **row)
        if self.without:
            spent -= where.cost(times, 1, self.without(subject), **row)
        return spent


def created(subject, columns):
    return [status(subject, CREATE_AND_WAIT),
            request(subject, "set", *columns)]


OPERATIONS = [
    Operation("GET of one column", 1000,
              lambda s: [request(s, "get", 2)]),
    Operation("GET of a row's 16 columns", 500,
              lambda s: [request(s, "get", *COLUMNS)]),
    Operation("GETNEXT", 1000, lambda s: [request(s, "next", 2)]),
    Operation("GETBULK of 50", 200, lambda s: [request(s, "bulk50", 2)]),
    Operation("SET of one column", 1000,
              lambda s: [request(s, "set", FILE_NAME)]),
    Operation("SET that fills a row, 11 columns", 400,
              lambda s: [request(s, "set", *FILLED)]),
    Operation("create and destroy", 400, lambda s: [
        status(s, CREATE_AND_WAIT), status(s, DESTROY)], on_spare_row=True),
    Operation("activation, refused", 400,
              lambda s: [status(s, ACTIVE)], refused=True),
    Operation("activation, accepted", 200, lambda s: [
        *created(s, NOTHING_TO_DO), status(s, ACTIVE), status(s, DESTROY)],
              without=lambda s: [*created(s, NOTHING_TO_DO),
                                 status(s, DESTROY)])]


def applies(operation, subject):
    """The floor refuses nothing."""
    return subject != "floor" or not operation.refused


def prepare(where, rows):
    """The rows, and one that cannot be activated."""
    for subject in bed.TABLES:
        where.fill(subject, rows)
        where.load(1, 1, created(subject, [
            each for each in FILLED if each != FILE_NAME]), first=rows + 1)


def slices(where, rows, rounds):
    """Of each operation and subject the processor time in each round."""
    costs = {}
    for _ in range(rounds):
        for operation in OPERATIONS:
            for subject in bed.ENTRIES:
                if applies(operation, subject):
                    costs.setdefault((operation.name, subject), []).append(
                        operation.cost(where, subject, rows, operation.times))
    return costs


def time_table(rows, rounds):
    table = Table(f"Processor time of the agent, {rows:,} rows",
                  ["one request, µs", "floor", "ours", "table_container",
                   "table_tdata", "ours / container", "ours / tdata"])
    with tempfile.TemporaryDirectory() as folder, bed.Bed(folder) as where:
        prepare(where, rows)
        costs = slices(where, rows, rounds)
    for operation in OPERATIONS:
        series = {subject: costs.get((operation.name, subject))
                  for subject in bed.ENTRIES}
        table.add(operation.name, *(
            number(median(series[each])) if series[each] else "-"
            for each in ("floor", *bed.TABLES)), *(
                ratio(series["ours"], series[peer])
                for peer in bed.TABLES[1:]))
    return table


def instruction_table(rows):
    table = Table(
        f"Instructions of the agent over the floor, {rows:,} rows",
        ["one request", "floor", "ours", "table_container", "table_tdata",
         "ours / container", "ours / tdata"],
        "Counted by callgrind, from the arrival of a request to its end: the "
        "same from run to run. A refused activation is counted over the floor "
        "of a SET.")
    with tempfile.TemporaryDirectory() as folder, \
            bed.CountingBed(folder) as where:
        prepare(where, rows)
        for operation in OPERATIONS:
            counts = {subject: operation.cost(where, subject, rows,
                                              operation.times)
                      for subject in bed.ENTRIES
                      if applies(operation, subject)}
            if "floor" not in counts:
                counts["floor"] = floor_of_set
            elif operation.name == "SET of one column":
                floor_of_set = counts["floor"]
            over = [counts[each] - counts["floor"] for each in bed.TABLES]
            table.add(operation.name, f"{counts['floor']:,.0f}",
                      *(f"{each:,.0f}" for each in over),
                      *(f"{over[0] / peer:.2f}" for peer in over[1:]))
    return table


# As many rows as fill the trace history, whose file counts as memory, too.
ROWS_BEFORE = 1_000


def memory_table(rows):
    table = Table("Memory", ["", "octets a row"],
                  f"What the agent's resident memory grows by when {rows:,} "
                  f"rows are created and filled, behind {ROWS_BEFORE:,} that "
                  "were there.")
    for subject in bed.TABLES:
        with tempfile.TemporaryDirectory() as folder, bed.Bed(folder) as where:
            where.fill(subject, ROWS_BEFORE)
            before = where.agent.resident_kib()
            where.fill(subject, rows, first=ROWS_BEFORE + 1)
            grown = where.agent.resident_kib() - before
        table.add(subject, f"{grown * 1024 / rows:,.0f}")
    return table


def tables(quick):
    sizes = [10, 1_000] if quick else [10, 1_000, 10_000, 100_000]
    return [*(time_table(rows, 3 if quick else 7) for rows in sizes),
            instruction_table(1_000),
            memory_table(10_000 if quick else 100_000)]
