"""Copies with TFTP servers that misbehave."""

from harness import Trial
from snmp import TIMEOUT, download, upload


def test_silence(make_agent, make_double, fault):
    agent = make_agent(tftp_packet_seconds=1, tftp_total_seconds=6)
    double = make_double(agent)
    trial = Trial(agent, lambda index: upload(index, "x.cfg", double.address),
                  lambda: double.files.pop("x.cfg"))
    double.silent = True
    trial.fails(lambda index: download(index, "x.cfg", double.address), TIMEOUT)
    double.silent = False
    trial.goes_on()
