"""For the tests of a rig: fixtures with simulated interfaces. pytest finds this by itself where tavo_util is installed.

    def test_incoming(tavo_device):
        assert tavo_device.doctor()

    def test_cut_off(tavo_device, tavo_interface):
        tavo_interface.fail("CySpiReadWrite", 11, nth=40)
        ...

@pytest.mark.tavo(size="4M", serial="00005678") chooses the options of the interface, as sim.interface() takes them.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Iterator

import pytest

if TYPE_CHECKING:  # else in the fixtures: pytest has this in every run, whatever is tested
    import tavo_util
    from tavo_util import sim


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "tavo(**options): options of the simulated interface (tavo_util.sim.interface)")


@pytest.fixture
def tavo_interface(request: pytest.FixtureRequest) -> Iterator[sim.Interface]:
    """A new simulated interface; the only one that is attached."""
    from tavo_util import sim
    marker = request.node.get_closest_marker("tavo")
    with sim.interface(**(marker.kwargs if marker else {})) as interface:
        yield interface


@pytest.fixture
def tavo_device(tavo_interface: sim.Interface) -> Iterator[tavo_util.Device]:
    """The same, opened."""
    import tavo_util
    with tavo_util.open(tavo_interface.spec) as device:
        yield device
