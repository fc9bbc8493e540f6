"""Simulated interfaces in place of the attached ones: bridge, flash and Neuron, in this process.

    from tavo_util import sim

    with sim.interface(serial="00005678") as interface:
        with tavo_util.open(interface.spec) as device:
            device.program(image)
        assert interface.flash[:4] == b"..."

Inside of the block they are the only interfaces that tavo_util sees. Each is kept in its folder and is there again at
the next run; without one it has a folder that goes with the block. Function names and statuses of the faults are those
of the guide "The simulated interface".
"""

from __future__ import annotations

import contextlib
import os
import tempfile
from typing import Iterator, Mapping, Sequence

from tavo_util import _core, _sim

__all__ = ["Interface", "described", "environment", "interface", "interfaces"]

_active = False


class Interface:
    """One simulated interface, while its block lasts. Counts (nth) are from now: 1 is the next one."""

    def __init__(self, index: int) -> None:
        """For interfaces()."""
        self._index = index
        self._spec = _sim.port_path(index)
        self._folder = _sim.folder(index)

    def __repr__(self) -> str:
        return f"<tavo_util.sim.Interface: {self._folder}>"

    @property
    def spec(self) -> str:
        """What tavo_util.open() takes for it."""
        return self._spec

    @property
    def folder(self) -> str:
        """Where it is kept; files as the guide says."""
        return self._folder

    @property
    def flash(self) -> bytes:
        """What the chip holds."""
        return _sim.flash(self._index)

    @property
    def journal(self) -> list[str]:
        """Everything that was asked of it, one line a call; what did not succeed ends in " !STATUS"."""
        return _sim.journal(self._index)

    def clear_journal(self) -> None:
        """Forgets it."""
        _sim.clear_journal(self._index)

    def calls(self, function: str) -> int:
        """How often that function was called. Raises ValueError for a name that is none."""
        return _sim.calls(self._index, function)

    def fail(self, function: str, status: int, *, nth: int = 1, and_later: bool = False) -> None:
        """The nth call of that function returns that status and does nothing; and_later: those after it, too.

        sim.fail("CySpiReadWrite", 11) is a time-out on the SPI bus. Raises ValueError for a name that is none.
        """
        _sim.fail(self._index, function, nth, status, and_later)

    def lose_program(self, nth: int = 1) -> None:
        """The nth page program is accepted and changes nothing."""
        _sim.lose_program(self._index, nth)

    def lose_erase(self, nth: int = 1) -> None:
        """The nth erase, of whatever size, is accepted and changes nothing."""
        _sim.lose_erase(self._index, nth)

    def flip_read_bit(self, nth: int = 1, *, byte: int = 0, bit: int = 0) -> None:
        """In the nth read of data one bit is wrong."""
        _sim.flip_read_bit(self._index, nth, byte, bit)

    def clear_faults(self) -> None:
        """No faults any more."""
        _sim.clear_faults(self._index)

    def unplug(self) -> None:
        """Pulls the cable; also while an operation works, in another thread or in its progress."""
        _sim.unplug(self._index)

    def plug(self) -> None:
        """Puts it back."""
        _sim.plug(self._index)

    @property
    def leftovers(self) -> str:
        """What is still held: open handles, LDV channels, pins driven low. Empty when all is released."""
        return _sim.leftovers(self._index)

    @property
    def violations(self) -> list[str]:
        """What a real interface would not have forgiven."""
        return _sim.violations(self._index)

    @property
    def neuron(self) -> dict[str, str]:
        """The Neuron's state: id, program-id, state, counters, answer, delay-ms ... (hexadecimal, as in board.txt)."""
        return {name.removeprefix("neuron."): value for name, value in _sim.neuron(self._index).items()}

    def set_neuron(self, knobs: Mapping[str, object] | None = None, **more: object) -> None:
        """Turns knobs of it: set_neuron(answer="silent"), set_neuron(delay_ms=900).

        Raises ValueError for a value, and for a knob that it has not.
        """
        wanted = {name.replace("_", "-"): str(value) for name, value in {**(knobs or {}), **more}.items()}
        if unknown := wanted.keys() - (known := self.neuron.keys()):
            raise ValueError(f"no knob {', '.join(sorted(unknown))}; known are {', '.join(known)}")
        _sim.set_neuron(self._index, {f"neuron.{name}": value for name, value in wanted.items()})


def _description(folder: str, options: Mapping[str, object]) -> str:
    return ",".join([folder, *(f"{name}={value}" for name, value in options.items())])


@contextlib.contextmanager
def interfaces(count: int = 1, *, folders: Sequence[str | os.PathLike[str]] | None = None, pace: str = "fast",
               journal: bool = True, **options: str | int) -> Iterator[list[Interface]]:
    """Makes simulated interfaces and puts them away after the block.

    folders: one for each, which keep them; otherwise they are gone afterwards. pace: "fast" (no delays) or "real"
    (SPI clock and data-sheet times). journal: False saves memory in long tests. options: size="4M", jedec, busy, sfdp
    and the others of the guide; serial numbers count up from serial (00001234).
    Raises RuntimeError inside of another such block, ValueError for an option.
    """
    serial = str(options.pop("serial", "00001234"))
    with contextlib.ExitStack() as stack:
        if folders is None:
            own = stack.enter_context(tempfile.TemporaryDirectory(prefix="tavo-sim-"))
            folders = [os.path.join(own, str(number)) for number in range(count)]
        made = stack.enter_context(described(*(
            _description(os.fspath(folder), {"pace": pace, "serial": _counted(serial, number), **options})
            for number, folder in enumerate(folders))))
        for number in range(len(made)):
            _sim.keep_journal(number, journal)
        yield made


@contextlib.contextmanager
def described(*specs: str) -> Iterator[list[Interface]]:
    """Those that the tool's -d names: "sim:board,size=64K,pace=fast". Without options they have their delays.

    Raises as interfaces().
    """
    global _active
    if _active:
        raise RuntimeError("the simulated interfaces of another block are in use: ask that one for more of them")
    with contextlib.ExitStack() as stack:
        _active = True
        stack.callback(_put_away)
        _sim.set_up([spec.removeprefix("sim:") for spec in specs])
        _core.use_simulated(_sim.library_file())
        yield [Interface(number) for number in range(len(specs))]


@contextlib.contextmanager
def interface(folder: str | os.PathLike[str] | None = None, *, pace: str = "fast", journal: bool = True,
              **options: str | int) -> Iterator[Interface]:
    """One simulated interface, as interfaces()."""
    folders = None if folder is None else [folder]
    with interfaces(1, folders=folders, pace=pace, journal=journal, **options) as made:
        yield made[0]


def environment(*specs: str) -> dict[str, str]:
    """What another program has to be started with to see these ("sim:board,size=64K") and no other interfaces.

        subprocess.run(["tavo-util", "info"], env={**os.environ, **sim.environment("sim:board")})

    Nothing is set here. Raises BadArgument, NoPermission; Internal when tavo-sim is not installed, which has the library
    that is preloaded.
    """
    return dict(_core.simulated_environment([os.fsencode(spec) for spec in specs]))


def _counted(serial: str, number: int) -> str:
    if number == 0 or not serial.isdigit():
        return serial if number == 0 else f"{serial}-{number}"
    return str(int(serial) + number).zfill(len(serial))


def _put_away() -> None:
    global _active
    _core.use_simulated("")
    _sim.take_off()
    _active = False
