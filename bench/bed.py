"""An agent with the module and its peers, and a client that loads it."""

import contextlib
import io
import pathlib
import re
import subprocess

import lab

PROGRAMS = lab.BUILD / "bench"
ENTRIES = {"ours": ".1.3.6.1.4.1.32473.1.1.1.1.1.1",
           "table_container": ".1.3.6.1.4.1.32473.2.1.1.1.1.1",
           "table_tdata": ".1.3.6.1.4.1.32473.3.1.1.1.1.1",
           "floor": ".1.3.6.1.4.1.32473.4.1.1.1.1.1"}
TABLES = ["ours", "table_container", "table_tdata"]
# What a station writes into a row: all columns but its status.
FILLED = [(2, "i", 1), (3, "i", 1), (4, "i", 4), (5, "a", "192.0.2.1"),
          (6, "s", "switch-17.cfg"), (7, "s", "operator"), (8, "s", "-"),
          (9, "i", 2), (15, "i", 1), (16, "x", "c0000201"), (17, "s", "-")]
STATUS = 14
ACTIVE, CREATE_AND_WAIT, DESTROY = 1, 5, 6


def request(subject, kind, *columns):
    """One request of a load: columns as (number, type, value) or a number."""
    words = [kind]
    for column in columns:
        number, *value = column if isinstance(column, tuple) \
            else (column, "n", "-")
        words += [f"{ENTRIES[subject]}.{number}", *map(str, value)]
    return " ".join(words)


def status(subject, value):
    return request(subject, "set", (STATUS, "i", value))


class Outcome:
    def __init__(self, line):
        self.requests, self.refused = map(int, line.split()[:2])
        # In microseconds.
        self.median, self.p99, self.worst = map(float, line.split()[2:])


class Client:
    """bench_client: one load at a time."""

    def __init__(self, port):
        self.process = subprocess.Popen(
            [PROGRAMS / "bench_client", f"udp:127.0.0.1:{port}"], text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def begin(self, times, rows, requests, first=1, stride=7919, together=1):
        self.process.stdin.write(
            f"{times} {first} {stride} {rows} {together} "
            f"{' / '.join(requests)}\n")
        self.process.stdin.flush()

    def stop(self):
        """Ends a load of "until"."""
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        return self.end()

    def end(self):
        line = self.process.stdout.readline()
        assert line, "the client ended"
        return Outcome(line)

    def load(self, *arguments, **named):
        self.begin(*arguments, **named)
        return self.end()

    def close(self):
        self.process.stdin.close()
        assert self.process.wait(20) == 0


class Bed:
    """Both, in a folder. Use it in a `with`."""

    def __init__(self, folder, wrapper=(), kind=lab.Agent, **settings):
        folder = pathlib.Path(folder)
        self.agent = kind(
            folder, "dontLogTCPWrappersConnects yes\n",
            f"dlmod bench_peers {PROGRAMS / 'libbench_peers.so'}\n",
            wrapper=wrapper, **{"table_rows": 1_000_000, **settings})

    def __enter__(self):
        self.agent.start()
        self.client = Client(self.agent.port)
        return self

    def __exit__(self, kind, *_):
        self.client.close()
        # It prints its log.
        with contextlib.redirect_stdout(io.StringIO()):
            self.agent.close()

    def load(self, *arguments, **named):
        return self.client.load(*arguments, **named)

    def cpu(self):
        """Processor time that the agent has had, in microseconds."""
        with open(f"/proc/{self.agent.pid}/schedstat") as stat:
            return int(stat.read().split()[0]) / 1000

    def cost(self, *arguments, refused=False, **named):
        """Processor time of one round of a load, in microseconds."""
        before = self.cpu()
        outcome = self.load(*arguments, **named)
        spent = self.cpu() - before
        assert outcome.refused == (outcome.requests if refused else 0)
        return spent / arguments[0]

    def fill(self, subject, rows, first=1):
        """Rows as a station leaves them that has not started them yet."""
        outcome = self.load(rows // 10, rows, [
            status(subject, CREATE_AND_WAIT),
            request(subject, "set", *FILLED)],
                            first=first, stride=10, together=10)
        assert outcome.refused == 0


class CountingBed(Bed):
    """Its agent runs under callgrind: a cost is in instructions, from the arrival
    of a request to its end. So what the agent does each second is not in it."""

    def __init__(self, folder, **settings):
        self.folder = pathlib.Path(folder)
        super().__init__(folder, ["valgrind", "-q", "--tool=callgrind",
                                  "--toggle-collect=snmp_read2",
                                  "--callgrind-out-file="
                                  f"{self.folder / 'count'}"], **settings)

    def control(self, option):
        subprocess.run(["callgrind_control", option, str(self.agent.pid)],
                       check=True, capture_output=True)

    def cost(self, *arguments, refused=False, **named):
        for each in self.folder.glob("count.*"):
            each.unlink()
        self.control("--zero")
        outcome = self.load(*arguments, **named)
        self.control("--dump")
        assert outcome.refused == (outcome.requests if refused else 0)
        counted, = self.folder.glob("count.*")
        return int(re.search(r"^(?:summary|totals): (\d+)",
                             counted.read_text(), re.MULTILINE)[1]) \
            / arguments[0]
