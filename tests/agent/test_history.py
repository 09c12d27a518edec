"""The history of copies: what was started, what became of it, and what is left
of it whatever happens."""

import datetime

from history import (COLUMNS, FAILED, INTERRUPTED, IN_PROGRESS, NEWEST,
                     SUCCESSFUL, ended, entries, newest)
from snmp import go, upload

def test_try(make_agent, make_double):
    agent = make_agent()
    double = make_double(agent)
    station = agent.station
    assert newest(station) == (0, None)
    agent.running_config(b"hostname one\n")
    station.set(go(upload(7, "up.cfg", double.address)))
    agent.succeeds(7)
    print(newest(station))
    station.set(go(upload(8, "up.cfg", "127.0.0.9")))
    agent.fails(8)
    print(newest(station))
    print((agent.state/"history"/"history").read_text())
    import os; print(os.listdir(agent.state/"history"))
    assert 0
