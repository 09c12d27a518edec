"""What a station reads: one instance, the next one, everything."""

import random

import pytest

from snmp import COLUMNS, CREATE_AND_WAIT, ENTRY, ROOT, download, name, row

MANY = 10_000


def test_get_next_from_row_to_row(station):
    for index in (9, 3, 7):
        station.set(row(index, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    protocol = name("xfCopyProtocol")
    assert station.next(ROOT)[0] == protocol + ".3"
    assert station.next(protocol)[0] == protocol + ".3"
    assert station.next(protocol + ".0")[0] == protocol + ".3"
    assert station.next(protocol + ".7")[0] == protocol + ".9"
    assert station.next(protocol + ".7.1")[0] == protocol + ".9"
    assert station.next(protocol + ".9")[0] == \
        name("xfCopySourceFileType", 3)


def test_get_of_what_is_not_there(station):
    station.set(row(3, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    for missing in ("2", "4", "3.0", "0"):
        assert station.get("xfCopyProtocol", missing) is None
    for column in (1, 18):
        found = station.walk("snmpwalk", oid=f"{ENTRY}.{column}.3")
        assert found == []


def test_empty_table_has_no_instances(station):
    assert station.walk() == []
    assert station.next(ROOT)[0] != ROOT
    assert not station.next(ROOT)[0].startswith(ROOT + ".")


def test_password_is_never_read(station):
    station.set(download(1, "x.cfg", xfCopyUserName="somebody",
                         xfCopyUserPassword="sesame-open") +
                row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert station.get("xfCopyUserPassword", 1) == ""
    for tool in ("snmpwalk", "snmpbulkwalk"):
        values = [value for _, value in station.walk(tool)]
        assert "somebody" in values
        assert not any("sesame" in str(value) for value in values)


def test_address_in_both_columns(station):
    station.set(row(1, xfCopyServerAddress="192.0.2.200",
                    xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert station.get("xfCopyServerAddressType", 1) == 1
    assert station.octets("xfCopyServerAddressRev1", 1) == \
        bytes([192, 0, 2, 200])
    address = "20010db8" + "00" * 11 + "01"
    station.set(row(1, xfCopyServerAddressType=2))
    station.set(row(1, xfCopyServerAddressRev1=address))
    assert station.octets("xfCopyServerAddressRev1", 1).hex() == address
    assert station.get("xfCopyServerAddress", 1) is None


@pytest.mark.parametrize("repetitions", [1, 7, 50])
def test_bulk_walk_is_a_walk(station, repetitions):
    create(station, random.Random(1).sample(range(1, 1 << 31), 60))
    assert station.walk("snmpbulkwalk", f"-Cr{repetitions}") == station.walk()


def test_walk_of_many_rows(station):
    indexes = random.Random(2).sample(range(1, 1 << 31), MANY)
    create(station, indexes)
    found = station.walk("snmpbulkwalk", "-Cr50")
    assert [oid for oid, _ in found] == [
        name(column, index)
        for column in COLUMNS for index in sorted(indexes)]
    names = dict(found)
    for index in indexes:
        assert names[name("xfCopyFileName", index)] == f"file-{index}"


def create(station, indexes, rows_in_one=40):
    for start in range(0, len(indexes), rows_in_one):
        station.set([varbind for index in indexes[start:start + rows_in_one]
                     for varbind in row(
                         index, xfCopyEntryRowStatus=CREATE_AND_WAIT,
                         xfCopyServerAddress="192.0.2.1",
                         xfCopyFileName=f"file-{index}")])
