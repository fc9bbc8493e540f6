"""The tests of the package for Python. They take the fixtures from its own pytest plugin."""

import random

import pytest

import tavo_util

pytest_plugins = ["tavo_util.pytest_plugin"]


@pytest.fixture
def image():
    """Some pages, a gap, and an end in the middle of a page."""
    noise = random.Random(7)
    return tavo_util.Image({0: noise.randbytes(3000), 0x2000: noise.randbytes(70)})
