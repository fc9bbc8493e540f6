"""A rig's own tests, with nothing but the installed package."""

import importlib.metadata
import pathlib
import pydoc
import sys

import pytest

import tavo_util


@pytest.mark.tavo(size="64K")
def test_incoming(tavo_device, tavo_interface, tmp_path):
    tavo_util.Image.from_bytes(b"image").write(tmp_path / "image.hex")
    image = tavo_util.Image.read(tmp_path / "image.hex")
    assert tavo_device.program(image).pages_written == 1 and tavo_interface.flash.startswith(b"image")
    assert tavo_device.doctor()


def test_it_is_whole():
    assert importlib.metadata.version("tavo-util") == tavo_util.__version__
    assert "with tavo_util.open(" in pydoc.render_doc(tavo_util)
    loaded = {line.split()[-1] for line in open("/proc/self/maps") if "tavo" in line}
    assert loaded and all(pathlib.Path(sys.prefix) in pathlib.Path(file).parents for file in loaded)
