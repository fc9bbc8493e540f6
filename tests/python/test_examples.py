"""The examples and the guide, run as their users run them, but in this process and on simulated interfaces."""

import asyncio
import concurrent.futures
import contextlib
import csv
import importlib.util
import pathlib
import re
import sys
import textwrap

import pytest

import tavo_util
from tavo_util import DomainEntry, sim

TREE = pathlib.Path(__file__).parents[2]
EXAMPLES = TREE / "python" / "examples"


def example(name):
    spec = importlib.util.spec_from_file_location(name, EXAMPLES / f"{name}.py")
    module = sys.modules[name] = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@pytest.mark.tavo(size="64K")
def test_incoming_inspection(tavo_interface, image, tmp_path):
    inspection = example("incoming_inspection")
    names = [str(tmp_path / name) for name in ("image.hex", "record.csv", "page.html")]
    image.write(names[0])
    assert inspection.main(*names) == 1
    page = pathlib.Path(names[2]).read_text()
    assert "00001234" in page and image.identity[:16] in page and "<script" not in page and "differs" in page
    with tavo_util.open() as device:
        device.program(image)
        assert inspection.main(*names) == 2  # in use
    assert inspection.main(*names) == 0
    rows = list(csv.DictReader(open(names[1])))
    assert [row["verdict"] for row in rows] == ["rejected", "not inspected", "accepted"]
    assert rows[2]["neuron_id"] and rows[0]["image"] == image.identity and "next:" in rows[1]["why"]


def test_soak(image, tmp_path, capsys):
    image.write(tmp_path / "image.hex")
    with sim.interfaces(2, size="64K") as boards:
        for nth in range(1, 200):
            boards[1].lose_program(nth)
        assert example("soak_test").main(0.02, [str(tmp_path / "image.hex")]) == 1
        assert boards[0].flash[:0x2046] == bytes(image)
    good, bad = capsys.readouterr().out.splitlines()
    assert "1 rounds, 0 pages twice" in good and "0 rounds" in bad and "next:" in bad
    assert example("soak_test").main(0, [str(tmp_path / "image.hex")]) == 1


def test_domain_migration(capsys):
    migrate = example("migrate_domain").main
    member = DomainEntry(b"\x21", 1, 7, bytes(range(6)))
    with sim.interfaces(2) as boards:
        boards[0].set_neuron(domain0=bytes(member).hex())
        boards[1].set_neuron(answer="silent")
        assert migrate("21", "A1B2C3", False) == 1
        assert "would move" in capsys.readouterr().out and boards[0].neuron["domain0"] == bytes(member).hex().upper()
        boards[1].set_neuron(answer="normal")
        assert migrate("21", "A1B2C3", True) == 0
        assert "subnet 1, node 7" in capsys.readouterr().out
        with tavo_util.open(boards[0].spec) as device:
            moved = device.domain_table()[0]
        assert (moved.domain_id, moved.subnet, moved.key) == (b"\xa1\xb2\xc3", 1, bytes(range(6)))


BLOCKS = [block for file in ("docs/python.md", "README.md")
          for block in re.findall(r"```python\n(.*?)```", (TREE / file).read_text(), re.DOTALL)]


@pytest.mark.parametrize("block", BLOCKS, ids=range(len(BLOCKS)))
def test_the_guides(block, image, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    image.write("image.hex")
    names = {"tavo_util": tavo_util, "asyncio": asyncio, "concurrent": concurrent, "image": image, "pytest": pytest}
    makes_its_own = "sim.interface" in block
    with contextlib.nullcontext() if makes_its_own else sim.interfaces(2 if "pool" in block else 1, size="64K"):
        if "restore" in block:
            with tavo_util.open() as device:
                device.program(image[:100])
        exec(block.replace('"usb:1-4.2"', ""), names)
        if "test_incoming" in names:
            with tavo_util.open() as device:
                names["test_incoming"](device, None)
        if "all_of_them" in names:
            assert len(names["results"]) == len(asyncio.run(names["all_of_them"]())) == 2


def test_help_begins_as_the_guide_does():
    assert textwrap.indent(BLOCKS[0], "    ") in tavo_util.__doc__
